#pragma once

#include <cppmicroservices/AnyMap.h>

#include <string>
#include <vector>

namespace cppmicroservices {

/// What a manifest says about one component.
struct ComponentMetadata {
    std::string implementationClass;
    /// The implementation class, unless the manifest says otherwise.
    std::string name;
    /// Identifiers, at least one.
    std::vector<std::string> interfaces;
    AnyMap properties;

    /// The implementation class as it stands in the names of exported functions: "a::b" as "a_b".
    std::string symbol() const;
};

/// The components under the key "scr" of a manifest, none if it has no such key. Throws std::runtime_error if
/// the description is malformed, or asks for something that this runtime does not do; the text names the key.
std::vector<ComponentMetadata> describedComponents(const AnyMap& headers);

} // namespace cppmicroservices
