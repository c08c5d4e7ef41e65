#pragma once

#include "EntryExistsException.h"
#include "EntryNotFoundException.h"
#include "FileFolderEntryIterator.h"
#include "FolderNotEmptyException.h"
#include "MiniZipException.h"
#include "WorkingEntryOpenException.h"

#include <fl/filesystem/FsysExceptionBase.h>
#include <foundation/storage/provider/Exception.h>

#include <optional>
#include <stdexcept>
#include <utility>

namespace storage::zipprovider {

namespace detail {

inline ZipEntryPath entryPath(const foundation::storage::provider::StorageIRI& location) {
    return ZipEntryPath(location.getResolvedPath());
}

/// Whether the IRI names the archive's root.
inline bool namesRoot(const foundation::storage::provider::StorageIRI& location) {
    return entryPath(location).isRoot();
}

/// `becomes<X>(code)` in a list of translations: an X is reported as that code.
template <typename Caught>
struct Becomes {
    foundation::storage::provider::ErrorCode code;
};

/// Runs `work` and reports the plug-in's exceptions of the listed types to the host with `location`.
template <typename Work>
auto translating(const foundation::storage::provider::StorageIRI&, Work work) {
    return work();
}

template <typename Work, typename First, typename... Rest>
auto translating(const foundation::storage::provider::StorageIRI& location, Work work, Becomes<First> first,
                 Becomes<Rest>... rest) {
    try {
        return translating(location, work, rest...);
    } catch (First&) {
        throw foundation::storage::provider::Exception(first.code, location);
    }
}

inline constexpr Becomes<EntryNotFoundException> notFoundIs4{
    foundation::storage::provider::ErrorCode::NotFound};
inline constexpr Becomes<EntryExistsException> existsIs3{
    foundation::storage::provider::ErrorCode::AlreadyExists};
inline constexpr Becomes<FolderNotEmptyException> notEmptyIs0{
    foundation::storage::provider::ErrorCode::FolderNotEmpty};
inline constexpr Becomes<MiniZipException> zipFailureIs1{
    foundation::storage::provider::ErrorCode::ContainerUnreadable};
inline constexpr Becomes<WorkingEntryOpenException> openFailureIs9{
    foundation::storage::provider::ErrorCode::LocalFileSystem};
inline constexpr Becomes<fl::filesystem::FsysExceptionBase> localFailureIs9{
    foundation::storage::provider::ErrorCode::LocalFileSystem};

} // namespace detail

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
ZipProvider<StorageItem, ByteStreamDevice>::ZipProvider(const StorageItem& container)
    : m_container(container) {}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
ZipProvider<StorageItem, ByteStreamDevice>::~ZipProvider() {
    endChangePolling();
    try {
        if (m_fileSystem) {
            m_fileSystem->flushContents();
        }
    } catch (...) {
        // Whoever must know closes the last stream, or makes the last change, and sees the failure there.
    }
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipProvider<StorageItem, ByteStreamDevice>::doCreateFile(const StorageIRI& location) {
    checkWritable(location);
    if (hasEntry(location, ZipEntryType::Folder) || hasEntry(location, ZipEntryType::File)) {
        throw foundation::storage::provider::Exception(ErrorCode::AlreadyExists, location);
    }
    using namespace foundation::storage::provider;
    constexpr ByteStreamOpenOptions newFile{StreamAccess::Write, StreamDisposition::OpenOrCreate,
                                            StreamTruncation::Truncate, StreamPositioning::Position};
    detail::translating(
        location, [&] { fileSystem().checkOutEntry(detail::entryPath(location), newFile)->close(); },
        detail::notFoundIs4);
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipProvider<StorageItem, ByteStreamDevice>::doCreateFolder(const StorageIRI& location) {
    checkWritable(location);
    detail::translating(
        location, [&] { fileSystem().createFolder(detail::entryPath(location)); }, detail::notFoundIs4,
        detail::existsIs3);
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
bool ZipProvider<StorageItem, ByteStreamDevice>::doIsFile(const StorageIRI& location) {
    return hasEntry(location, ZipEntryType::File);
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
bool ZipProvider<StorageItem, ByteStreamDevice>::doIsFolder(const StorageIRI& location) {
    return hasEntry(location, ZipEntryType::Folder);
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipProvider<StorageItem, ByteStreamDevice>::doRemoveFile(const StorageIRI& location) {
    checkWritable(location);
    detail::translating(
        location, [&] { fileSystem().removeFile(detail::entryPath(location)); }, detail::notFoundIs4);
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipProvider<StorageItem, ByteStreamDevice>::doMoveFile(const StorageIRI& source,
                                                            const StorageIRI& destination,
                                                            MoveOption option) {
    checkWritable(source);
    detail::translating(
        destination,
        [&] { fileSystem().moveFile(detail::entryPath(source), detail::entryPath(destination), option); },
        detail::existsIs3, detail::notFoundIs4);
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipProvider<StorageItem, ByteStreamDevice>::doRemoveFolder(const StorageIRI& location) {
    checkWritable(location);
    detail::translating(
        location, [&] { fileSystem().removeFolder(detail::entryPath(location)); }, detail::notFoundIs4,
        detail::notEmptyIs0);
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipProvider<StorageItem, ByteStreamDevice>::doMoveFolder(const StorageIRI& source,
                                                              const StorageIRI& destination,
                                                              MoveOption option) {
    checkWritable(source);
    detail::translating(
        destination,
        [&] { fileSystem().moveFolder(detail::entryPath(source), detail::entryPath(destination), option); },
        detail::existsIs3, detail::notFoundIs4);
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
auto ZipProvider<StorageItem, ByteStreamDevice>::doGetFileAttributes(const StorageIRI& location)
    -> FileAttributes {
    return detail::translating(
        location,
        [&] {
            const auto& files = fileSystem();
            const std::optional<std::uint64_t> size = files.getFileSize(detail::entryPath(location));
            return FileAttributes(size, files.getFileLastModified(detail::entryPath(location)),
                                  files.isWritable());
        },
        detail::notFoundIs4, detail::localFailureIs9);
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
auto ZipProvider<StorageItem, ByteStreamDevice>::doGetFolderAttributes(const StorageIRI& location)
    -> FolderAttributes {
    return detail::translating(
        location,
        [&] {
            const auto& files = fileSystem();
            return FolderAttributes(detail::namesRoot(location)
                                        ? files.archiveLastModified()
                                        : files.getFolderLastModified(detail::entryPath(location)),
                                    files.isWritable());
        },
        detail::notFoundIs4);
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
auto ZipProvider<StorageItem, ByteStreamDevice>::doOpenStream(const StorageIRI& location,
                                                              const ByteStreamOpenOptions& options)
    -> std::unique_ptr<ByteStream> {
    checkWritable(location);
    return detail::translating(
        location, [&] { return fileSystem().checkOutEntry(detail::entryPath(location), options); },
        detail::notFoundIs4, detail::existsIs3);
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
auto ZipProvider<StorageItem, ByteStreamDevice>::doOpenReadStream(const StorageIRI& location)
    -> std::unique_ptr<ByteStream> {
    const auto& path = location.getResolvedPath();
    if (path.empty()) {
        throw std::out_of_range("invalid string position");
    }
    if (path.back() == u'/') {
        throw foundation::storage::provider::Exception(ErrorCode::NotFound, location);
    }
    return detail::translating(
        location, [&] { return fileSystem().checkOutEntry(detail::entryPath(location)); },
        detail::notFoundIs4, detail::zipFailureIs1, detail::openFailureIs9, detail::localFailureIs9);
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
auto ZipProvider<StorageItem, ByteStreamDevice>::doListAll(const StorageIRI& folder)
    -> std::unique_ptr<IFolderEntryIterator> {
    return list<is_file_or_folder_predicate>(folder);
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
auto ZipProvider<StorageItem, ByteStreamDevice>::doListFiles(const StorageIRI& folder)
    -> std::unique_ptr<IFolderEntryIterator> {
    return list<is_file_predicate>(folder);
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
auto ZipProvider<StorageItem, ByteStreamDevice>::doListFolders(const StorageIRI& folder)
    -> std::unique_ptr<IFolderEntryIterator> {
    return list<is_folder_predicate>(folder);
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipProvider<StorageItem, ByteStreamDevice>::doFlush() {
    const auto used = [this] {
        const foundation::core::MutexLock lock(m_mutex);
        return m_fileSystem;
    }();
    if (used) {
        used->flushContents();
    }
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
auto ZipProvider<StorageItem, ByteStreamDevice>::fileSystem() -> const FileSystem& {
    const foundation::core::MutexLock lock(m_mutex);
    if (!m_fileSystem) {
        m_fileSystem = std::make_shared<const FileSystem>(m_container);
    }
    return *m_fileSystem;
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipProvider<StorageItem, ByteStreamDevice>::checkWritable(const StorageIRI& location) const {
    if (!m_container.getFileAttributes().isWritable()) {
        throw foundation::storage::provider::Exception(ErrorCode::NotWritable, location);
    }
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
bool ZipProvider<StorageItem, ByteStreamDevice>::hasEntry(const StorageIRI& location, ZipEntryType type) {
    if (type == ZipEntryType::Folder && detail::namesRoot(location)) {
        return true;
    }
    const auto path = detail::entryPath(location);
    const auto parent = fileSystem().findFolder(ZipEntryPath(path.parentPath()));
    if (!parent) {
        return false;
    }
    return (type == ZipEntryType::File ? parent->findFile(path.fileName())
                                       : parent->findFolder(path.fileName())) != nullptr;
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
template <typename Predicate>
auto ZipProvider<StorageItem, ByteStreamDevice>::list(const StorageIRI& folder)
    -> std::unique_ptr<IFolderEntryIterator> {
    auto contents = fileSystem().findFolder(detail::entryPath(folder));
    if (!contents) {
        throw foundation::storage::provider::Exception(ErrorCode::NotFound, folder);
    }
    return std::make_unique<FileFolderEntryIterator<Predicate>>(std::move(contents));
}

} // namespace storage::zipprovider
