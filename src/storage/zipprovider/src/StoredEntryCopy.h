#pragma once

#include "MiniZipWriteHandle.h"
#include "ZipEntryInfo.h"
#include "ZipEntrySink.h"

#include <minizip/unzip.h>

namespace storage::zipprovider {

/// Copies the entry stored as `stored` into `target` without inflating it, if it carries every mark of this
/// system's writer (deflated, no flags, made by 0, needed 20, no attributes but that of text, no extra fields
/// or comment, below the Zip64 limits) and its local header agrees with the central directory on checksum and
/// sizes. Returns false, with nothing written, when it does not: then the entry goes the way of all others.
/// Errors: MiniZipException when reading or writing fails half way. Threads: as the handles'.
bool copyStoredEntry(unzFile archive, const StoredEntryName& stored, MiniZipWriteHandle& target,
                     const EntryDescription& description);

} // namespace storage::zipprovider
