#pragma once

#include <cppmicroservices/ServiceInterface.h>
#include <cppmicroservices/ServiceReferenceBase.h>

#include <cstddef>
#include <functional>

namespace cppmicroservices {

/// A reference to a service as interface S.
template <class S>
class ServiceReference : public ServiceReferenceBase {
public:
    using ServiceType = S;

    ServiceReference() = default;

    /// The same service as interface S; an invalid reference if the service does not offer that.
    ServiceReference(const ServiceReferenceBase& base) : ServiceReferenceBase(base) {
        const std::string& interfaceId = us_service_interface_iid<S>();
        if (IsConvertibleTo(interfaceId))
            SetInterfaceId(interfaceId);
        else
            *this = nullptr;
    }

    using ServiceReferenceBase::operator=;
    using ServiceReferenceBase::Hash;
    bool operator==(const ServiceReference& other) const { return ServiceReferenceBase::operator==(other); }
};

/// A reference to a service as no interface in particular.
template <>
class ServiceReference<void> : public ServiceReferenceBase {
public:
    using ServiceType = void;

    ServiceReference() = default;
    ServiceReference(const ServiceReferenceBase& base) : ServiceReferenceBase(base) {}

    using ServiceReferenceBase::operator=;
    using ServiceReferenceBase::Hash;
    bool operator==(const ServiceReference& other) const { return ServiceReferenceBase::operator==(other); }
};

using ServiceReferenceU = ServiceReference<void>;

} // namespace cppmicroservices

template <class S>
struct std::hash<cppmicroservices::ServiceReference<S>> {
    std::size_t operator()(const cppmicroservices::ServiceReference<S>& reference) const {
        return reference.Hash();
    }
};
