#pragma once

#include <foundation/storage/provider/FolderEntry.h>
#include <foundation/storage/provider/IFolderEntryIterator.h>
#include <foundation/storage/provider/StorageIRI.h>

#include <windows.h>

#include <filesystem>
#include <memory>
#include <optional>

namespace storage::fileprovider {

/// The entries of a folder as they are at the moment, in the order of compareNames; only those of one kind
/// when it is given. Working files of saves are left out. The root (an empty path) holds the drives. Errors:
/// NotFound when there is no such folder, AccessDenied.
std::unique_ptr<foundation::storage::provider::IFolderEntryIterator>
listFolder(const foundation::storage::provider::StorageIRI& iri, const std::filesystem::path& path,
           std::optional<foundation::storage::provider::EntryKind> kind);

/// Removes a folder that holds nothing, or nothing but working files, which its user does not see.
/// Returns 0 or a Windows error.
DWORD removeEmptyFolder(const foundation::storage::provider::StorageIRI& iri,
                        const std::filesystem::path& path);

/// Removes everything in a folder, and the folder itself; links are removed, not followed.
/// Errors: NotFound when there is no such folder; otherwise those of the entry that could not be removed.
void removeTree(const foundation::storage::provider::StorageIRI& iri, const std::filesystem::path& path);

} // namespace storage::fileprovider
