#pragma once

#include <storage/mount/src/Tree.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

namespace storage::mount {

/// The topmost entries that an archive on disk has, that the tree does not show any more, and that stand at
/// or below one of `gone`. Errors: those of the provider.
std::vector<std::string> entriesGone(Tree& tree, const Backing& onDisk,
                                     const std::set<std::string, std::less<>>& gone);

/// Writes the changes that remove `entries` from `archive` and copy all of `rescued` into it (nothing where
/// that is empty), as "kxvfs batch" takes them. Errors: std::system_error.
void writeRescueList(const std::filesystem::path& file, const std::filesystem::path& archive,
                     const std::filesystem::path& rescued, const std::vector<std::string>& entries);

} // namespace storage::mount
