#pragma once

#include <string>

namespace runtime::bundle {

class __attribute__((visibility("default"))) Greeting {
public:
    virtual ~Greeting() = default;

    virtual std::string greet(const std::string& name) = 0;
    /// Symbolic name of the bundle as its own context tells it, empty if that is not valid.
    virtual std::string ownBundle() = 0;
};

class __attribute__((visibility("default"))) Farewell {
public:
    virtual ~Farewell() = default;

    virtual std::string takeLeave() = 0;
};

/// What a test learns about the objects of the component: it registers one as a service of its own before it
/// starts the bundle, and the component tells it.
class __attribute__((visibility("default"))) Witness {
public:
    virtual ~Witness() = default;

    virtual void saw(const std::string& event) = 0;
};

} // namespace runtime::bundle
