#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace storage::vfs {

/// The folder that this library was loaded from; empty where the system cannot tell.
std::filesystem::path libraryFolder();

/// How the names of loadable libraries end (".so").
std::string libraryExtension();

/// The paths of a list in an environment variable, empty ones dropped; nothing where it is not set.
std::vector<std::filesystem::path> environmentPaths(const char* variable);

} // namespace storage::vfs
