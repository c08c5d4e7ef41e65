#pragma once

#include <cppmicroservices/AnyMap.h>
#include <cppmicroservices/ServiceInterface.h>
#include <cppmicroservices/ServiceProperties.h>

#include <foundation/core/Mutex.h>
#include <foundation/core/ThreadAnnotations.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace cppmicroservices {

class Bundle;
class BundlePrivate;
class FilterExpression;
class FrameworkCore;

/// One service: who registered it, its properties, and where its object comes from while it is registered.
/// References and registrations share it and may keep it longer than that.
class ServiceRecord : public std::enable_shared_from_this<ServiceRecord> {
public:
    /// Hands out the object of the service given, making it if need be; null if that fails.
    using Source = std::function<InterfaceMapConstPtr(const std::shared_ptr<ServiceRecord>&)>;

    /// `interfaces` is the list of interface identifiers. Throws as ServiceRegistrationBase::SetProperties.
    ServiceRecord(const std::shared_ptr<BundlePrivate>& owner, long id, std::vector<std::string> interfaces,
                  const ServiceProperties& properties, Source source);

    long id() const noexcept { return m_id; }
    bool offers(const std::string& interfaceId) const;
    bool isOwnedBy(const BundlePrivate& bundle) const;
    /// Null if the framework or the bundle is gone.
    std::shared_ptr<FrameworkCore> framework() const;
    /// An invalid bundle if the service was unregistered.
    Bundle owner() const;

    bool isRegistered() const;
    /// From then on the service has no object. Whether it was registered before.
    bool unregister();
    /// Null if the service was unregistered, or its object could not be made. Runs code of the component: no
    /// lock may be held.
    InterfaceMapConstPtr object();

    Any property(const std::string& key) const;
    std::vector<std::string> propertyKeys() const;
    bool matches(const FilterExpression& filter) const;
    int ranking() const;
    void setProperties(const ServiceProperties& properties);

    /// The order of preference: whether `other` is preferred to this one.
    bool isLessThan(const ServiceRecord& other) const;

private:
    AnyMap completed(const ServiceProperties& properties) const;

    const std::weak_ptr<FrameworkCore> m_framework;
    const std::weak_ptr<BundlePrivate> m_owner;
    const long m_id;
    const std::vector<std::string> m_interfaces;

    mutable foundation::core::Mutex m_mutex;
    AnyMap m_properties KX_GUARDED_BY(m_mutex);
    /// Empty once the service was unregistered.
    Source m_source KX_GUARDED_BY(m_mutex);
};

} // namespace cppmicroservices
