#include "SystemBundle.h"

#include "BundleContextPrivate.h"
#include "FrameworkCore.h"

#include <cppmicroservices/Constants.h>

#include <stdexcept>

namespace cppmicroservices {

using foundation::core::MutexLock;

namespace {

AnyMap systemHeaders() {
    return AnyMap{{Constants::BUNDLE_SYMBOLICNAME, Constants::SYSTEM_BUNDLE_SYMBOLICNAME},
                  {Constants::BUNDLE_NAME, Constants::SYSTEM_BUNDLE_LOCATION},
                  {Constants::BUNDLE_DESCRIPTION, std::string("Embedded component runtime")}};
}

} // namespace

SystemBundle::SystemBundle(FrameworkCore& framework)
    : BundlePrivate(framework, 0, Constants::SYSTEM_BUNDLE_LOCATION, Constants::SYSTEM_BUNDLE_SYMBOLICNAME,
                    systemHeaders()) {}

bool SystemBundle::isRunning() const noexcept {
    return state() == Bundle::STATE_STARTING || state() == Bundle::STATE_ACTIVE ||
           state() == Bundle::STATE_STOPPING;
}

void SystemBundle::init() {
    const MutexLock lock(m_lifecycle);
    initUnlessRunning();
}

void SystemBundle::initUnlessRunning() {
    while (state() == Bundle::STATE_STOPPING)
        m_stopped.wait(m_lifecycle);
    if (isRunning())
        return;
    framework().open();
    openContext();
    m_wasStarted = true;
    setState(Bundle::STATE_STARTING);
}

void SystemBundle::doStart() {
    const MutexLock lock(m_lifecycle);
    initUnlessRunning();
    setState(Bundle::STATE_ACTIVE);
}

void SystemBundle::doStop() {
    MutexLock lock(m_lifecycle);
    if (state() != Bundle::STATE_STARTING && state() != Bundle::STATE_ACTIVE)
        return;
    setState(Bundle::STATE_STOPPING);
    lock.unlock();
    framework().close();
    closeContext();
    lock.lock();
    setState(Bundle::STATE_RESOLVED);
    m_stopped.notifyAll();
}

void SystemBundle::doUninstall() {
    throw std::runtime_error("cannot uninstall the framework");
}

SystemBundle::Outcome SystemBundle::waitForStop(const std::chrono::milliseconds& timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    const MutexLock lock(m_lifecycle);
    while (isRunning()) {
        if (timeout == std::chrono::milliseconds::zero())
            m_stopped.wait(m_lifecycle);
        else if (!m_stopped.waitUntil(m_lifecycle, deadline))
            return isRunning() ? Outcome::TimedOut : Outcome::Stopped;
    }
    return m_wasStarted ? Outcome::Stopped : Outcome::NeverStarted;
}

} // namespace cppmicroservices
