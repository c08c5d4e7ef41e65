#pragma once

#include "MiniZipWriteHandle.h"
#include "WorkingFileEntry.h"
#include "ZipEntryPath.h"
#include "ZipEntryType.h"

#include <fl/filesystem/path.h>

#include <boost/date_time/posix_time/ptime.hpp>

#include <cstdint>

namespace storage::zipprovider {

/// Appends to an archive that is being written the entries that do not come from an old one. Before each it
/// reads the last write time of the archive file: where a cleaner of the temporary directory has removed
/// that, minizip would go on writing, and all the work would be for nothing. Errors: MiniZipException when
/// that time cannot be read, the name cannot be stored, or writing fails; those of the working file. Threads:
/// as the handle's.
class ZipEntryAppender {
public:
    /// `target`, which writes the file `archive`, must outlive the appender. `entries` counts those that the
    /// archive has.
    ZipEntryAppender(MiniZipWriteHandle& target, fl::filesystem::path archive, std::uint64_t entries);

    /// Appends a file with what `contents` holds. Errors: also when that cannot be read to its end.
    void appendFile(const ZipEntryPath& path, WorkingFileEntry& contents);
    /// Appends a folder, which is an empty entry.
    void appendFolder(const ZipEntryPath& path, const boost::posix_time::ptime& lastModified);

private:
    void append(const ZipEntryPath& path, ZipEntryType type, WorkingFileEntry& contents,
                const boost::posix_time::ptime& lastModified);
    void requireArchive() const;

    MiniZipWriteHandle& m_target;
    const fl::filesystem::path m_archive;
    std::uint64_t m_entries;
};

} // namespace storage::zipprovider
