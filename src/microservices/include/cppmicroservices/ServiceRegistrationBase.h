#pragma once

#include <cppmicroservices/ServiceProperties.h>
#include <cppmicroservices/ServiceReference.h>

#include <cstddef>
#include <memory>
#include <string>

namespace cppmicroservices {

class ServiceRecord;

/// What the one who registers a service keeps to change or withdraw it. Destroying it leaves the service
/// registered. Threads: different objects may be used from different threads.
class US_Framework_EXPORT ServiceRegistrationBase {
public:
    ServiceRegistrationBase(const ServiceRegistrationBase&);
    ServiceRegistrationBase(ServiceRegistrationBase&&) noexcept;
    ServiceRegistrationBase& operator=(const ServiceRegistrationBase&);
    ServiceRegistrationBase& operator=(ServiceRegistrationBase&&) noexcept;
    ServiceRegistrationBase& operator=(std::nullptr_t);
    ~ServiceRegistrationBase();

    /// Whether this object belongs to a service, registered or withdrawn.
    explicit operator bool() const;

    /// A reference to the service as the interface with that identifier. Throws std::logic_error if this
    /// object belongs to no service, or the service was unregistered.
    ServiceReferenceBase GetReference(const std::string& interfaceId = std::string()) const;

    /// Replaces the service's properties, except its interfaces, number and scope. Throws std::logic_error as
    /// GetReference, std::invalid_argument if the ranking is not an int, std::runtime_error if two keys
    /// differ in case only; the properties are then as before.
    void SetProperties(const ServiceProperties& properties);

    /// Withdraws the service: it is found no more. Users that hold the service object keep it. Throws
    /// std::logic_error as GetReference.
    void Unregister();

    bool operator<(const ServiceRegistrationBase& other) const;
    bool operator==(const ServiceRegistrationBase& other) const;

private:
    friend class BundleContext;
    template <class I1, class... Interfaces>
    friend class ServiceRegistration;

    ServiceRegistrationBase();
    explicit ServiceRegistrationBase(std::shared_ptr<ServiceRecord> record);

    std::shared_ptr<ServiceRecord> m_record;
};

} // namespace cppmicroservices
