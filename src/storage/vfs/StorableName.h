#pragma once

#include <foundation/storage/provider/StorageIRI.h>
#include <storage/vfs/Export.h>

#include <optional>
#include <string>

namespace storage::vfs {

/// Why the container's format has no room for the name of a new file or folder at `place`, as a clause;
/// nothing where it has, and outside containers. Providers notice it when they write the container, which
/// then fails as a whole; so whoever makes something asks first.
KXVFS_API std::optional<std::string> unstorable(const foundation::storage::provider::StorageIRI& place,
                                                bool folder);

} // namespace storage::vfs
