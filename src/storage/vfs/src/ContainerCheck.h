#pragma once

#include <foundation/storage/provider/StorageItem.h>
#include <storage/vfs/Vfs.h>

namespace storage::vfs {

/// Whether containers of a scheme have records that this front can check.
bool isCheckedFormat(const std::string& scheme);

/// Looks at the container's records and fills in what MountedContainer tells of them.
/// Errors: those of the item's provider.
void checkContainer(const foundation::storage::provider::StorageItem& container, MountedContainer& mounted);

/// Throws what is to be said about a container in this condition, if anything.
void refuseUnfit(const foundation::storage::provider::StorageIRI& container, const ArchiveSummary& summary,
                 Tolerance tolerance);

} // namespace storage::vfs
