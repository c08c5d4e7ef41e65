#pragma once

#include <cppmicroservices/AnyMap.h>
#include <cppmicroservices/GlobalConfig.h>

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

namespace cppmicroservices {

class BundleContext;
class BundlePrivate;
class FrameworkCore;
template <class S>
class ServiceReference;
using ServiceReferenceU = ServiceReference<void>;

/// An installed library with a manifest, which offers services while it is started. A Bundle is a handle:
/// copies are the same bundle, and each keeps the framework. Every operation of a default-constructed one
/// throws std::invalid_argument, unless it says otherwise.
///
/// Threads: all operations may be called from several threads. Starting, stopping and uninstalling one bundle
/// wait for each other.
class US_Framework_EXPORT Bundle {
public:
    enum State : std::uint32_t {
        STATE_UNINSTALLED = 0x01,
        /// Installed, never started.
        STATE_INSTALLED = 0x02,
        /// Not started.
        STATE_RESOLVED = 0x04,
        STATE_STARTING = 0x08,
        STATE_STOPPING = 0x10,
        /// Started.
        STATE_ACTIVE = 0x20
    };

    enum StartOptions : std::uint32_t { START_TRANSIENT = 1, START_ACTIVATION_POLICY = 2 };
    enum StopOptions : std::uint32_t { STOP_TRANSIENT = 1 };

    Bundle();
    Bundle(const Bundle&);
    Bundle(Bundle&&) noexcept;
    Bundle& operator=(const Bundle&);
    Bundle& operator=(Bundle&&) noexcept;
    Bundle& operator=(std::nullptr_t);
    virtual ~Bundle();

    /// Does not throw; false for a default-constructed one.
    explicit operator bool() const;
    bool operator==(const Bundle& other) const;
    bool operator<(const Bundle& other) const;

    State GetState() const;

    /// The bundle's access to the framework, valid while the bundle is being started, active or being
    /// stopped; an invalid context otherwise.
    BundleContext GetBundleContext() const;

    /// 0 for the framework itself; other bundles are counted from 1 in the order of installation.
    long GetBundleId() const;
    /// The file that the bundle was installed from, as it was written then.
    std::string GetLocation() const;
    std::string GetSymbolicName() const;
    /// The manifest: objects as AnyMap, arrays as std::vector<Any>, texts, bool, int, long long, double.
    /// Valid as long as this handle.
    const AnyMap& GetHeaders() const;

    /// The services that the bundle has registered. Throws std::logic_error if it was uninstalled.
    std::vector<ServiceReferenceU> GetRegisteredServices() const;

    /// Loads the bundle's library, gives it its context and registers its components as services; their
    /// objects are made when they are first asked for. Does nothing if the bundle is active.
    ///
    /// Throws SharedLibraryException if the library cannot be loaded, std::logic_error if the bundle was
    /// uninstalled, std::runtime_error if the framework was stopped, the manifest describes a component that
    /// cannot be had or the library lacks the functions for it. The bundle is not started then.
    void Start();
    void Start(std::uint32_t options);

    /// Unregisters the bundle's services and destroys its component objects, except those still held by a
    /// user: such an object goes with its last user. Does nothing if the bundle is not started. Throws
    /// std::logic_error if it was uninstalled.
    ///
    /// For the framework: stops all bundles in the reverse order of installation and forgets them. Their
    /// libraries stay loaded.
    void Stop();
    void Stop(std::uint32_t options);

    /// Stops the bundle if necessary and forgets it. Its library is unloaded as soon as nobody holds an
    /// object of one of its services. What such an object has made must be gone before it: the runtime does
    /// not know of it, and its code is unloaded with the library.
    ///
    /// Throws std::logic_error if the bundle was uninstalled before, std::runtime_error for the framework.
    void Uninstall();

protected:
    explicit Bundle(std::shared_ptr<BundlePrivate> bundle);

private:
    friend class BundleContext;
    friend class BundlePrivate;
    friend class Framework;
    friend class LDAPFilter;
    friend class ServiceReferenceBase;

    BundlePrivate& checked() const;

    // The framework goes last: it must outlive the bundle.
    std::shared_ptr<FrameworkCore> m_framework;
    std::shared_ptr<BundlePrivate> m_bundle;
};

US_Framework_EXPORT std::ostream& operator<<(std::ostream& stream, const Bundle& bundle);
US_Framework_EXPORT std::ostream& operator<<(std::ostream& stream, Bundle::State state);

} // namespace cppmicroservices
