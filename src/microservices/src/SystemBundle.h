#pragma once

#include "BundlePrivate.h"

#include <foundation/core/Mutex.h>
#include <foundation/core/ThreadAnnotations.h>

#include <chrono>

namespace cppmicroservices {

/// The framework itself as a bundle.
class SystemBundle final : public BundlePrivate {
public:
    explicit SystemBundle(FrameworkCore& framework);

    void init();

    enum class Outcome { NeverStarted, Stopped, TimedOut };
    /// Waits for the framework's stop; for ever if `timeout` is zero.
    Outcome waitForStop(const std::chrono::milliseconds& timeout);

private:
    void doStart() override;
    void doStop() override;
    void doUninstall() override;

    void initUnlessRunning() KX_REQUIRES(m_lifecycle);
    bool isRunning() const noexcept;

    foundation::core::Mutex m_lifecycle;
    foundation::core::ConditionVariable m_stopped;
    bool m_wasStarted KX_GUARDED_BY(m_lifecycle) = false;
};

} // namespace cppmicroservices
