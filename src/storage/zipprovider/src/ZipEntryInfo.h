#pragma once

#include "ZipEntryPath.h"
#include "ZipEntryType.h"

#include <boost/date_time/posix_time/ptime.hpp>
#include <minizip/unzip.h>

#include <cstdint>

namespace storage::zipprovider {

/// Where an entry's bytes are found in an archive: the name under which it is stored, decoded, and the place
/// of its central-directory header. The place is a short cut; the name decides.
struct StoredEntryName {
    fl::i18n::ustring name;
    unz64_file_pos position;
};

/// What one central-directory header says of an entry.
struct ZipEntryInfo {
    /// Made of the decoded name; relative unless the stored name begins with "/".
    ZipEntryPath path;
    /// Uncompressed bytes.
    std::uint64_t size;
    /// The DOS date and time as they stand; no time zone is applied.
    boost::posix_time::ptime lastModified;
    /// Ordinal in the central directory, from 0.
    std::uint64_t index;
    /// Folder when the stored name ends in "/".
    ZipEntryType type;
    StoredEntryName stored;
    /// Of the uncompressed bytes, as the header has it.
    std::uint32_t crc32;
    std::uint64_t compressedSize;
    bool encrypted = false;
};

} // namespace storage::zipprovider
