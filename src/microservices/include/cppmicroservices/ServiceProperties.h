#pragma once

#include <cppmicroservices/AnyMap.h>

#include <string>
#include <unordered_map>

namespace cppmicroservices {

using ServiceProperties = std::unordered_map<std::string, Any>;

} // namespace cppmicroservices
