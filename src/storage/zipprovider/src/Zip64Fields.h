#pragma once

#include <minizip/unzip.h>

#include <cstdint>
#include <optional>
#include <string_view>

namespace storage::zipprovider {

/// The sizes and the place of an entry as its Zip64 extra field gives them.
///
/// A central-directory header holds 0xFFFFFFFF where its 32 bits are too few, and the value in the extra
/// field. minizip puts the value in its place, except for version 1.1 where `unsigned long` has 64 bits,
/// which hands the placeholders out: its entries seem to have 4294967295 bytes, reading stops there, and one
/// that lies behind the first 4 GiB is not found.
struct Zip64Fields {
    /// Uncompressed bytes.
    std::uint64_t size;
    std::uint64_t compressedSize;
    /// Position of the local header, where the extra field gives it.
    std::optional<std::uint64_t> localHeader;
};

/// What the extra field says in place of the placeholders in `info`; values that `info` holds are taken over.
/// Nothing when there is no Zip64 field, or it is too short for the placeholders.
/// With a minizip that resolved the sizes, only they are right in the result; localHeader then is whatever
/// the field begins with and must be tested before it is used.
std::optional<Zip64Fields> zip64Fields(const unz_file_info64& info, std::string_view extra) noexcept;

/// The same for the entry at which minizip stands. `info` is what minizip says of it.
std::optional<Zip64Fields> currentZip64Fields(unzFile archive, const unz_file_info64& info);

} // namespace storage::zipprovider
