#pragma once

#include <cppmicroservices/servicecomponent/ServiceComponentExport.h>

#include <string>

namespace cppmicroservices::service::component::ComponentConstants {

/// Key of the manifest under which the components are described.
US_ServiceComponent_EXPORT extern const std::string SERVICE_COMPONENT;
/// Properties that every component's service has: the component's name (its implementation class, unless the
/// manifest says otherwise) and number (unsigned long).
US_ServiceComponent_EXPORT extern const std::string COMPONENT_NAME;
US_ServiceComponent_EXPORT extern const std::string COMPONENT_ID;

} // namespace cppmicroservices::service::component::ComponentConstants
