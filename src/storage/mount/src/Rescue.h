#pragma once

#include <storage/mount/src/Contents.h>
#include <storage/vfs/Vfs.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace storage::mount {

/// Puts the newest contents of files into a new archive: "NAME.rescued.zip" in the first of `folders` where
/// that can be done. Returns its path, empty where it could be done nowhere. `warn` hears what could not be
/// read or written.
std::filesystem::path rescue(vfs::Vfs& vfs, Contents& contents, const std::vector<NodePtr>& files,
                             const std::string& name, const std::vector<std::filesystem::path>& folders,
                             const std::function<void(const std::string&)>& warn);

/// Where a rescue archive may go: beside the archive, the user's state folder, the folder of temporary
/// folders.
std::vector<std::filesystem::path> rescueFolders(const std::filesystem::path& archive);

} // namespace storage::mount
