#include <storage/fileprovider/LocalFileProvider.h>

#include <foundation/storage/provider/Exception.h>
#include <storage/fileprovider/src/WindowsEnvironment.h>
#include <storage/fileprovider/src/WindowsFile.h>
#include <storage/fileprovider/src/WindowsListing.h>
#include <storage/fileprovider/src/WindowsPath.h>
#include <storage/fileprovider/src/WindowsSave.h>
#include <storage/fileprovider/src/WindowsStreams.h>

namespace storage::fileprovider {

namespace fs = std::filesystem;
using foundation::storage::provider::ByteStream;
using foundation::storage::provider::ByteStreamOpenOptions;
using foundation::storage::provider::EntryKind;
using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::Exception;
using foundation::storage::provider::IFolderEntryIterator;
using foundation::storage::provider::MoveOption;
using foundation::storage::provider::replacesExisting;
using foundation::storage::provider::StorageIRI;

namespace {

bool isFolderStatus(const std::optional<FileStatus>& status) {
    return status && status->isFolder;
}

bool leadsToFolder(const fs::path& path) {
    return path.empty() || isFolderStatus(statusOf(path));
}

/// Nothing can be made in the root, which holds the drives.
fs::path toChangeablePath(const StorageIRI& location) {
    auto path = toWindowsPath(location);
    if (path.empty() || folderOf(path) == path) {
        throw Exception(ErrorCode::AccessDenied, location, "a drive cannot be made, moved or removed");
    }
    return path;
}

/// What must hold before a file or folder can be made or put at a location.
void requireFolderAbove(const StorageIRI& iri, const fs::path& path) {
    if (!leadsToFolder(folderOf(path))) {
        throw Exception(ErrorCode::NotFound, iri, "the folder that it would stand in does not exist");
    }
}

bool isBelow(const fs::path& inner, const fs::path& outer) {
    auto name = resolvePath(outer).native();
    name += L'\\';
    const auto below = resolvePath(inner).native();
    return below.size() > name.size() &&
           ::CompareStringOrdinal(below.c_str(), static_cast<int>(name.size()), name.c_str(),
                                  static_cast<int>(name.size()), TRUE) == CSTR_EQUAL;
}

/// Renames; false with GetLastError().
bool moveItem(const fs::path& from, const fs::path& to, DWORD flags) {
    return ::MoveFileExW(from.c_str(), to.c_str(), flags) != 0;
}

bool allowsCopy(MoveOption option) {
    return (static_cast<std::uint32_t>(option) & static_cast<std::uint32_t>(MoveOption::AllowCopy)) != 0;
}

} // namespace

LocalFileProvider::LocalFileProvider(const LocalFileOptions& options)
    : m_environment(std::make_shared<Environment>(Environment{options})) {}

LocalFileProvider::~LocalFileProvider() {
    // The polling of change events calls virtual operations, so it must end while the object is whole.
    shutdown();
}

std::shared_ptr<LocalFileProvider> LocalFileProvider::create(const LocalFileOptions& options) {
    return std::shared_ptr<LocalFileProvider>(new LocalFileProvider(options));
}

void LocalFileProvider::doCreateFile(const StorageIRI& location) {
    const auto path = toChangeablePath(location);
    requireFolderAbove(location, path);
    const auto file = FileHandle::open(path, GENERIC_WRITE, CREATE_NEW);
    if (!file.isOpen()) {
        const DWORD error = ::GetLastError();
        throwWindowsError(location, statusOfItself(path) ? ERROR_FILE_EXISTS : error);
    }
}

void LocalFileProvider::doCreateFolder(const StorageIRI& location) {
    const auto path = toWindowsPath(location);
    if (leadsToFolder(path)) {
        throwWindowsError(location, ERROR_ALREADY_EXISTS);
    }
    requireFolderAbove(location, path);
    if (::CreateDirectoryW(path.c_str(), nullptr) == 0) {
        throwWindowsError(location, ::GetLastError());
    }
}

bool LocalFileProvider::doIsFile(const StorageIRI& location) {
    const auto path = findWindowsPath(location);
    if (!path || path->empty()) {
        return false;
    }
    const auto status = settledStatusOf(*path);
    // A link that leads nowhere is listed as a file.
    return status ? !status->isFolder : statusOfItself(*path).has_value();
}

bool LocalFileProvider::doIsFolder(const StorageIRI& location) {
    const auto path = findWindowsPath(location);
    return path && leadsToFolder(*path);
}

void LocalFileProvider::doRemoveFile(const StorageIRI& location) {
    const auto path = toChangeablePath(location);
    const auto status = statusOfItself(path);
    if (!status || status->isFolder) {
        throwWindowsError(location, ERROR_FILE_NOT_FOUND);
    }
    static_cast<void>(recoverTarget(location, path));
    if (::DeleteFileW(path.c_str()) == 0) {
        const DWORD error = ::GetLastError();
        if (status->isReadOnly && error == ERROR_ACCESS_DENIED) {
            throw Exception(ErrorCode::NotWritable, location, "the file is read-only");
        }
        throwWindowsError(location, error);
    }
}

void LocalFileProvider::doRemoveFolder(const StorageIRI& location) {
    const auto path = toChangeablePath(location);
    const auto status = statusOfItself(path);
    if (!status || !status->isFolder) {
        throwWindowsError(location, ERROR_FILE_NOT_FOUND);
    }
    if (const DWORD error = removeEmptyFolder(location, path); error != 0) {
        throwWindowsError(location, error);
    }
}

void LocalFileProvider::doRemoveFolderRecursively(const StorageIRI& location) {
    const auto path = toChangeablePath(location);
    const auto status = statusOfItself(path);
    if (!status || !status->isFolder) {
        throwWindowsError(location, ERROR_FILE_NOT_FOUND);
    }
    if (status->isLink) {
        doRemoveFolder(location);
        return;
    }
    removeTree(location, path);
}

void LocalFileProvider::doMoveFile(const StorageIRI& source, const StorageIRI& destination,
                                   MoveOption option) {
    const auto from = toChangeablePath(source);
    const auto to = toChangeablePath(destination);
    const auto fromStatus = statusOfItself(from);
    if (!fromStatus || fromStatus->isFolder) {
        throwWindowsError(source, ERROR_FILE_NOT_FOUND);
    }
    requireFolderAbove(destination, to);
    const auto toStatus = statusOfItself(to);
    const bool isSame = toStatus && fromStatus->isSameItem(*toStatus);
    if (toStatus && (!replacesExisting(option) || (toStatus->isFolder && !isSame))) {
        throwWindowsError(destination, ERROR_ALREADY_EXISTS);
    }
    static_cast<void>(recoverTarget(source, from));
    const DWORD flags = (replacesExisting(option) ? MOVEFILE_REPLACE_EXISTING : 0) |
                        (allowsCopy(option) ? MOVEFILE_COPY_ALLOWED : 0) | MOVEFILE_WRITE_THROUGH;
    if (isSame && from == to) {
        return;
    }
    if (!moveItem(from, to, flags)) {
        const DWORD error = ::GetLastError();
        throwWindowsError(error == ERROR_ALREADY_EXISTS ? destination : source, error);
    }
}

void LocalFileProvider::doMoveFolder(const StorageIRI& source, const StorageIRI& destination,
                                     MoveOption option) {
    const auto from = toChangeablePath(source);
    const auto to = toChangeablePath(destination);
    const auto fromStatus = statusOf(from);
    if (!isFolderStatus(fromStatus)) {
        throwWindowsError(source, ERROR_PATH_NOT_FOUND);
    }
    requireFolderAbove(destination, to);
    const auto toStatus = statusOfItself(to);
    const bool isSame = toStatus && fromStatus->isSameItem(*toStatus);
    if (isSame && replacesExisting(option) && from == to) {
        return;
    }
    if (toStatus && !isSame && (!replacesExisting(option) || toStatus->isFolder)) {
        throwWindowsError(destination, ERROR_ALREADY_EXISTS);
    }
    if (isSame && !replacesExisting(option)) {
        throwWindowsError(destination, ERROR_ALREADY_EXISTS);
    }
    if (isBelow(to, from)) {
        throw Exception(ErrorCode::NotFound, destination, "cannot move a folder into itself");
    }
    // The system puts no folder in a file's place: the file steps aside first, and comes back if the folder
    // cannot go.
    fs::path aside;
    if (toStatus && !isSame) {
        aside = to;
        aside += L".kxvfs-moved";
        if (!moveItem(to, aside, 0)) {
            throwWindowsError(destination, ::GetLastError());
        }
    }
    if (!moveItem(from, to, MOVEFILE_WRITE_THROUGH)) {
        const DWORD error = ::GetLastError();
        if (!aside.empty()) {
            static_cast<void>(moveItem(aside, to, 0));
        }
        throwWindowsError(error == ERROR_ALREADY_EXISTS ? destination : source, error);
    }
    if (!aside.empty() && ::DeleteFileW(aside.c_str()) == 0) {
        throwWindowsError(destination, ::GetLastError(),
                          "moved, but the replaced file is left as " + textOf(aside));
    }
}

std::unique_ptr<ByteStream> LocalFileProvider::doOpenStream(const StorageIRI& location,
                                                            const ByteStreamOpenOptions& options) {
    return openForWriting(location, options, m_environment->options.sync);
}

std::unique_ptr<ByteStream> LocalFileProvider::doOpenReadStream(const StorageIRI& location) {
    return openForReading(location);
}

std::unique_ptr<ByteStream>
LocalFileProvider::doOpenTransactionalStream(const StorageIRI& location,
                                             const ByteStreamOpenOptions& options) {
    // Every stream for writing is one.
    return openForWriting(location, options, m_environment->options.sync);
}

std::unique_ptr<IFolderEntryIterator> LocalFileProvider::doListAll(const StorageIRI& folder) {
    return listFolder(folder, toWindowsPath(folder), std::nullopt);
}

std::unique_ptr<IFolderEntryIterator> LocalFileProvider::doListFiles(const StorageIRI& folder) {
    return listFolder(folder, toWindowsPath(folder), EntryKind::File);
}

std::unique_ptr<IFolderEntryIterator> LocalFileProvider::doListFolders(const StorageIRI& folder) {
    return listFolder(folder, toWindowsPath(folder), EntryKind::Folder);
}

void LocalFileProvider::doCopyFile(const StorageIRI& source, const StorageIRI& destination,
                                   MoveOption option) {
    doCopyFileAtomic(source, destination, option);
}

void LocalFileProvider::doCopyFileAtomic(const StorageIRI& source, const StorageIRI& destination,
                                         MoveOption option) {
    const auto from = resolvePath(toWindowsPath(source));
    const auto to = toChangeablePath(destination);
    const auto fromStatus = statusOf(from);
    if (!fromStatus || fromStatus->isFolder) {
        throwWindowsError(source, ERROR_FILE_NOT_FOUND);
    }
    requireFolderAbove(destination, to);
    const auto toStatus = statusOf(to);
    if (replacesExisting(option) && toStatus && fromStatus->isSameItem(*toStatus)) {
        return;
    }
    static_cast<void>(recoverTarget(source, from));
    const auto file = FileHandle::open(from, GENERIC_READ, OPEN_EXISTING);
    const auto status = file.isOpen() ? statusOf(file.get()) : std::nullopt;
    if (!status) {
        throwWindowsError(source, ::GetLastError());
    }
    WindowsSaveRequest request;
    request.mustNotExist = !replacesExisting(option);
    WindowsSave save(destination, request, m_environment->options.sync);
    if (!copyBytes(file.get(), save.file(), status->size)) {
        throwWindowsError(destination, ::GetLastError(), "cannot copy the contents");
    }
    save.commit();
}

void LocalFileProvider::doTruncateToSize(const StorageIRI& file, std::uint64_t size) {
    if (leadsToFolder(toWindowsPath(file))) {
        throwWindowsError(file, ERROR_FILE_NOT_FOUND);
    }
    WindowsSaveRequest request;
    request.mustExist = true;
    request.keep = size;
    WindowsSave save(file, request, m_environment->options.sync);
    if (!setSize(save.file(), size)) {
        throwWindowsError(file, ::GetLastError());
    }
    save.commit();
}

} // namespace storage::fileprovider
