#pragma once

#include <cppmicroservices/ServiceInterface.h>
#include <cppmicroservices/servicecomponent/ComponentContext.hpp>
#include <cppmicroservices/servicecomponent/ServiceComponentExport.h>

#include <memory>

namespace cppmicroservices::service::component::detail {

/// What a bundle's NewInstance_… function hands to the runtime: makes and keeps one object of the
/// implementation class. The runtime calls its operations one at a time, and gives it back to
/// DeleteInstance_… .
class US_ServiceComponent_EXPORT ComponentInstance {
public:
    virtual ~ComponentInstance() noexcept;

    /// Makes the object. What its constructor throws is passed on.
    virtual void CreateInstance(const std::shared_ptr<ComponentContext>& context) = 0;
    /// Tells the object, if its class wants to know, that it goes into use; that it is given up.
    virtual void Activate() = 0;
    virtual void Deactivate() = 0;
    /// The object as each of its service interfaces, null if it has none. The map and every pointer in it
    /// keep the object, also after this ComponentInstance is gone.
    virtual InterfaceMapPtr GetInterfaceMap() = 0;
};

} // namespace cppmicroservices::service::component::detail
