#pragma once

#include <runtime/bundle/Greeting.h>

#include <cppmicroservices/Bundle.h>
#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Framework.h>
#include <cppmicroservices/FrameworkEvent.h>
#include <cppmicroservices/FrameworkFactory.h>
#include <microservices/ComponentRuntime.h>

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace runtime {

inline const std::string greetingBundle = KX_GREETING_BUNDLE;

/// Writes down what the component of the greeting bundle tells.
class Diary : public bundle::Witness {
public:
    void saw(const std::string& event) override {
        const std::lock_guard lock(m_mutex);
        m_events.push_back(event);
    }

    std::vector<std::string> events() const {
        const std::lock_guard lock(m_mutex);
        return m_events;
    }

private:
    mutable std::mutex m_mutex;
    std::vector<std::string> m_events;
};

/// A started framework that can run components.
class RuntimeTest : public testing::Test {
protected:
    RuntimeTest() {
        m_framework.Start();
        const std::string declarativeServices = microservices::declarativeServicesBundle();
        if (!declarativeServices.empty())
            for (cppmicroservices::Bundle& bundle : context().InstallBundles(declarativeServices))
                bundle.Start();
    }

    ~RuntimeTest() override { stopFramework(); }

    cppmicroservices::BundleContext context() const { return m_framework.GetBundleContext(); }

    void stopFramework() {
        m_framework.Stop();
        m_framework.WaitForStop(std::chrono::milliseconds(0));
    }

    cppmicroservices::Bundle installGreeting() { return context().InstallBundles(greetingBundle).at(0); }

    cppmicroservices::Bundle startGreeting() {
        cppmicroservices::Bundle bundle = installGreeting();
        bundle.Start();
        return bundle;
    }

    std::shared_ptr<Diary> keepDiary() {
        auto diary = std::make_shared<Diary>();
        context().RegisterService<bundle::Witness>(diary);
        return diary;
    }

    template <class Interface = bundle::Greeting>
    std::shared_ptr<Interface> findOne(const std::string& filter) const {
        const auto found = context().GetServiceReferences<Interface>(filter);
        return found.empty() ? nullptr : context().GetService(found.front());
    }

    cppmicroservices::Framework m_framework = cppmicroservices::FrameworkFactory().NewFramework();
};

} // namespace runtime
