#include <storage/fileprovider/LocalFileProvider.h>

#include <foundation/storage/provider/Exception.h>
#include <storage/fileprovider/src/Descriptor.h>
#include <storage/fileprovider/src/Environment.h>
#include <storage/fileprovider/src/Failure.h>
#include <storage/fileprovider/src/FileIo.h>
#include <storage/fileprovider/src/Listing.h>
#include <storage/fileprovider/src/LocalPath.h>
#include <storage/fileprovider/src/Recoverer.h>
#include <storage/fileprovider/src/SaveTransaction.h>
#include <storage/fileprovider/src/Streams.h>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

namespace storage::fileprovider {

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

using Status = std::optional<struct stat>;

/// Of the item itself, be it a link; disengaged when there is nothing.
Status statusOfItself(const StorageIRI& iri, const std::string& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) == 0) {
        return status;
    }
    if (!isAbsence(errno)) {
        throwSystemError(iri, errno);
    }
    return std::nullopt;
}

/// Of what links lead to.
Status statusOf(const StorageIRI& iri, const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) == 0) {
        return status;
    }
    if (!isAbsence(errno)) {
        throwSystemError(iri, errno);
    }
    return std::nullopt;
}

bool isFolderStatus(const Status& status) {
    return status && S_ISDIR(status->st_mode);
}

bool isSameItem(const Status& a, const Status& b) {
    return a && b && a->st_dev == b->st_dev && a->st_ino == b->st_ino;
}

/// The place of an item, with the links in its folder's path resolved but not one in its own place.
std::string placeOf(const std::string& path) {
    return resolveAsFarAsPossible(std::string(parentOf(path))) + '/' + std::string(nameOf(path));
}

/// What must hold before a file or folder can be made or put at a location.
void requireFolderAbove(const StorageIRI& iri, const std::string& path) {
    if (!isFolderStatus(statusOf(iri, std::string(parentOf(path))))) {
        throw Exception(ErrorCode::NotFound, iri, "the folder that it would stand in does not exist");
    }
}

/// A file that moves, goes or is replaced must not leave the journal of an interrupted save behind, which
/// finds it by name. `status` is that of the item itself.
void settleInterruptedSave(const EnvironmentPtr& environment, const StorageIRI& iri, const std::string& path,
                           const Status& status, bool moves = false) {
    if (!status || !S_ISREG(status->st_mode)) {
        return;
    }
    std::string target;
    const int error = resolveLinks(path, target);
    if (error == 0) {
        Recoverer recoverer(environment, iri, target);
        static_cast<void>(moves ? recoverer.recoverForMoving() : recoverer.recoverForReading());
    } else if (!isAbsence(error)) {
        throwSystemError(iri, error);
    }
}

/// The same for a file that is about to be replaced: one that nothing can make whole is no loss.
void settleReplaced(const EnvironmentPtr& environment, const StorageIRI& iri, const std::string& path,
                    const Status& status) {
    try {
        settleInterruptedSave(environment, iri, path, status);
    } catch (const Exception& failure) {
        if (failure.getErrorCode() != ErrorCode::LocalFileSystem) {
            throw;
        }
    }
}

} // namespace

LocalFileProvider::LocalFileProvider(const LocalFileOptions& options)
    : m_environment(Environment::from(options)) {}

LocalFileProvider::~LocalFileProvider() {
    // The polling of change events calls virtual operations, so it must end while the object is whole.
    shutdown();
}

std::shared_ptr<LocalFileProvider> LocalFileProvider::create(const LocalFileOptions& options) {
    return std::shared_ptr<LocalFileProvider>(new LocalFileProvider(options));
}

void LocalFileProvider::doCreateFile(const StorageIRI& location) {
    const auto path = toLocalPath(location);
    requireFolderAbove(location, path);
    auto file = Descriptor::open(m_environment->calls, path.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0666);
    if (!file.isOpen()) {
        throwSystemError(location, errno);
    }
    if (const int error = file.close(); error != 0) {
        m_environment->calls->unlink(path.c_str());
        throwSystemError(location, error);
    }
}

void LocalFileProvider::doCreateFolder(const StorageIRI& location) {
    const auto path = toLocalPath(location);
    requireFolderAbove(location, path);
    if (m_environment->calls->makeFolder(path.c_str(), 0777) != 0) {
        throwSystemError(location, errno);
    }
}

