#pragma once

#include <cppmicroservices/Any.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace cppmicroservices {

class Bundle;
class ServiceRecord;

/// Names a registered service as one of its interfaces. Holding a reference neither creates the service
/// object nor keeps it. Threads: different references may be used from different threads.
class US_Framework_EXPORT ServiceReferenceBase {
public:
    ServiceReferenceBase(const ServiceReferenceBase&);
    ServiceReferenceBase& operator=(const ServiceReferenceBase&);
    ServiceReferenceBase& operator=(std::nullptr_t);
    ~ServiceReferenceBase();

    /// Whether the service is registered.
    explicit operator bool() const;

    /// The service's property, empty if it has none of that name; the case of `key` does not count.
    /// Works also after the service was unregistered.
    Any GetProperty(const std::string& key) const;
    /// The names of all properties, in no particular order.
    std::vector<std::string> GetPropertyKeys() const;

    /// The bundle that registered the service; an invalid one if the service was unregistered.
    Bundle GetBundle() const;

    /// Identifier of the interface as which the reference names the service, empty if of none in particular.
    std::string GetInterfaceId() const;
    /// Whether the service offers the interface of that identifier.
    bool IsConvertibleTo(const std::string& interfaceId) const;

    /// Orders by preference: less is the lower ranking, at the same ranking the service that was registered
    /// later.
    bool operator<(const ServiceReferenceBase& other) const;
    /// Whether both name the same service, as whatever interface.
    bool operator==(const ServiceReferenceBase& other) const;

private:
    friend class Bundle;
    friend class BundleContext;
    friend class ComponentServiceContext;
    friend class ServiceRegistrationBase;
    friend class LDAPFilter;
    template <class S>
    friend class ServiceReference;

    ServiceReferenceBase();
    ServiceReferenceBase(std::shared_ptr<ServiceRecord> record, std::string interfaceId);

    void SetInterfaceId(const std::string& interfaceId);
    std::size_t Hash() const;

    std::shared_ptr<ServiceRecord> m_record;
    std::string m_interfaceId;
};

} // namespace cppmicroservices
