#pragma once

#include <cppmicroservices/AnyMap.h>
#include <cppmicroservices/Bundle.h>
#include <cppmicroservices/GlobalConfig.h>
#include <cppmicroservices/IllegalStateException.h>
#include <cppmicroservices/ServiceInterface.h>
#include <cppmicroservices/ServiceReference.h>
#include <cppmicroservices/ServiceRegistration.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace cppmicroservices {

class BundleContext;
class BundleContextPrivate;

namespace detail {
US_Framework_EXPORT BundleContext MakeBundleContext(BundleContextPrivate* context);
} // namespace detail

/// A bundle's access to the framework. It is valid from the start of the bundle to its stop; all operations
/// throw IllegalStateException outside of that, unless they say otherwise.
///
/// Threads: all operations may be called from several threads.
class US_Framework_EXPORT BundleContext {
public:
    /// An invalid context.
    BundleContext();
    BundleContext& operator=(std::nullptr_t);

    /// Does not throw.
    explicit operator bool() const;
    bool operator==(const BundleContext& other) const;
    bool operator<(const BundleContext& other) const;

    /// A property of the framework, as given to FrameworkFactory::NewFramework; empty if there is none.
    Any GetProperty(const std::string& key) const;
    AnyMap GetProperties() const;

    Bundle GetBundle() const;
    /// The bundle with that number; an invalid one if there is none.
    Bundle GetBundle(long id) const;
    /// All installed bundles, or those installed from `location`; the framework itself is the first of all.
    std::vector<Bundle> GetBundles() const;
    std::vector<Bundle> GetBundles(const std::string& location) const;

    /// Installs the bundles of the library at `location`, one for each manifest in the ZIP archive that
    /// stands at the end of the file, and returns them. If they are installed from that location, returns
    /// them as they are.
    ///
    /// Throws std::runtime_error if the file cannot be read, holds no manifest or one that cannot be
    /// understood, or a bundle of the same symbolic name and version is installed from elsewhere. Nothing is
    /// installed then.
    std::vector<Bundle> InstallBundles(const std::string& location);

    /// Registers an object, shared with its users, as a service with the interfaces I1, Interfaces…; it stays
    /// registered until it is unregistered or this context's bundle stops.
    ///
    /// Throws std::invalid_argument if `object` is null or the ranking is not an int, std::runtime_error if
    /// two keys of `properties` differ in case only.
    template <class I1, class... Interfaces, class Impl>
    ServiceRegistration<I1, Interfaces...> RegisterService(const std::shared_ptr<Impl>& object,
                                                           const ServiceProperties& properties = {}) {
        const InterfaceMapConstPtr interfaces = MakeInterfaceMap<I1, Interfaces...>(object);
        return RegisterService(interfaces, properties);
    }
    [[nodiscard]] ServiceRegistrationU RegisterService(const InterfaceMapConstPtr& service,
                                                       const ServiceProperties& properties = {});

    /// The services that offer an interface (any, if its identifier is empty) and match `filter` (see
    /// LDAPFilter; an empty one matches all), the preferred one first. Throws std::invalid_argument if
    /// `filter` is malformed.
    template <class S>
    std::vector<ServiceReference<S>> GetServiceReferences(const std::string& filter = {}) {
        std::vector<ServiceReference<S>> result;
        for (const ServiceReferenceU& found : GetServiceReferences(us_service_interface_iid<S>(), filter))
            result.emplace_back(found);
        return result;
    }
    std::vector<ServiceReferenceU> GetServiceReferences(const std::string& interfaceId,
                                                        const std::string& filter = {});

    /// The preferred service that offers an interface: the one with the highest ranking, of these the first
    /// registered. An invalid reference if there is none.
    template <class S>
    ServiceReference<S> GetServiceReference() {
        return ServiceReference<S>(GetServiceReference(us_service_interface_iid<S>()));
    }
    ServiceReferenceU GetServiceReference(const std::string& interfaceId);

    /// The service's object. A component's object is made by the first call, on the calling thread; calls
    /// from other threads wait for it and get the same one. The bundle's library stays loaded as long as the
    /// object is held.
    ///
    /// Null if the component failed to make an object or asked for its own service in doing so; the next call
    /// tries again. Throws std::invalid_argument if `reference` is invalid, as it is after the service was
    /// unregistered; a call that overlaps with that may also return null.
    template <class S>
    std::shared_ptr<S> GetService(const ServiceReference<S>& reference) {
        return std::static_pointer_cast<S>(GetService(static_cast<const ServiceReferenceBase&>(reference)));
    }
    std::shared_ptr<void> GetService(const ServiceReferenceBase& reference);
    /// As above, with all interfaces of the object.
    InterfaceMapConstPtr GetService(const ServiceReferenceU& reference);

private:
    friend class BundleContextPrivate;

    explicit BundleContext(std::shared_ptr<BundleContextPrivate> context);

    std::shared_ptr<BundleContextPrivate> m_context;
};

} // namespace cppmicroservices
