#pragma once

#include <foundation/storage/provider/StorageIRI.h>
#include <storage/fileprovider/Export.h>

#include <compare>
#include <cstdint>
#include <optional>

namespace storage::fileprovider {

/// What tells an existing local file from all others, whatever its names are. Another file gets it when this
/// one is gone.
struct FileNumber {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;

    friend auto operator<=>(const FileNumber&, const FileNumber&) = default;
};

/// The number of the file that the location leads to, links followed, and disengaged when that is no regular
/// file of this system, or when it has one name only: then its canonical location tells it from others, also
/// after it was replaced. Threads: any.
KXFILEPROVIDER_API std::optional<FileNumber>
numberOfLinkedFile(const foundation::storage::provider::StorageIRI& location);

} // namespace storage::fileprovider
