#pragma once

#include "CentralDirectoryReader.h"
#include "Zip64Extent.h"

#include <cstdint>
#include <optional>
#include <string_view>

namespace storage::zipprovider {

/// What opening an entry needs to know of it.
struct OrdinaryEntry {
    Zip64Extent extent;
    std::uint32_t method;
};

/// The entry named `name` whose central-directory header stands at `position`, as far as minizip would read
/// it in the same way: stored or deflated, not encrypted, without a data descriptor and Zip64 fields, and
/// with a local header that says the same. Nothing for every other entry.
std::optional<OrdinaryEntry> ordinaryEntryAt(const ReadArchiveUpTo& read, std::uint64_t position,
                                             std::string_view name);

} // namespace storage::zipprovider
