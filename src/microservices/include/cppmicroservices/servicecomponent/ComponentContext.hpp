#pragma once

#include <cppmicroservices/Any.h>
#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/ServiceReference.h>
#include <cppmicroservices/servicecomponent/ServiceComponentExport.h>

#include <string>
#include <unordered_map>

namespace cppmicroservices::service::component {

/// What a component's object may ask of the runtime. It gets one if its class has an operation
/// `void Activate(const std::shared_ptr<ComponentContext>&)`, called after the constructor, or `Deactivate`
/// with the same argument, called before the object is given up.
///
/// Threads: all operations may be called from several threads.
class US_ServiceComponent_EXPORT ComponentContext {
public:
    virtual ~ComponentContext() noexcept;

    /// The properties of the component's service.
    virtual std::unordered_map<std::string, Any> GetProperties() const = 0;
    /// The context of the bundle that the component is in; an invalid one after the bundle was stopped.
    virtual BundleContext GetBundleContext() const = 0;
    /// The component's own service.
    virtual ServiceReferenceBase GetServiceReference() const = 0;
};

} // namespace cppmicroservices::service::component
