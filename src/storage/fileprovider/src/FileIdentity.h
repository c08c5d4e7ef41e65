#pragma once

#include <storage/fileprovider/src/Environment.h>

#include <string>

namespace storage::fileprovider {

/// Gives the open file `staging` the owner, group, permissions, access control list and extended attributes
/// of the file `target`, and reads them back. Returns whether it has all of them. If not, it has what could
/// be given, and lets nobody read it whom the target does not let.
bool transferIdentity(const Environment& environment, const std::string& target, int staging);

} // namespace storage::fileprovider
