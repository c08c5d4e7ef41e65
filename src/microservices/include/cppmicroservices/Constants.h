#pragma once

#include <cppmicroservices/FrameworkConfig.h>

#include <string>

namespace cppmicroservices::Constants {

/// Location and symbolic name of the framework itself, the bundle with number 0.
US_Framework_EXPORT extern const std::string SYSTEM_BUNDLE_LOCATION;
US_Framework_EXPORT extern const std::string SYSTEM_BUNDLE_SYMBOLICNAME;

/// Keys of a bundle's manifest.
US_Framework_EXPORT extern const std::string BUNDLE_ACTIVATOR;
US_Framework_EXPORT extern const std::string BUNDLE_DESCRIPTION;
US_Framework_EXPORT extern const std::string BUNDLE_NAME;
US_Framework_EXPORT extern const std::string BUNDLE_SYMBOLICNAME;
US_Framework_EXPORT extern const std::string BUNDLE_VENDOR;
US_Framework_EXPORT extern const std::string BUNDLE_VERSION;

/// Framework property, a bool: whether installing, starting and stopping is told to the logger that
/// FrameworkFactory::NewFramework was given, and failures of components.
US_Framework_EXPORT extern const std::string FRAMEWORK_LOG;

/// Properties that every service has: the list of its interfaces (std::vector<std::string>), its number
/// (long, counted up in the order of registration), whether all users get the same object (a std::string).
US_Framework_EXPORT extern const std::string OBJECTCLASS;
US_Framework_EXPORT extern const std::string SERVICE_ID;
US_Framework_EXPORT extern const std::string SERVICE_SCOPE;
/// Service property, an int: of several services the one with the highest ranking is preferred.
US_Framework_EXPORT extern const std::string SERVICE_RANKING;

US_Framework_EXPORT extern const std::string SCOPE_SINGLETON;
US_Framework_EXPORT extern const std::string SCOPE_BUNDLE;
US_Framework_EXPORT extern const std::string SCOPE_PROTOTYPE;

} // namespace cppmicroservices::Constants
