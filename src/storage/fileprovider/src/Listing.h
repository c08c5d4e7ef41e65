#pragma once

#include <foundation/storage/provider/FolderEntry.h>
#include <foundation/storage/provider/IFolderEntryIterator.h>
#include <foundation/storage/provider/StorageIRI.h>
#include <storage/fileprovider/src/Environment.h>

#include <memory>
#include <optional>
#include <string>

namespace storage::fileprovider {

/// The entries of a folder as they are at the moment, ordered by UTF-16 code units; only those of one kind
/// when it is given. Working files of saves are left out. Errors: NotFound when there is no such folder,
/// AccessDenied.
std::unique_ptr<foundation::storage::provider::IFolderEntryIterator>
listFolder(const foundation::storage::provider::StorageIRI& iri, const std::string& path,
           std::optional<foundation::storage::provider::EntryKind> kind);

/// Removes a folder that holds nothing, or nothing but working files, which its user does not see. A save
/// that is under way in it fails then, as it would if the folder had been removed before. Returns 0 or an
/// errno.
int removeEmptyFolder(const Environment& environment, const foundation::storage::provider::StorageIRI& iri,
                      const std::string& path);

/// Removes everything in a folder, and the folder itself; links are removed, not followed.
/// Errors: NotFound when there is no such folder; otherwise those of the entry that could not be removed.
void removeTree(const Environment& environment, const foundation::storage::provider::StorageIRI& iri,
                const std::string& path);

} // namespace storage::fileprovider
