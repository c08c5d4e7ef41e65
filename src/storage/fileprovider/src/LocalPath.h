#pragma once

#include <foundation/storage/provider/StorageIRI.h>

#include <string>
#include <string_view>

namespace storage::fileprovider {

/// The system's path of a location: bytes of UTF-8, without a trailing "/".
/// Errors: InvalidArgument for an IRI that is no local file (another scheme or host, a relative path, a NUL).
std::string toLocalPath(const foundation::storage::provider::StorageIRI& location);

/// The same for the location of a file to be opened. Errors: also NotFound for one that ends in "/", which
/// only a folder's may.
std::string toLocalFilePath(const foundation::storage::provider::StorageIRI& location);

/// The location of an absolute path of the system.
foundation::storage::provider::StorageIRI toLocation(std::string_view path);

std::string_view parentOf(std::string_view path);
std::string_view nameOf(std::string_view path);

/// Where the links of a path lead: an absolute path in which no component is a link. The last component, and
/// the one that a link in its place leads to, need not exist. Returns 0, or an errno for a folder that is
/// missing or cannot be entered, and for links that run in a circle.
int resolveLinks(const std::string& path, std::string& resolved);

/// As resolveLinks, but any number of components at the end need not exist.
std::string resolveAsFarAsPossible(const std::string& path);

} // namespace storage::fileprovider
