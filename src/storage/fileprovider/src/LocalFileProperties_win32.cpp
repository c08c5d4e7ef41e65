#include <storage/fileprovider/LocalFileProvider.h>

#include <foundation/storage/provider/Exception.h>
#include <storage/fileprovider/src/WindowsFile.h>
#include <storage/fileprovider/src/WindowsNames.h>
#include <storage/fileprovider/src/WindowsPath.h>
#include <storage/fileprovider/src/WindowsSave.h>

#include <string>

namespace storage::fileprovider {

namespace fs = std::filesystem;
using boost::posix_time::ptime;
using foundation::storage::provider::EntryKind;
using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::Exception;
using foundation::storage::provider::Existence;
using foundation::storage::provider::ExtendedAttributes;
using foundation::storage::provider::Feature;
using foundation::storage::provider::FileAttributes;
using foundation::storage::provider::FilenameSensitivity;
using foundation::storage::provider::FolderAttributes;
using foundation::storage::provider::PathComparator;
using foundation::storage::provider::ProviderStorageInfo;
using foundation::storage::provider::StorageIRI;

namespace {

FileStatus requireStatus(const StorageIRI& location) {
    const auto path = toWindowsPath(location);
    if (path.empty()) {
        FileStatus root;
        root.isFolder = true;
        root.isReadOnly = true;
        return root;
    }
    const auto status = settledStatusOf(path);
    if (!status) {
        throwWindowsError(location, ::GetLastError());
    }
    return *status;
}

/// Windows has no times and no attributes of the folder of all drives.
ptime timeOf(const FileStatus& status) {
    return status.volume == 0 && status.index == 0 ? ptime() : toTime(status.lastWritten);
}

/// The attribute of a folder says nothing about what may be made in it.
bool isWritable(const FileStatus& status) {
    return status.isFolder ? status.index != 0 : !status.isReadOnly;
}

/// What the user may have of the drive that a folder stands on; of the current one for no path.
ProviderStorageInfo spaceAt(const wchar_t* folder) {
    ULARGE_INTEGER available{};
    ULARGE_INTEGER total{};
    if (::GetDiskFreeSpaceExW(folder, &available, &total, nullptr) == 0) {
        return {};
    }
    return {total.QuadPart, available.QuadPart};
}

} // namespace

FileAttributes LocalFileProvider::doGetFileAttributes(const StorageIRI& location) {
    const auto status = requireStatus(location);
    if (status.isFolder) {
        throwWindowsError(location, ERROR_FILE_NOT_FOUND);
    }
    return {status.size, timeOf(status), isWritable(status)};
}

FolderAttributes LocalFileProvider::doGetFolderAttributes(const StorageIRI& location) {
    const auto status = requireStatus(location);
    if (!status.isFolder) {
        throwWindowsError(location, ERROR_DIRECTORY);
    }
    return {timeOf(status), isWritable(status)};
}

void LocalFileProvider::doSetLastModified(const StorageIRI& location, ptime time) {
    const auto path = toWindowsPath(location);
    const auto stamp = toFileTime(time);
    if (!stamp) {
        throw Exception(ErrorCode::InvalidArgument, location, "not a time");
    }
    const auto file = FileHandle::open(path, FILE_WRITE_ATTRIBUTES, OPEN_EXISTING);
    if (!file.isOpen() || ::SetFileTime(file.get(), nullptr, nullptr, &*stamp) == 0) {
        throwWindowsError(location, ::GetLastError(), "cannot set the time");
    }
}

void LocalFileProvider::doSetWritable(const StorageIRI& location, bool writable) {
    const auto path = toWindowsPath(location);
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        throwWindowsError(location, ::GetLastError());
    }
    const DWORD wanted = writable ? attributes & ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY)
                                  : attributes | FILE_ATTRIBUTE_READONLY;
    if (wanted != attributes && ::SetFileAttributesW(path.c_str(), wanted) == 0) {
        throwWindowsError(location, ::GetLastError(), "cannot change the attributes");
    }
}

bool LocalFileProvider::doHasFeature(Feature feature) {
    switch (feature) {
    case Feature::SetLastModified:
    case Feature::SetWritable:
    case Feature::TransactionalStreams:
    case Feature::AtomicCopy:
    case Feature::ChangeEvents:
    case Feature::TruncateToSize:
    case Feature::PreciseTimes:
    case Feature::EmptyFolders:
    case Feature::StorageInfo:
        return true;
    }
    return false;
}

StorageIRI LocalFileProvider::doGetCanonicalLocation(const StorageIRI& location) {
    return toLocation(resolvePath(toWindowsPath(location)));
}

bool LocalFileProvider::doExists(const StorageIRI& location) {
    return doExistsExtended(location) != Existence::Nothing;
}

Existence LocalFileProvider::doExistsExtended(const StorageIRI& location) {
    return doIsFolder(location) ? Existence::Folder
           : doIsFile(location) ? Existence::File
                                : Existence::Nothing;
}

ExtendedAttributes LocalFileProvider::doGetExtendedAttributes(const StorageIRI& location) {
    const auto status = requireStatus(location);
    ExtendedAttributes result{};
    result.kind = status.isFolder ? EntryKind::Folder : EntryKind::File;
    if (!status.isFolder) {
        result.size = status.size;
    }
    result.lastModified = timeOf(status);
    result.writable = isWritable(status);
    result.properties["links"] = std::to_string(status.links);
    const auto path = toWindowsPath(location);
    if (status.isFolder && !path.empty()) {
        if (const auto space = spaceAt(path.c_str()); space.totalBytes) {
            result.properties["spaceTotal"] = std::to_string(*space.totalBytes);
            result.properties["spaceFree"] = std::to_string(*space.freeBytes);
        }
    }
    return result;
}

ProviderStorageInfo LocalFileProvider::doGetProviderStorageInfo() {
    return spaceAt(nullptr);
}

PathComparator LocalFileProvider::doGetPathComparator() {
    return &compareNames;
}

FilenameSensitivity LocalFileProvider::doGetFilenameSensitivity() {
    return FilenameSensitivity::CaseInsensitive;
}

} // namespace storage::fileprovider
