#pragma once

#include <foundation/storage/provider/StorageIRI.h>

#include <filesystem>
#include <optional>

namespace storage::fileprovider {

/// The system's path of a location, in the form that opens it whatever its length and its name ("\\?\C:\x");
/// "." and ".." are gone. Empty for the root, the folder of all drives. Errors: InvalidArgument for an IRI
/// that is no local file (another scheme, a relative path) and for names that no file of Windows can have.
std::filesystem::path toWindowsPath(const foundation::storage::provider::StorageIRI& location);

/// The same, disengaged where no file can have that name.
std::optional<std::filesystem::path>
findWindowsPath(const foundation::storage::provider::StorageIRI& location);

/// The same for the location of a file to be opened. Errors: also NotFound for one that ends in "/", which
/// only a folder's may.
std::filesystem::path toWindowsFilePath(const foundation::storage::provider::StorageIRI& location);

/// The location of a path of that form.
foundation::storage::provider::StorageIRI toLocation(const std::filesystem::path& path);

/// The folder that a path of that form stands in; the path itself for a drive and for what a server shares.
std::filesystem::path folderOf(const std::filesystem::path& path);

/// Where the links of a path lead, as far as it exists, with the letter case that its names have.
std::filesystem::path resolvePath(const std::filesystem::path& path);

} // namespace storage::fileprovider