bool LocalFileProvider::doIsFile(const StorageIRI& location) {
    const auto path = toLocalPath(location);
    const auto status = statusOf(location, path);
    // A link that leads nowhere is listed as a file.
    return status ? !S_ISDIR(status->st_mode) : statusOfItself(location, path).has_value();
}

bool LocalFileProvider::doIsFolder(const StorageIRI& location) {
    return isFolderStatus(statusOf(location, toLocalPath(location)));
}

void LocalFileProvider::doRemoveFile(const StorageIRI& location) {
    const auto path = toLocalPath(location);
    const auto status = statusOfItself(location, path);
    if (!status || S_ISDIR(status->st_mode)) {
        throwSystemError(location, status ? EISDIR : ENOENT);
    }
    settleInterruptedSave(m_environment, location, path, status);
    if (m_environment->calls->unlink(path.c_str()) != 0) {
        throwSystemError(location, errno);
    }
}

void LocalFileProvider::doRemoveFolder(const StorageIRI& location) {
    const auto path = toLocalPath(location);
    int error = removeEmptyFolder(*m_environment, location, path);
    const auto status = statusOfItself(location, path);
    if (error == ENOTDIR && status && S_ISLNK(status->st_mode) && isFolderStatus(statusOf(location, path))) {
        // A link to a folder is listed as one; removing it removes the link, as with files.
        error = m_environment->calls->unlink(path.c_str()) == 0 ? 0 : errno;
    }
    if (error != 0) {
        throwSystemError(location, error == EEXIST ? ENOTEMPTY : error);
    }
}

void LocalFileProvider::doRemoveFolderRecursively(const StorageIRI& location) {
    const auto path = toLocalPath(location);
    const auto status = statusOfItself(location, path);
    if (status && S_ISLNK(status->st_mode)) {
        doRemoveFolder(location);
        return;
    }
    removeTree(*m_environment, location, path);
}

void LocalFileProvider::doMoveFile(const StorageIRI& source, const StorageIRI& destination,
                                   MoveOption option) {
    const auto from = toLocalPath(source);
    const auto to = toLocalPath(destination);
    const auto fromStatus = statusOfItself(source, from);
    if (!fromStatus || S_ISDIR(fromStatus->st_mode)) {
        throwSystemError(source, fromStatus ? EISDIR : ENOENT);
    }
    requireFolderAbove(destination, to);
    const auto toStatus = statusOfItself(destination, to);
    if (toStatus && (!replacesExisting(option) || isFolderStatus(statusOf(destination, to)))) {
        throwSystemError(destination, EEXIST);
    }
    settleInterruptedSave(m_environment, source, from, fromStatus, true);
    settleReplaced(m_environment, destination, to, toStatus);
    if (isSameItem(fromStatus, toStatus)) {
        // The system leaves both names of one file as they are.
        if (placeOf(from) != placeOf(to) && m_environment->calls->unlink(from.c_str()) != 0) {
            throwSystemError(source, errno);
        }
        return;
    }
    const int result = replacesExisting(option)
                           ? m_environment->calls->rename(from.c_str(), to.c_str())
                           : m_environment->calls->renameToFree(from.c_str(), to.c_str());
    if (result == 0) {
        return;
    }
    const int error = errno;
    const auto allowCopy = static_cast<std::uint32_t>(MoveOption::AllowCopy);
    if (error != EXDEV || (static_cast<std::uint32_t>(option) & allowCopy) == 0) {
        throwSystemError(error == EEXIST ? destination : source, error);
    }
    doCopyFileAtomic(source, destination, option);
    if (m_environment->calls->unlink(from.c_str()) != 0) {
        throwSystemError(source, errno, "copied, but not removed");
    }
}

