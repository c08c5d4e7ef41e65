#pragma once

#include <cppmicroservices/Bundle.h>
#include <cppmicroservices/FrameworkExport.h>

#include <cstdint>
#include <exception>
#include <iosfwd>
#include <string>

namespace cppmicroservices {

/// Something that happened to the framework; here, how waiting for its stop ended.
class US_Framework_EXPORT FrameworkEvent {
public:
    enum Type : std::uint32_t {
        FRAMEWORK_STARTED = 0x001,
        /// The framework was never started, or failed to stop.
        FRAMEWORK_ERROR = 0x002,
        FRAMEWORK_WARNING = 0x010,
        FRAMEWORK_INFO = 0x020,
        FRAMEWORK_STOPPED = 0x040,
        FRAMEWORK_STOPPED_UPDATE = 0x080,
        /// The framework was still running when the time was up.
        FRAMEWORK_WAIT_TIMEDOUT = 0x200
    };

    FrameworkEvent();
    FrameworkEvent(Type type, const Bundle& bundle, const std::string& message,
                   const std::exception_ptr exception = nullptr);
    FrameworkEvent(const FrameworkEvent&);
    FrameworkEvent& operator=(const FrameworkEvent&);
    ~FrameworkEvent();

    /// False for a default-constructed event.
    explicit operator bool() const;

    Type GetType() const;
    Bundle GetBundle() const;
    std::string GetMessage() const;
    std::exception_ptr GetThrowable() const;

private:
    Type m_type = FRAMEWORK_ERROR;
    Bundle m_bundle;
    std::string m_message;
    std::exception_ptr m_exception;
};

US_Framework_EXPORT std::ostream& operator<<(std::ostream& stream, FrameworkEvent::Type type);

} // namespace cppmicroservices
