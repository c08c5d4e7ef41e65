#pragma once

#include "EntryExistsException.h"
#include "EntryNotFoundException.h"
#include "MiniZipException.h"
#include "WorkingEntryOpenException.h"

#include <foundation/core/except/throwInternal.h>
#include <foundation/log/log.h>

#include <algorithm>
#include <cstdint>
#include <ios>

namespace storage::zipprovider {

namespace detail {

/// The standard open-mode flags for the host's options, by the numbers of their four words.
inline std::ios_base::openmode
toOpenMode(const foundation::storage::provider::ByteStreamOpenOptions& options) {
    auto mode = std::ios_base::out | std::ios_base::binary;
    if (static_cast<std::uint32_t>(options.access) == 1) {
        mode |= std::ios_base::in;
    }
    if (static_cast<std::uint32_t>(options.truncation) == 0) {
        mode |= std::ios_base::trunc;
    }
    if (static_cast<std::uint32_t>(options.positioning) == 0) {
        mode |= std::ios_base::app;
    }
    return mode;
}

inline bool requiresExisting(const foundation::storage::provider::ByteStreamOpenOptions& options) {
    return static_cast<std::uint32_t>(options.disposition) == 1;
}

} // namespace detail

/// A writable stream over `entry`, opened as `options` say, that tells `fileSystem` of its end.
template <typename FileSystem, typename Writer>
std::unique_ptr<WorkingFileByteStream>
makeByteStream(const std::shared_ptr<WorkingFileEntry>& entry,
               const foundation::storage::provider::ByteStreamOpenOptions& options,
               const std::shared_ptr<FileSystem>& fileSystem, Writer writer) {
    auto stream =
        std::make_unique<WorkingFileByteStream>(entry, static_cast<int>(detail::toOpenMode(options)));
    stream->addCloseListener([fileSystem, writer] { fileSystem->modifiedFileWasClosed(writer); });
    stream->addAbandonListener([fileSystem, writer] { fileSystem->modifiedFileWasAbandoned(writer); });
    return stream;
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
ZipFileSystem<StorageItem, ByteStreamDevice>::ZipFileSystem(const StorageItem& container)
    : m_writable(container.getFileAttributes().isWritable()), m_logger("storage::zipprovider::ZipFileSystem"),
      m_state(container), m_flushingPolicy(m_state) {}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
auto ZipFileSystem<StorageItem, ByteStreamDevice>::checkOutEntry(const ZipEntryPath& path) const
    -> std::unique_ptr<ByteStream> {
    KX_LOG_FUNCTION(m_logger);
    const foundation::core::MutexLock lock(m_mutex);
    KX_LOG(m_logger) << " path=" << path;
    takeBackGivenUp();
    return std::make_unique<WorkingFileByteStream>(
        setAndGetReadOnlyWFE(path), static_cast<int>(std::ios_base::in | std::ios_base::binary));
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
auto ZipFileSystem<StorageItem, ByteStreamDevice>::checkOutEntry(const ZipEntryPath& path,
                                                                 const ByteStreamOpenOptions& options) const
    -> std::unique_ptr<ByteStream> {
    KX_LOG_FUNCTION(m_logger);
    const foundation::core::MutexLock lock(m_mutex);
    KX_LOG(m_logger) << " path=" << path;
    takeBackGivenUp();
    const auto [entry, entryDidNotExist] = setAndGetWritableWFE(path, options);
    const auto mode = detail::toOpenMode(options);
    if ((mode & std::ios_base::trunc) != 0 && (mode & std::ios_base::app) != 0) {
        // No device opens that way; refused before anything is recorded.
        foundation::core::except::throwInternal(WorkingEntryOpenException(path.toString()));
    }
    OpenWriters opened;
    opened.push_front({{path, nullptr, 0}});
    opened.front().registration = m_state.registerModifiedEntry(path, entry, entryDidNotExist);
    m_openWriters.splice(m_openWriters.begin(), opened);
    const auto writer = m_openWriters.begin();
    std::unique_ptr<ByteStream> stream;
    try {
        stream = makeByteStream(entry, options, this->shared_from_this(), writer);
    } catch (...) {
        writer->givenUp = true;
        takeBackGivenUp();
        throw;
    }
    m_flushingPolicy.incrementModifiedInUse();
    return stream;
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
std::shared_ptr<WorkingFileEntry>
ZipFileSystem<StorageItem, ByteStreamDevice>::setAndGetReadOnlyWFE(const ZipEntryPath& path) const {
    KX_LOG_FUNCTION(m_logger);
    KX_LOG(m_logger) << " path=" << path;
    if (!requireFolder(ZipEntryPath(path.parentPath()))->findFile(path.fileName())) {
        foundation::core::except::throwInternal(EntryNotFoundException(path));
    }
    return setAndGetSharedWorkingFileEntry(path, false);
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
std::pair<std::shared_ptr<WorkingFileEntry>, bool>
ZipFileSystem<StorageItem, ByteStreamDevice>::setAndGetWritableWFE(
    const ZipEntryPath& path, const ByteStreamOpenOptions& options) const {
    KX_LOG_FUNCTION(m_logger);
    KX_LOG(m_logger) << " path=" << path;
    const auto parent = requireFolder(ZipEntryPath(path.parentPath()));
    const bool fileEntryDoesNotExist = !parent->findFile(path.fileName());
    KX_LOG_DEBUG(m_logger) << " fileEntryDoesNotExist=" << fileEntryDoesNotExist;
    if (fileEntryDoesNotExist) {
        if (path.isRoot() || parent->findFolder(path.fileName())) {
            foundation::core::except::throwInternal(EntryExistsException(path));
        }
        if (detail::requiresExisting(options)) {
            foundation::core::except::throwInternal(EntryNotFoundException(path));
        }
        requireParentForNewEntry(path, ZipEntryType::File);
    }
    return {setAndGetSharedWorkingFileEntry(path, fileEntryDoesNotExist), fileEntryDoesNotExist};
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
std::shared_ptr<WorkingFileEntry>
ZipFileSystem<StorageItem, ByteStreamDevice>::setAndGetSharedWorkingFileEntry(const ZipEntryPath& path,
                                                                              bool createAnEmptyWFE) const {
    KX_LOG_FUNCTION(m_logger);
    KX_LOG(m_logger) << " theFullPath=" << path << " createAnEmptyWFE=" << createAnEmptyWFE;
    const auto slot = m_workingFiles.find(path);
    KX_LOG_DEBUG(m_logger) << "Is wfe already in map? " << (slot != m_workingFiles.end());
    if (slot != m_workingFiles.end()) {
        auto entry = slot->second.lock();
        KX_LOG_DEBUG(m_logger) << "WFE is in map but empty reference?" << !entry;
        if (!entry) {
            entry = buildSharedWorkingFileEntry(path, createAnEmptyWFE);
            slot->second = entry;
        }
        return entry;
    }
    auto entry = buildSharedWorkingFileEntry(path, createAnEmptyWFE);
    forgetExpiredWorkingFiles();
    m_workingFiles.emplace(path, entry);
    return entry;
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
std::shared_ptr<WorkingFileEntry>
ZipFileSystem<StorageItem, ByteStreamDevice>::buildSharedWorkingFileEntry(const ZipEntryPath& path,
                                                                          bool createAnEmptyWFE) const {
    KX_LOG_FUNCTION(m_logger);
    if (createAnEmptyWFE) {
        return std::make_shared<WorkingFileEntry>(path);
    }
    constexpr int attempts = 3;
    for (int attempt = 0; attempt < attempts; ++attempt) {
        try {
            const auto source =
                attempt == 0 ? m_state.reopenOriginalEntry(path) : m_state.openOriginalEntry(path);
            return std::make_shared<WorkingFileEntry>(path, *source);
        } catch (const MiniZipException& error) {
            KX_LOG_DEBUG(m_logger) << "Attempt failed: " << error.what();
        }
    }
    foundation::core::except::throwInternal(MiniZipException(
        u"Error in trying to create working file entry in ZipFileSystem::buildSharedWorkingFileEntry"));
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipFileSystem<StorageItem, ByteStreamDevice>::modifiedFileWasClosed(
    typename OpenWriters::iterator writer) const {
    KX_LOG_FUNCTION(m_logger);
    const foundation::core::MutexLock lock(m_mutex);
    OpenWriters closed;
    closed.splice(closed.begin(), m_openWriters, writer);
    KX_LOG_DEBUG(m_logger) << "About to decrement modifiedInUse and set state changed";
    m_flushingPolicy.decrementModifiedInUse();
    if (!writer->detached) {
        m_state.settle(writer->registration);
    }
    takeBackGivenUp();
    m_flushingPolicy.setStateChanged();
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipFileSystem<StorageItem, ByteStreamDevice>::modifiedFileWasAbandoned(
    typename OpenWriters::iterator writer) const {
    KX_LOG_FUNCTION(m_logger);
    const foundation::core::MutexLock lock(m_mutex);
    writer->givenUp = true;
    m_flushingPolicy.decrementModifiedInUse();
    takeBackGivenUp();
    m_flushingPolicy.setStateChanged();
}

/// What a stream has changed that was given up is taken back at once; where that fails, before anything else
/// is looked at or changed.
template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipFileSystem<StorageItem, ByteStreamDevice>::takeBackGivenUp() const {
    for (auto writer = m_openWriters.begin(); writer != m_openWriters.end();) {
        if (!writer->givenUp) {
            ++writer;
            continue;
        }
        const bool revoked = revoke(*writer);
        KX_LOG_DEBUG(m_logger) << "Is the entry as it was before the stream? " << revoked;
        writer = m_openWriters.erase(writer);
    }
}

/// Streams that are open on the entry for reading go on with the working file; others get a new one.
template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
bool ZipFileSystem<StorageItem, ByteStreamDevice>::revoke(const OpenWriter& writer) const {
    const auto& path = writer.registration.path;
    if (writer.detached) {
        return false;
    }
    auto slot = preparedNode<WorkingFiles>(path, {});
    if (!m_state.revoke(writer.registration)) {
        return false;
    }
    // Nothing fails from here on: what is taken back is not taken back again.
    if (const auto entry = m_state.modifiedEntry(path)) {
        slot.mapped() = entry;
        putNode(m_workingFiles, std::move(slot));
    } else {
        m_workingFiles.erase(path);
    }
    return true;
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipFileSystem<StorageItem, ByteStreamDevice>::flushContents() const {
    const foundation::core::MutexLock lock(m_mutex);
    KX_LOG_FUNCTION(m_logger);
    takeBackGivenUp();
    m_state.doFlush();
}

/// Slots of working files that are gone are swept up when their number has doubled, so that opening many
/// files one after the other does not gather memory.
template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipFileSystem<StorageItem, ByteStreamDevice>::forgetExpiredWorkingFiles() const {
    if (m_workingFiles.size() < m_workingFilesLimit) {
        return;
    }
    std::erase_if(m_workingFiles, [](const auto& slot) { return slot.second.expired(); });
    m_workingFilesLimit = std::max<std::size_t>(64, m_workingFiles.size() * 2);
}

} // namespace storage::zipprovider
