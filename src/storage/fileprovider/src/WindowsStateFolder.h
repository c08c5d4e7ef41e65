#pragma once

#include <storage/fileprovider/LocalFileOptions.h>

#include <filesystem>
#include <optional>

namespace storage::fileprovider {

/// The state folder of the options, made when it is missing; by default "kxvfs" in the user's local
/// application data. Disengaged with GetLastError() when it cannot be made.
std::optional<std::filesystem::path> makeStateFolder(const LocalFileOptions& options);

} // namespace storage::fileprovider
