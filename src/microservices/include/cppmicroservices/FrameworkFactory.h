#pragma once

#include <cppmicroservices/Any.h>
#include <cppmicroservices/Framework.h>
#include <cppmicroservices/FrameworkConfig.h>

#include <iosfwd>
#include <string>
#include <unordered_map>

namespace cppmicroservices {

using FrameworkConfiguration = std::unordered_map<std::string, Any>;

class US_Framework_EXPORT FrameworkFactory {
public:
    /// A framework that is not started. `configuration` becomes its properties; `logger`, which must outlive
    /// the framework, gets a line for each event if Constants::FRAMEWORK_LOG is true there (standard error if
    /// null).
    Framework NewFramework(const FrameworkConfiguration& configuration, std::ostream* logger = nullptr);
    Framework NewFramework();
};

} // namespace cppmicroservices
