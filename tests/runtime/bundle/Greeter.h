#pragma once

#include <runtime/bundle/Greeting.h>

#include <memory>
#include <string>

namespace cppmicroservices::service::component {
class ComponentContext;
}

namespace runtime::bundle {

/// Tells the Witness of the framework, if there is one, when it is made, activated, deactivated and
/// destroyed.
class Greeter : public Greeting, public Farewell {
public:
    using Context = std::shared_ptr<cppmicroservices::service::component::ComponentContext>;

    Greeter();
    ~Greeter() override;

    void Activate(const Context& context);
    void Deactivate(const Context& context);

    std::string greet(const std::string& name) override;
    std::string ownBundle() override;
    std::string takeLeave() override;

private:
    std::shared_ptr<Witness> m_witness;
};

/// Asks for its own service while it is made, and tells in its greeting what it got.
class Narcissist : public Greeting {
public:
    Narcissist();

    std::string greet(const std::string& name) override;
    std::string ownBundle() override;

private:
    std::shared_ptr<Greeting> m_self;
};

/// Cannot be deactivated: throws its property `reason`, a number where it has none.
class Clinger : public Greeting {
public:
    using Context = std::shared_ptr<cppmicroservices::service::component::ComponentContext>;

    void Deactivate(const Context& context);

    std::string greet(const std::string& name) override;
    std::string ownBundle() override;
};

/// Asks for nothing: no context, no service.
class Hermit : public Greeting {
public:
    std::string greet(const std::string& name) override;
    std::string ownBundle() override;
};

/// Stops its own bundle while it is made.
class Quitter : public Greeting {
public:
    Quitter();

    std::string greet(const std::string& name) override;
    std::string ownBundle() override;
};

/// Cannot be made.
class Sulker : public Greeting {
public:
    Sulker();

    std::string greet(const std::string& name) override;
    std::string ownBundle() override;
};

} // namespace runtime::bundle
