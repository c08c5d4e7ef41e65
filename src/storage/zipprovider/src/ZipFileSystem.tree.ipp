#pragma once

#include "EntryExistsException.h"
#include "EntryNotFoundException.h"
#include "FolderNotEmptyException.h"
#include "TimeSource.h"
#include "ZipEntrySink.h"

#include <foundation/core/except/throwInternal.h>
#include <foundation/log/log.h>

#include <utility>

namespace storage::zipprovider {

using foundation::core::MutexLock;

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
std::uint64_t ZipFileSystem<StorageItem, ByteStreamDevice>::getFileSize(const ZipEntryPath& path) const {
    const MutexLock lock(m_mutex);
    takeBackGivenUp();
    const auto entry = requireEntry(path, ZipEntryType::File);
    const auto modified = m_state.modifiedEntry(path);
    return modified ? modified->getCachedFileSize() : entry->size;
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
boost::posix_time::ptime
ZipFileSystem<StorageItem, ByteStreamDevice>::getFileLastModified(const ZipEntryPath& path) const {
    const MutexLock lock(m_mutex);
    takeBackGivenUp();
    const auto entry = requireEntry(path, ZipEntryType::File);
    const auto modified = m_state.modifiedEntry(path);
    return modified ? modified->getCachedFileLastModified() : entry->lastModified;
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
boost::posix_time::ptime
ZipFileSystem<StorageItem, ByteStreamDevice>::getFolderLastModified(const ZipEntryPath& path) const {
    const MutexLock lock(m_mutex);
    takeBackGivenUp();
    return requireEntry(path, ZipEntryType::Folder)->lastModified;
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipFileSystem<StorageItem, ByteStreamDevice>::createFolder(const ZipEntryPath& path) const {
    KX_LOG_FUNCTION(m_logger);
    const MutexLock lock(m_mutex);
    KX_LOG(m_logger) << " path=" << path;
    takeBackGivenUp();
    const auto parent = requireParentForNewEntry(path, ZipEntryType::Folder);
    if (path.isRoot() || parent->findFolder(path.fileName()) || parent->findFile(path.fileName())) {
        foundation::core::except::throwInternal(EntryExistsException(path));
    }
    m_state.createFolder(path, TimeSource::current()->now());
    m_flushingPolicy.setStateChanged();
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipFileSystem<StorageItem, ByteStreamDevice>::removeFile(const ZipEntryPath& path) const {
    KX_LOG_FUNCTION(m_logger);
    const MutexLock lock(m_mutex);
    KX_LOG(m_logger) << " path=" << path;
    takeBackGivenUp();
    if (!requireFolder(ZipEntryPath(path.parentPath()))->findFile(path.fileName())) {
        foundation::core::except::throwInternal(EntryNotFoundException(path));
    }
    const auto time = TimeSource::current()->now();
    m_state.removeFile(path, time);
    detachStreams(path);
    m_flushingPolicy.setStateChanged();
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipFileSystem<StorageItem, ByteStreamDevice>::removeFolder(const ZipEntryPath& path) const {
    KX_LOG_FUNCTION(m_logger);
    const MutexLock lock(m_mutex);
    KX_LOG(m_logger) << " path=" << path;
    takeBackGivenUp();
    if (!requireFolder(ZipEntryPath(path.parentPath()))->findFolder(path.fileName())) {
        foundation::core::except::throwInternal(EntryNotFoundException(path));
    }
    if (const auto contents = m_state.findFolder(path); contents && !contents->empty()) {
        foundation::core::except::throwInternal(FolderNotEmptyException(path));
    }
    m_state.removeFolder(path, TimeSource::current()->now());
    m_flushingPolicy.setStateChanged();
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipFileSystem<StorageItem, ByteStreamDevice>::moveFile(const ZipEntryPath& source,
                                                            const ZipEntryPath& destination,
                                                            MoveOption option) const {
    KX_LOG_FUNCTION(m_logger);
    const MutexLock lock(m_mutex);
    KX_LOG(m_logger) << " source=" << source << " destination=" << destination;
    takeBackGivenUp();
    if (!requireFolder(ZipEntryPath(source.parentPath()))->findFile(source.fileName())) {
        foundation::core::except::throwInternal(EntryNotFoundException(source));
    }
    checkDestination(destination, option, ZipEntryType::File);
    if (source == destination) {
        return;
    }
    if (!m_state.modifiedEntry(source)) {
        // The index may show a file that is none (the first x of a file x/x): it has no bytes to replace
        // those of the destination.
        m_state.originalEntry(source);
    }
    const auto time = TimeSource::current()->now();
    auto moving = prepareStreamMove(source, destination, ZipEntryType::File);
    m_state.moveFile(source, destination, time);
    detachStreams(destination);
    moveStreams(std::move(moving));
    m_flushingPolicy.setStateChanged();
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipFileSystem<StorageItem, ByteStreamDevice>::moveFolder(const ZipEntryPath& source,
                                                              const ZipEntryPath& destination,
                                                              MoveOption option) const {
    KX_LOG_FUNCTION(m_logger);
    const MutexLock lock(m_mutex);
    KX_LOG(m_logger) << " source=" << source << " destination=" << destination;
    takeBackGivenUp();
    if (!requireFolder(ZipEntryPath(source.parentPath()))->findFolder(source.fileName())) {
        foundation::core::except::throwInternal(EntryNotFoundException(source));
    }
    if (source == destination && foundation::storage::provider::replacesExisting(option)) {
        return;
    }
    if (source.isAbove(destination)) {
        // The folder that the destination stands in would move away with the source.
        foundation::core::except::throwInternal(
            EntryNotFoundException(ZipEntryPath(destination.parentPath())));
    }
    checkDestination(destination, option, ZipEntryType::Folder);
    if (const auto below = m_state.findFolder(destination); below && !below->empty()) {
        // An archive may hold a file x and a file x/y. What is below the replaced file would get mixed up
        // with what is moved.
        foundation::core::except::throwInternal(EntryExistsException(destination));
    }
    m_state.requireStorableNamesBelow(source, destination);
    const auto time = TimeSource::current()->now();
    auto moving = prepareStreamMove(source, destination, ZipEntryType::Folder);
    m_state.moveFolder(source, destination, time);
    detachStreams(destination);
    moveStreams(std::move(moving));
    m_flushingPolicy.setStateChanged();
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
std::shared_ptr<FolderContents>
ZipFileSystem<StorageItem, ByteStreamDevice>::findFolder(const ZipEntryPath& folder) const {
    const MutexLock lock(m_mutex);
    takeBackGivenUp();
    return m_state.findFolder(folder);
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
boost::posix_time::ptime ZipFileSystem<StorageItem, ByteStreamDevice>::archiveLastModified() const {
    const MutexLock lock(m_mutex);
    return m_state.archiveLastModified();
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
std::shared_ptr<FolderContents>
ZipFileSystem<StorageItem, ByteStreamDevice>::requireFolder(const ZipEntryPath& folder) const {
    auto contents = m_state.findFolder(folder);
    if (!contents) {
        foundation::core::except::throwInternal(EntryNotFoundException(folder));
    }
    return contents;
}

/// A file has contents in the index as well, but nothing can be put into it. A name that no archive can hold
/// is refused here, where it comes in: recorded, it would fail every save.
template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
std::shared_ptr<FolderContents>
ZipFileSystem<StorageItem, ByteStreamDevice>::requireParentForNewEntry(const ZipEntryPath& path,
                                                                       ZipEntryType type) const {
    const ZipEntryPath parent(path.parentPath());
    auto contents = requireFolder(parent);
    if (!m_state.isFolder(parent)) {
        foundation::core::except::throwInternal(EntryNotFoundException(parent));
    }
    requireStorableName(path, type);
    return contents;
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
std::shared_ptr<FolderEntry>
ZipFileSystem<StorageItem, ByteStreamDevice>::requireEntry(const ZipEntryPath& path,
                                                           ZipEntryType type) const {
    const auto parent = m_state.findFolder(ZipEntryPath(path.parentPath()));
    auto entry = !parent                      ? nullptr
                 : type == ZipEntryType::File ? parent->findFile(path.fileName())
                                              : parent->findFolder(path.fileName());
    if (!entry) {
        foundation::core::except::throwInternal(EntryNotFoundException(path));
    }
    return entry;
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipFileSystem<StorageItem, ByteStreamDevice>::checkDestination(const ZipEntryPath& destination,
                                                                    MoveOption option,
                                                                    ZipEntryType type) const {
    const auto parent = requireParentForNewEntry(destination, type);
    const bool replaces = foundation::storage::provider::replacesExisting(option);
    if (destination.isRoot() || parent->findFolder(destination.fileName()) ||
        (!replaces && parent->findFile(destination.fileName()))) {
        foundation::core::except::throwInternal(EntryExistsException(destination));
    }
}

/// Streams open on a removed or replaced entry go on working on their working file, which goes nowhere; a new
/// entry of that path gets a working file of its own.
template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipFileSystem<StorageItem, ByteStreamDevice>::detachStreams(const ZipEntryPath& path) const noexcept {
    m_workingFiles.erase(path);
    for (auto& writer : m_openWriters) {
        if (writer.registration.path == path) {
            writer.detached = true;
        }
    }
}

/// An archive may hold a file x and a file x/y: what is below a file stays when that is moved.
template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
auto ZipFileSystem<StorageItem, ByteStreamDevice>::prepareStreamMove(const ZipEntryPath& from,
                                                                     const ZipEntryPath& to,
                                                                     ZipEntryType type) const -> StreamMove {
    // What is gone may have left its slot behind, also where the others go to.
    std::erase_if(m_workingFiles, [](const auto& slot) { return slot.second.expired(); });
    const bool withAllBelow = type == ZipEntryType::Folder;
    StreamMove move{{m_workingFiles, from, to,
                     withAllBelow ? MovedKeys::WithAllBelow : MovedKeys::ThePathAlone,
                     [](const std::weak_ptr<WorkingFileEntry>& file) { return file; }},
                    {}};
    for (auto& writer : m_openWriters) {
        const auto& path = writer.registration.path;
        if (!writer.detached && (path == from || (withAllBelow && from.isAbove(path)))) {
            move.writers.emplace_back(&writer, path.rebased(from, to));
        }
    }
    return move;
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipFileSystem<StorageItem, ByteStreamDevice>::moveStreams(StreamMove move) noexcept {
    move.workingFiles.commit();
    for (auto& [writer, path] : move.writers) {
        writer->registration.path = std::move(path);
    }
}

} // namespace storage::zipprovider
