#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>

namespace storage::zipprovider {

/// Reads exactly `count` bytes of an archive from `position` on; false when they are not there.
using ReadArchiveAt = std::function<bool(std::uint64_t position, char* buffer, std::uint32_t count)>;

/// The fields of a central-directory header that have 32 bits in it and 64 in its Zip64 extra field.
struct Zip64Extent {
    std::uint64_t uncompressedSize;
    std::uint64_t compressedSize;
    /// Where the local header is, in bytes from the begin of the archive.
    std::uint64_t localHeader;
};

// minizip means to read the Zip64 extra field, but where its unsigned long has 64 bits some versions never
// find one: they hand out the 32-bit fields, all ones, as sizes, and would read an entry as if it ended
// there.

/// Puts the values of the Zip64 extra field, if there is one, in place of the sizes that are all ones.
void resolveSizes(Zip64Extent& extent, std::string_view extraField);

/// What the header at `centralHeader` says with the help of its Zip64 extra field; nothing when it does not
/// need one. A header whose Zip64 extra field lacks what it needs has its local header at noPlace.
std::optional<Zip64Extent> zip64Extent(const ReadArchiveAt& readAt, std::uint64_t centralHeader,
                                       std::string_view extraField);

inline constexpr std::uint64_t noPlace = ~std::uint64_t{0};

} // namespace storage::zipprovider
