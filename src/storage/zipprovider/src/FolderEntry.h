#pragma once

#include "ZipEntryPath.h"
#include "ZipEntryType.h"

#include <boost/date_time/posix_time/ptime.hpp>

#include <cstdint>

namespace storage::zipprovider {

/// One file or folder of the folder index. Made once, shared, never changed: a change replaces it.
struct FolderEntry {
    ZipEntryType type;
    /// Absolute.
    ZipEntryPath path;
    /// Uncompressed bytes; 0 for a folder.
    std::uint64_t size;
    /// A stored entry's DOS time as it stands; the archive file's own time for the root.
    boost::posix_time::ptime lastModified;
};

} // namespace storage::zipprovider
