#pragma once

#include <cppmicroservices/AnyMap.h>
#include <cppmicroservices/Bundle.h>

#include <foundation/core/Mutex.h>
#include <foundation/core/ThreadAnnotations.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

namespace cppmicroservices {

class BundleContextPrivate;
class SharedLibrary;

/// A bundle behind its handles. The framework owns it; a handle keeps both, so that a bundle that can be
/// reached by a handle has a framework.
class BundlePrivate : public std::enable_shared_from_this<BundlePrivate> {
public:
    virtual ~BundlePrivate();

    BundlePrivate(const BundlePrivate&) = delete;
    BundlePrivate& operator=(const BundlePrivate&) = delete;

    FrameworkCore& framework() const noexcept { return m_framework; }
    long id() const noexcept { return m_id; }
    const std::string& location() const noexcept { return m_location; }
    const std::string& symbolicName() const noexcept { return m_symbolicName; }
    const AnyMap& headers() const noexcept { return m_headers; }
    Bundle::State state() const noexcept { return m_state; }
    /// Null while the bundle is not started.
    std::shared_ptr<BundleContextPrivate> context() const;
    Bundle handle();
    /// Null if the bundle's library is not loaded, and for the framework.
    virtual std::shared_ptr<const SharedLibrary> library() const;
    /// The bundle's library, loaded and told the bundle's context if that was not done before. Throws
    /// SharedLibraryException; std::logic_error for the framework, which has none.
    virtual std::shared_ptr<const SharedLibrary> loadLibrary();

    /// As the operations of Bundle say.
    void start() { doStart(); }
    void stop() { doStop(); }
    void uninstall() { doUninstall(); }

protected:
    BundlePrivate(FrameworkCore& framework, long id, std::string location, std::string symbolicName,
                  AnyMap headers);

    void setState(Bundle::State state) noexcept { m_state = state; }
    /// Makes the bundle's context; invalidates it.
    std::shared_ptr<BundleContextPrivate> openContext();
    void closeContext() noexcept;

private:
    virtual void doStart() = 0;
    virtual void doStop() = 0;
    virtual void doUninstall() = 0;

    FrameworkCore& m_framework;
    const long m_id;
    const std::string m_location;
    const std::string m_symbolicName;
    const AnyMap m_headers;

    // Written under the lock of the derived class's operations, read at any time.
    std::atomic<Bundle::State> m_state{Bundle::STATE_INSTALLED};

    mutable foundation::core::Mutex m_mutex;
    std::shared_ptr<BundleContextPrivate> m_context KX_GUARDED_BY(m_mutex);
    // Closed, but kept: code of the bundle holds a plain pointer, which it may be about to use.
    std::vector<std::shared_ptr<BundleContextPrivate>> m_closedContexts KX_GUARDED_BY(m_mutex);
};

} // namespace cppmicroservices
