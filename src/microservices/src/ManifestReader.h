#pragma once

#include <cppmicroservices/AnyMap.h>

#include <string>
#include <vector>

namespace cppmicroservices {

struct Manifest {
    std::string symbolicName;
    AnyMap headers;
};

/// The manifests in the ZIP archive that stands at the end of the file at `location`, at least one: the
/// entries
/// "<symbolic name>/manifest.json", in the order of the names. Throws std::runtime_error if the file cannot
/// be read, has no such entry, or a manifest is not valid JSON or names another bundle; the text gives the
/// cause and, where it is about an entry, the entry, but not the location.
std::vector<Manifest> readManifests(const std::string& location);

} // namespace cppmicroservices
