#pragma once

#include <cppmicroservices/Bundle.h>
#include <cppmicroservices/FrameworkConfig.h>

#include <chrono>
#include <memory>

namespace cppmicroservices {

class FrameworkEvent;

/// The runtime itself, as the bundle with number 0. Frameworks of one process know nothing of each other.
/// When the last handle to a framework and its bundles goes, the framework is stopped.
class US_Framework_EXPORT Framework : public Bundle {
public:
    /// A handle to the framework that `bundle` is. Throws std::logic_error if it is another bundle.
    explicit Framework(Bundle bundle);
    Framework(const Framework&);
    Framework(Framework&&) noexcept;
    Framework& operator=(const Framework&);
    Framework& operator=(Framework&&) noexcept;
    ~Framework() override;

    /// Makes the framework's bundle context usable without starting the framework. Does nothing if that was
    /// done, or the framework runs. Start() does it by itself.
    void Init();

    /// Waits until the framework has stopped, at most for `timeout`, for ever if that is zero. The event's
    /// type is FRAMEWORK_STOPPED, FRAMEWORK_WAIT_TIMEDOUT, or FRAMEWORK_ERROR if the framework was never
    /// started.
    FrameworkEvent WaitForStop(const std::chrono::milliseconds& timeout);
};

} // namespace cppmicroservices
