#pragma once

#include <cppmicroservices/ServiceRegistrationBase.h>

namespace cppmicroservices {

/// The registration of a service that offers the interfaces I1, Interfaces….
template <class I1, class... Interfaces>
class ServiceRegistration : public ServiceRegistrationBase {
public:
    ServiceRegistration() = default;

    /// The service as one of its interfaces. Errors: std::logic_error after it was unregistered.
    template <class Interface>
    ServiceReference<Interface> GetReference() const {
        static_assert(detail::Contains<Interface, I1, Interfaces...>::value,
                      "the service was not registered with this interface");
        return ServiceRegistrationBase::GetReference(us_service_interface_iid<Interface>());
    }

    /// The service as its first interface. Errors: as above.
    ServiceReference<I1> GetReference() const {
        return ServiceRegistrationBase::GetReference(us_service_interface_iid<I1>());
    }

    using ServiceRegistrationBase::operator=;

private:
    friend class BundleContext;

    ServiceRegistration(const ServiceRegistrationBase& base) : ServiceRegistrationBase(base) {}
};

/// The registration of a service whose interfaces are not named by type.
template <>
class ServiceRegistration<void> : public ServiceRegistrationBase {
public:
    ServiceRegistration() = default;
    ServiceRegistration(const ServiceRegistrationBase& base) : ServiceRegistrationBase(base) {}

    using ServiceRegistrationBase::operator=;
};

using ServiceRegistrationU = ServiceRegistration<void>;

} // namespace cppmicroservices
