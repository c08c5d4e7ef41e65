#pragma once

#include <foundation/storage/provider/StorageIRI.h>
#include <storage/vfs/Export.h>

#include <optional>
#include <string>

namespace storage::vfs {

/// Why the container's format has no room for the name of a new file or folder at `place`, as a clause;
/// nothing where it has, and outside containers. Providers refuse such a name with a failure of their own;
/// whoever makes something asks first, to refuse it in the same words for every format.
KXVFS_API std::optional<std::string> unstorable(const foundation::storage::provider::StorageIRI& place,
                                                bool folder);

} // namespace storage::vfs
