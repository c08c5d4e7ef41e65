#pragma once

#include <storage/fileprovider/src/Environment.h>

#include <sys/stat.h>

#include <string>

namespace storage::fileprovider {

/// Gives the open file `staging` the owner, group, permissions, access control list and extended attributes
/// of the file `target`, and reads them back. Returns whether it has all of them. If not, it has what could
/// be given, and lets nobody read it whom the target does not let.
bool transferIdentity(const Environment& environment, const std::string& target, int staging);

/// Whether two looks at a path saw the same file, and nobody wrote it in between as far as size and time
/// tell.
bool isSameState(const struct stat& a, const struct stat& b) noexcept;

} // namespace storage::fileprovider