void LocalFileProvider::doMoveFolder(const StorageIRI& source, const StorageIRI& destination,
                                     MoveOption option) {
    const auto from = toLocalPath(source);
    const auto to = toLocalPath(destination);
    const auto fromStatus = statusOf(source, from);
    if (!isFolderStatus(fromStatus)) {
        throwSystemError(source, ENOENT);
    }
    requireFolderAbove(destination, to);
    const auto toStatus = statusOfItself(destination, to);
    if (isSameItem(statusOfItself(source, from), toStatus) && replacesExisting(option)) {
        return;
    }
    if (toStatus && (!replacesExisting(option) || isFolderStatus(statusOf(destination, to)))) {
        throwSystemError(destination, EEXIST);
    }
    int result = 0;
    if (toStatus) {
        settleReplaced(m_environment, destination, to, toStatus);
        // The system puts no folder in a file's place, so the two change places, and the file goes.
        result = m_environment->calls->exchange(from.c_str(), to.c_str());
        if (result == 0) {
            result = m_environment->calls->unlink(from.c_str());
        }
    } else {
        result = m_environment->calls->renameToFree(from.c_str(), to.c_str());
    }
    if (result == 0) {
        return;
    }
    if (errno == EINVAL) {
        throw Exception(ErrorCode::NotFound, destination, "cannot move a folder into itself");
    }
    throwSystemError(errno == EEXIST ? destination : source, errno);
}

std::unique_ptr<ByteStream> LocalFileProvider::doOpenStream(const StorageIRI& location,
                                                            const ByteStreamOpenOptions& options) {
    return openForWriting(m_environment, location, options);
}

std::unique_ptr<ByteStream> LocalFileProvider::doOpenReadStream(const StorageIRI& location) {
    return openForReading(m_environment, location);
}

std::unique_ptr<ByteStream>
LocalFileProvider::doOpenTransactionalStream(const StorageIRI& location,
                                             const ByteStreamOpenOptions& options) {
    // Every stream for writing is one.
    return openForWriting(m_environment, location, options);
}

std::unique_ptr<IFolderEntryIterator> LocalFileProvider::doListAll(const StorageIRI& folder) {
    return listFolder(folder, toLocalPath(folder), std::nullopt);
}

std::unique_ptr<IFolderEntryIterator> LocalFileProvider::doListFiles(const StorageIRI& folder) {
    return listFolder(folder, toLocalPath(folder), EntryKind::File);
}

std::unique_ptr<IFolderEntryIterator> LocalFileProvider::doListFolders(const StorageIRI& folder) {
    return listFolder(folder, toLocalPath(folder), EntryKind::Folder);
}

void LocalFileProvider::doCopyFile(const StorageIRI& source, const StorageIRI& destination,
                                   MoveOption option) {
    doCopyFileAtomic(source, destination, option);
}

void LocalFileProvider::doCopyFileAtomic(const StorageIRI& source, const StorageIRI& destination,
                                         MoveOption option) {
    const auto from = toLocalPath(source);
    const auto to = toLocalPath(destination);
    const auto fromStatus = statusOf(source, from);
    if (!fromStatus || S_ISDIR(fromStatus->st_mode)) {
        throwSystemError(source, fromStatus ? EISDIR : ENOENT);
    }
    if (!S_ISREG(fromStatus->st_mode)) {
        throw Exception(ErrorCode::NotSupported, source, "not a regular file");
    }
    requireFolderAbove(destination, to);
    if (replacesExisting(option) && isSameItem(fromStatus, statusOf(destination, to))) {
        return;
    }
    settleInterruptedSave(m_environment, source, from, fromStatus);
    const auto file = Descriptor::open(m_environment->calls, from.c_str(), O_RDONLY | O_NONBLOCK);
    struct stat status {};
    if (!file.isOpen() || ::fstat(file.get(), &status) != 0) {
        throwSystemError(source, errno);
    }
    SaveRequest request;
    request.mustNotExist = !replacesExisting(option);
    request.mode = status.st_mode & 0777;
    SaveTransaction save(m_environment, destination, request);
    const auto size = static_cast<std::uint64_t>(status.st_size);
    int error = copyBytes(*m_environment, file.get(), save.file(), size, true);
    if (error == 0) {
        error = setSize(*m_environment, save.file(), size);
    }
    if (error != 0) {
        throwSystemError(destination, error, "cannot copy the contents");
    }
    save.commit();
}

void LocalFileProvider::doTruncateToSize(const StorageIRI& file, std::uint64_t size) {
    SaveRequest request;
    request.mustExist = true;
    request.keep = size;
    const auto path = toLocalPath(file);
    if (isFolderStatus(statusOf(file, path))) {
        throwSystemError(file, EISDIR);
    }
    SaveTransaction save(m_environment, file, request);
    if (const int error = setSize(*m_environment, save.file(), size); error != 0) {
        throwSystemError(file, error);
    }
    save.commit();
}

} // namespace storage::fileprovider
