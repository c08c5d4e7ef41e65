#include <cppmicroservices/Constants.h>
#include <cppmicroservices/servicecomponent/ComponentConstants.hpp>

namespace cppmicroservices {

namespace Constants {

const std::string SYSTEM_BUNDLE_LOCATION = "System Bundle";
const std::string SYSTEM_BUNDLE_SYMBOLICNAME = "system_bundle";

const std::string BUNDLE_ACTIVATOR = "bundle.activator";
const std::string BUNDLE_DESCRIPTION = "bundle.description";
const std::string BUNDLE_NAME = "bundle.name";
const std::string BUNDLE_SYMBOLICNAME = "bundle.symbolic_name";
const std::string BUNDLE_VENDOR = "bundle.vendor";
const std::string BUNDLE_VERSION = "bundle.version";

const std::string FRAMEWORK_LOG = "org.cppmicroservices.framework.log";

const std::string OBJECTCLASS = "objectclass";
const std::string SERVICE_ID = "service.id";
const std::string SERVICE_SCOPE = "service.scope";
const std::string SERVICE_RANKING = "service.ranking";

const std::string SCOPE_SINGLETON = "singleton";
const std::string SCOPE_BUNDLE = "bundle";
const std::string SCOPE_PROTOTYPE = "prototype";

} // namespace Constants

namespace service::component::ComponentConstants {

const std::string SERVICE_COMPONENT = "scr";
const std::string COMPONENT_NAME = "component.name";
const std::string COMPONENT_ID = "component.id";

} // namespace service::component::ComponentConstants

} // namespace cppmicroservices
