#pragma once

#include <fl/i18n/ustring.h>
#include <foundation/storage/provider/StorageItem.h>
#include <storage/vfs/Export.h>

#include <cstdint>
#include <limits>
#include <vector>

namespace storage::vfs {

/// Where the files of a ZIP archive lie in it. Who reads many of them in this order reads the archive from
/// its beginning to its end, instead of jumping about in it.
///
/// A hint only: the archive is looked at afresh at each call, and what has not been saved is not in it.
/// Threads: any.
class KXVFS_API EntryPlaces {
public:
    static constexpr std::uint64_t unknown = std::numeric_limits<std::uint64_t>::max();

    /// Precondition: `archive` is a ZIP archive. Nothing is read yet.
    explicit EntryPlaces(foundation::storage::provider::StorageItem archive);

    /// For each of `paths` ("/docs/a.txt", as a provider shows them) the offset at which the entry begins, or
    /// `unknown` where the archive has no such entry. Reads the archive's directory once; memory grows with
    /// the number of paths asked for.
    /// Precondition: no path stands there twice.
    /// Errors: none; what cannot be read is unknown.
    std::vector<std::uint64_t> of(const std::vector<fl::i18n::ustring>& paths) const;

private:
    const foundation::storage::provider::StorageItem m_archive;
};

} // namespace storage::vfs
