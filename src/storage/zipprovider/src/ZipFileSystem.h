#pragma once

#include "FlushingPolicy.h"
#include "WorkingFileByteStream.h"
#include "WorkingFileEntry.h"
#include "ZipState.h"

#include <foundation/core/Mutex.h>
#include <foundation/core/ThreadAnnotations.h>
#include <foundation/log/basic_diagnostic_logger.h>
#include <foundation/storage/provider/ByteStreamOpenOptions.h>
#include <foundation/storage/provider/MoveOption.h>

#include <cstddef>
#include <list>
#include <map>
#include <memory>
#include <utility>

namespace storage::zipprovider {

/// Opens the entries of one archive as byte streams over working files, changes its tree, and has the archive
/// rebuilt when the last writable stream is closed. Every stream open on an entry at the same time shares one
/// working file. Made with std::make_shared: open writable streams keep it alive.
///
/// Errors: EntryNotFoundException and EntryExistsException as each operation says, FolderNotEmptyException,
/// MiniZipException (also for the name of a new entry that no archive can hold), WorkingEntryOpenException,
/// FsysExceptionBase for working files; a change made while no writable stream is open flushes, and the
/// flush's failure is the operation's (the change is recorded then). Threads: any; one mutex serialises
/// opens, the close of writable streams, changes and flushes. A flush runs on the thread that triggered it
/// and must not call back.
template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
class ZipFileSystem : public std::enable_shared_from_this<ZipFileSystem<StorageItem, ByteStreamDevice>> {
public:
    using ByteStream = foundation::storage::provider::ByteStream;
    using ByteStreamOpenOptions = foundation::storage::provider::ByteStreamOpenOptions;
    using MoveOption = foundation::storage::provider::MoveOption;
    using State = ZipState<StorageItem, ByteStreamDevice>;

    /// Reads the archive. Errors: as ZipState's constructor.
    explicit ZipFileSystem(const StorageItem& container);

    ZipFileSystem(const ZipFileSystem&) = delete;
    ZipFileSystem& operator=(const ZipFileSystem&) = delete;

    /// Opens an existing file for reading. Errors: EntryNotFoundException for the parent folder or the file.
    std::unique_ptr<ByteStream> checkOutEntry(const ZipEntryPath& path) const KX_EXCLUDES(m_mutex);
    /// Opens or creates a file for writing. Errors: EntryNotFoundException for the parent folder, or for the
    /// file when the options require it; EntryExistsException where a folder of that name exists.
    std::unique_ptr<ByteStream> checkOutEntry(const ZipEntryPath& path,
                                              const ByteStreamOpenOptions& options) const
        KX_EXCLUDES(m_mutex);

    /// Bytes; for a file opened for writing since the last flush, what its working file holds at the moment.
    std::uint64_t getFileSize(const ZipEntryPath& path) const KX_EXCLUDES(m_mutex);
    boost::posix_time::ptime getFileLastModified(const ZipEntryPath& path) const KX_EXCLUDES(m_mutex);
    boost::posix_time::ptime getFolderLastModified(const ZipEntryPath& path) const KX_EXCLUDES(m_mutex);

    void createFolder(const ZipEntryPath& path) const KX_EXCLUDES(m_mutex);
    void removeFile(const ZipEntryPath& path) const KX_EXCLUDES(m_mutex);
    void removeFolder(const ZipEntryPath& path) const KX_EXCLUDES(m_mutex);
    void moveFile(const ZipEntryPath& source, const ZipEntryPath& destination, MoveOption option) const
        KX_EXCLUDES(m_mutex);
    void moveFolder(const ZipEntryPath& source, const ZipEntryPath& destination, MoveOption option) const
        KX_EXCLUDES(m_mutex);

    /// Flushes whatever was changed, also while writable streams are open; what they write afterwards is
    /// flushed when they are closed.
    void flushContents() const KX_EXCLUDES(m_mutex);

