#pragma once

#include "IEntrySource.h"
#include "WorkingFileDevice.h"
#include "ZipEntryPath.h"

#include <fl/filesystem/path.h>
#include <fl/filesystem/temporary.h>
#include <foundation/core/Mutex.h>
#include <foundation/core/ThreadAnnotations.h>
#include <foundation/log/basic_diagnostic_logger.h>

#include <boost/date_time/posix_time/ptime.hpp>

#include <cstdint>
#include <memory>

namespace storage::zipprovider {

/// One entry checked out to a local file in the temporary directory, its working file. Shared by all streams
/// open on the entry; destroying it removes the working file.
/// Threads: making the working file, its size and its time may be asked for from several threads; reads and
/// writes through the devices are not serialised here.
class WorkingFileEntry {
public:
    /// An empty entry, whose working file is made when it is first needed.
    explicit WorkingFileEntry(ZipEntryPath path);
    /// Makes the working file and fills it with all that `source` delivers. On failure no file stays behind.
    /// Errors: FsysExceptionBase when the file cannot be made or does not hold every byte (a full disk);
    /// those of the source.
    WorkingFileEntry(ZipEntryPath path, IEntrySource& source);
    ~WorkingFileEntry();

    WorkingFileEntry(const WorkingFileEntry&) = delete;
    WorkingFileEntry& operator=(const WorkingFileEntry&) = delete;

    /// A device over the working file, opened with the standard open-mode flags `mode`; several devices
    /// address one file. Errors: WorkingEntryOpenException; FsysExceptionBase.
    WorkingFileDevice doGetFileDevice(int mode) KX_EXCLUDES(m_mutex);
    /// The working file's size in bytes as the local file system has it. Errors: FsysExceptionBase.
    std::uint64_t getCachedFileSize() KX_EXCLUDES(m_mutex);
    /// When the working file was last modified, UTC. Errors: FsysExceptionBase.
    boost::posix_time::ptime getCachedFileLastModified() KX_EXCLUDES(m_mutex);
    /// An entry of its own with the same contents and time. Errors: FsysExceptionBase.
    std::shared_ptr<WorkingFileEntry> copy() KX_EXCLUDES(m_mutex);
    /// Deletes the working file, if there is one. Errors: FsysExceptionBase.
    void doRemove() KX_EXCLUDES(m_mutex);

    /// The entry's path when it was checked out; a later move of the entry does not show here.
    const ZipEntryPath& path() const { return m_path; }
    /// The working file's path, made first when needed; for messages. Errors: FsysExceptionBase.
    fl::filesystem::path checkoutPath() KX_EXCLUDES(m_mutex);

private:
    void ensureWorkingFile() KX_REQUIRES(m_mutex);
    /// Makes the working file and gives it open; its path stays empty when it could not be told.
    fl::filesystem::FileOwner makeWorkingFile() KX_REQUIRES(m_mutex);
    void fill(IEntrySource& source) KX_EXCLUDES(m_mutex);
    void removeQuietly() noexcept KX_EXCLUDES(m_mutex);

    const ZipEntryPath m_path;
    /// Empty until the working file is made.
    fl::filesystem::path m_checkoutPath KX_GUARDED_BY(m_mutex);
    /// Whether the working file is as it was made: empty, and never opened for writing.
    bool m_untouched KX_GUARDED_BY(m_mutex) = false;
    foundation::core::Mutex m_mutex;
    foundation::log::basic_diagnostic_logger m_logger;
};

} // namespace storage::zipprovider
