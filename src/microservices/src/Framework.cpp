#include <cppmicroservices/Framework.h>

#include "BundlePrivate.h"
#include "FrameworkCore.h"
#include "SystemBundle.h"

#include <cppmicroservices/Constants.h>
#include <cppmicroservices/FrameworkEvent.h>
#include <cppmicroservices/FrameworkFactory.h>

#include <iostream>
#include <stdexcept>

namespace cppmicroservices {

Framework FrameworkFactory::NewFramework() {
    return NewFramework({});
}

Framework FrameworkFactory::NewFramework(const FrameworkConfiguration& configuration, std::ostream* logger) {
    AnyMap properties(AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS);
    for (const auto& [key, value] : configuration)
        properties.emplace(key, value);
    const auto log = properties.find(Constants::FRAMEWORK_LOG);
    const bool* const isLogged = log == properties.end() ? nullptr : any_cast<bool>(&log->second);
    if (!isLogged || !*isLogged)
        logger = nullptr;
    else if (!logger)
        logger = &std::clog;
    return Framework(
        std::make_shared<FrameworkCore>(std::move(properties), logger)->systemBundle()->handle());
}

Framework::Framework(Bundle bundle) : Bundle(std::move(bundle)) {
    if (m_bundle.get() != (m_framework ? m_framework->systemBundle().get() : nullptr))
        throw std::logic_error("the bundle is not a framework");
}

Framework::Framework(const Framework&) = default;
Framework::Framework(Framework&&) noexcept = default;
Framework& Framework::operator=(const Framework&) = default;
Framework& Framework::operator=(Framework&&) noexcept = default;
Framework::~Framework() = default;

void Framework::Init() {
    checked();
    m_framework->systemBundle()->init();
}

FrameworkEvent Framework::WaitForStop(const std::chrono::milliseconds& timeout) {
    checked();
    switch (m_framework->systemBundle()->waitForStop(timeout)) {
    case SystemBundle::Outcome::Stopped:
        return FrameworkEvent(FrameworkEvent::FRAMEWORK_STOPPED, *this, std::string());
    case SystemBundle::Outcome::TimedOut:
        return FrameworkEvent(FrameworkEvent::FRAMEWORK_WAIT_TIMEDOUT, *this, std::string());
    case SystemBundle::Outcome::NeverStarted:
        break;
    }
    return FrameworkEvent(FrameworkEvent::FRAMEWORK_ERROR, *this, "the framework was never started");
}

FrameworkEvent::FrameworkEvent() = default;
FrameworkEvent::FrameworkEvent(const FrameworkEvent&) = default;
FrameworkEvent& FrameworkEvent::operator=(const FrameworkEvent&) = default;
FrameworkEvent::~FrameworkEvent() = default;

FrameworkEvent::FrameworkEvent(Type type, const Bundle& bundle, const std::string& message,
                               const std::exception_ptr exception)
    : m_type(type), m_bundle(bundle), m_message(message), m_exception(exception) {}

FrameworkEvent::operator bool() const {
    return static_cast<bool>(m_bundle);
}

FrameworkEvent::Type FrameworkEvent::GetType() const {
    return m_type;
}

Bundle FrameworkEvent::GetBundle() const {
    return m_bundle;
}

std::string FrameworkEvent::GetMessage() const {
    return m_message;
}

std::exception_ptr FrameworkEvent::GetThrowable() const {
    return m_exception;
}

std::ostream& operator<<(std::ostream& stream, FrameworkEvent::Type type) {
    switch (type) {
    case FrameworkEvent::FRAMEWORK_STARTED:
        return stream << "STARTED";
    case FrameworkEvent::FRAMEWORK_ERROR:
        return stream << "ERROR";
    case FrameworkEvent::FRAMEWORK_WARNING:
        return stream << "WARNING";
    case FrameworkEvent::FRAMEWORK_INFO:
        return stream << "INFO";
    case FrameworkEvent::FRAMEWORK_STOPPED:
        return stream << "STOPPED";
    case FrameworkEvent::FRAMEWORK_STOPPED_UPDATE:
        return stream << "STOPPED_UPDATE";
    case FrameworkEvent::FRAMEWORK_WAIT_TIMEDOUT:
        return stream << "WAIT_TIMEDOUT";
    }
    return stream << static_cast<std::uint32_t>(type);
}

} // namespace cppmicroservices