    /// The contents of a folder of the index, null when there is none under that path.
    std::shared_ptr<FolderContents> findFolder(const ZipEntryPath& folder) const KX_EXCLUDES(m_mutex);
    /// The container's own time when the archive was first read.
    boost::posix_time::ptime archiveLastModified() const KX_EXCLUDES(m_mutex);
    /// Whether the container was writable when the archive was first read.
    bool isWritable() const { return m_writable; }

private:
    /// One writable stream that is open, for as long as it is.
    struct OpenWriter {
        typename State::Registration registration;
        /// Whether the entry was removed or replaced: what the stream writes goes nowhere.
        bool detached = false;
        /// Whether the stream is gone, and what it changed is still to be taken back.
        bool givenUp = false;
    };
    using OpenWriters = std::list<OpenWriter>;
    using WorkingFiles = std::map<ZipEntryPath, std::weak_ptr<WorkingFileEntry>>;
    /// A move of working files and writable streams to another path, made ready, and the new paths of those.
    struct StreamMove {
        PreparedMove<WorkingFiles> workingFiles;
        std::vector<std::pair<OpenWriter*, ZipEntryPath>> writers;
    };

    template <typename FileSystem, typename Writer>
    friend std::unique_ptr<WorkingFileByteStream>
    makeByteStream(const std::shared_ptr<WorkingFileEntry>& entry,
                   const foundation::storage::provider::ByteStreamOpenOptions& options,
                   const std::shared_ptr<FileSystem>& fileSystem, Writer writer);

    std::shared_ptr<WorkingFileEntry> setAndGetReadOnlyWFE(const ZipEntryPath& path) const
        KX_REQUIRES(m_mutex);
    std::pair<std::shared_ptr<WorkingFileEntry>, bool>
    setAndGetWritableWFE(const ZipEntryPath& path, const ByteStreamOpenOptions& options) const
        KX_REQUIRES(m_mutex);
    std::shared_ptr<WorkingFileEntry> setAndGetSharedWorkingFileEntry(const ZipEntryPath& path,
                                                                      bool createAnEmptyWFE) const
        KX_REQUIRES(m_mutex);
    std::shared_ptr<WorkingFileEntry> buildSharedWorkingFileEntry(const ZipEntryPath& path,
                                                                  bool createAnEmptyWFE) const
        KX_REQUIRES(m_mutex);

    void modifiedFileWasClosed(typename OpenWriters::iterator writer) const KX_EXCLUDES(m_mutex);
    void modifiedFileWasAbandoned(typename OpenWriters::iterator writer) const KX_EXCLUDES(m_mutex);
    void takeBackGivenUp() const KX_REQUIRES(m_mutex);
    bool revoke(const OpenWriter& writer) const KX_REQUIRES(m_mutex);

    std::shared_ptr<FolderContents> requireFolder(const ZipEntryPath& folder) const KX_REQUIRES(m_mutex);
    std::shared_ptr<FolderContents> requireParentForNewEntry(const ZipEntryPath& path,
                                                             ZipEntryType type) const KX_REQUIRES(m_mutex);
    std::shared_ptr<FolderEntry> requireEntry(const ZipEntryPath& path, ZipEntryType type) const
        KX_REQUIRES(m_mutex);
    void checkDestination(const ZipEntryPath& destination, MoveOption option, ZipEntryType type) const
        KX_REQUIRES(m_mutex);
    void detachStreams(const ZipEntryPath& path) const noexcept KX_REQUIRES(m_mutex);
    StreamMove prepareStreamMove(const ZipEntryPath& from, const ZipEntryPath& to, ZipEntryType type) const
        KX_REQUIRES(m_mutex);
    static void moveStreams(StreamMove move) noexcept;
    void forgetExpiredWorkingFiles() const KX_REQUIRES(m_mutex);

    const bool m_writable;
    foundation::log::basic_diagnostic_logger m_logger;
    mutable foundation::core::Mutex m_mutex;
    State m_state KX_GUARDED_BY(m_mutex);
    mutable FlushingPolicy<State> m_flushingPolicy KX_GUARDED_BY(m_mutex);
    /// Working files that a stream or the state keeps alive, by the entry's path.
    mutable WorkingFiles m_workingFiles KX_GUARDED_BY(m_mutex);
    mutable std::size_t m_workingFilesLimit KX_GUARDED_BY(m_mutex) = 64;
    mutable OpenWriters m_openWriters KX_GUARDED_BY(m_mutex);
};

} // namespace storage::zipprovider

#include "ZipFileSystem.streams.ipp"

#include "ZipFileSystem.tree.ipp"
