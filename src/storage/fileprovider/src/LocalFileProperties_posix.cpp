#include <storage/fileprovider/LocalFileProvider.h>

#include <fl/i18n/utf8.h>
#include <foundation/storage/provider/Exception.h>
#include <storage/fileprovider/src/Environment.h>
#include <storage/fileprovider/src/Failure.h>
#include <storage/fileprovider/src/LocalPath.h>

#include <boost/date_time/gregorian/gregorian_types.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <vector>

namespace storage::fileprovider {

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
using foundation::storage::provider::IProvider;
using foundation::storage::provider::PathComparator;
using foundation::storage::provider::ProviderStorageInfo;
using foundation::storage::provider::StorageIRI;

namespace {

constexpr mode_t anyWriteBit = S_IWUSR | S_IWGRP | S_IWOTH;
constexpr mode_t permissionBits = 07777;
constexpr long nanosecondsPerMicrosecond = 1000;

const ptime& epoch() {
    static const ptime instance(boost::gregorian::date(1970, 1, 1));
    return instance;
}

/// not_a_date_time outside the years that the type knows.
ptime toTime(const timespec& time) {
    static const auto first = (ptime(boost::gregorian::date(1400, 1, 1)) - epoch()).total_seconds();
    static const auto last = (ptime(boost::gregorian::date(9999, 12, 31)) - epoch()).ticks() /
                             boost::posix_time::time_duration::ticks_per_second();
    if (time.tv_sec < static_cast<time_t>(first) || time.tv_sec > static_cast<time_t>(last)) {
        return {};
    }
    // A duration of seconds is limited to 32 bits in some versions; hours are not at risk.
    return epoch() + boost::posix_time::hours(static_cast<long>(time.tv_sec / 3600)) +
           boost::posix_time::seconds(static_cast<long>(time.tv_sec % 3600)) +
           boost::posix_time::microseconds(time.tv_nsec / nanosecondsPerMicrosecond);
}

timespec toTimespec(const ptime& time) {
    const auto ticks = (time - epoch()).total_microseconds();
    constexpr std::int64_t perSecond = 1'000'000;
    auto seconds = ticks / perSecond;
    auto rest = ticks % perSecond;
    if (rest < 0) {
        --seconds;
        rest += perSecond;
    }
    timespec result{};
    result.tv_sec = static_cast<time_t>(seconds);
    result.tv_nsec = static_cast<long>(rest) * nanosecondsPerMicrosecond;
    return result;
}

struct stat requireStatus(const StorageIRI& location, const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        throwSystemError(location, errno);
    }
    return status;
}

bool isWritable(const StorageIRI& location, const struct stat& status, const std::string& path) {
    if ((status.st_mode & anyWriteBit) == 0) {
        return false;
    }
    if (::faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) == 0) {
        return true;
    }
    if (errno != EACCES && errno != EPERM && errno != EROFS && errno != ETXTBSY) {
        throwSystemError(location, errno, "cannot tell whether it may be written");
    }
    return false;
}

/// Calls a function like getpwuid_r, which wants a buffer for the texts, and gives the name in its result.
template <typename Entry, typename Id>
std::string nameById(int (*find)(Id, Entry*, char*, std::size_t, Entry**), char* Entry::*name, Id id) {
    std::vector<char> buffer(4096);
    Entry entry{};
    Entry* found = nullptr;
    while (find(id, &entry, buffer.data(), buffer.size(), &found) == ERANGE && buffer.size() < (1U << 20)) {
        buffer.resize(buffer.size() * 2);
    }
    return found != nullptr ? std::string(found->*name) : std::to_string(id);
}

/// "rw-r--r--", with the marks of "s" and "t" that ls has.
std::string permissionText(mode_t mode) {
    std::string text = "---------";
    for (std::size_t i = 0; i < text.size(); ++i) {
        if ((mode & (mode_t{0400} >> i)) != 0) {
            text[i] = "rwx"[i % 3];
        }
    }
    const auto special = [&](mode_t bit, std::size_t at, char mark) {
        if ((mode & bit) != 0) {
            text[at] = text[at] == 'x' ? mark : static_cast<char>(mark - 'a' + 'A');
        }
    };
    special(S_ISUID, 2, 's');
    special(S_ISGID, 5, 's');
    special(S_ISVTX, 8, 't');
    return text;
}

/// The space of the file system that `path` is on.
ProviderStorageInfo spaceAt(const char* path) {
    struct statvfs info {};
    if (::statvfs(path, &info) != 0) {
        return {};
    }
    const auto block = static_cast<std::uint64_t>(info.f_frsize);
    return {info.f_blocks * block, info.f_bavail * block};
}

} // namespace

FileAttributes LocalFileProvider::doGetFileAttributes(const StorageIRI& location) {
    const auto path = toLocalPath(location);
    const auto status = requireStatus(location, path);
    if (S_ISDIR(status.st_mode)) {
        throwSystemError(location, EISDIR);
    }
    const auto size =
        S_ISREG(status.st_mode) ? std::optional(static_cast<std::uint64_t>(status.st_size)) : std::nullopt;
    return {size, toTime(status.st_mtim), isWritable(location, status, path)};
}

FolderAttributes LocalFileProvider::doGetFolderAttributes(const StorageIRI& location) {
    const auto path = toLocalPath(location);
    const auto status = requireStatus(location, path);
    if (!S_ISDIR(status.st_mode)) {
        throwSystemError(location, ENOTDIR);
    }
    return {toTime(status.st_mtim), isWritable(location, status, path)};
}

void LocalFileProvider::doSetLastModified(const StorageIRI& location, ptime time) {
    const auto path = toLocalPath(location);
    if (time.is_special()) {
        throw Exception(ErrorCode::InvalidArgument, location, "not a time");
    }
    timespec times[2] = {};
    times[0].tv_nsec = UTIME_OMIT;
    times[1] = toTimespec(time);
    if (::utimensat(AT_FDCWD, path.c_str(), times, 0) != 0) {
        throwSystemError(location, errno, "cannot set the time");
    }
}

void LocalFileProvider::doSetWritable(const StorageIRI& location, bool writable) {
    const auto path = toLocalPath(location);
    const auto mode = requireStatus(location, path).st_mode & permissionBits;
    const auto wanted = writable ? mode | S_IWUSR : mode & ~anyWriteBit;
    if (wanted != mode && ::chmod(path.c_str(), wanted) != 0) {
        throwSystemError(location, errno, "cannot change the permissions");
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
    return toLocation(resolveAsFarAsPossible(toLocalPath(location)));
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
    const auto path = toLocalPath(location);
    const auto status = requireStatus(location, path);
    ExtendedAttributes result{};
    result.kind = S_ISDIR(status.st_mode) ? EntryKind::Folder : EntryKind::File;
    if (S_ISREG(status.st_mode)) {
        result.size = static_cast<std::uint64_t>(status.st_size);
    }
    result.lastModified = toTime(status.st_mtim);
    result.writable = isWritable(location, status, path);
    result.properties["owner"] = nameById(&::getpwuid_r, &passwd::pw_name, status.st_uid);
    result.properties["group"] = nameById(&::getgrgid_r, &group::gr_name, status.st_gid);
    result.properties["permissions"] = permissionText(status.st_mode);
    result.properties["links"] = std::to_string(status.st_nlink);
    if (const auto space = spaceAt(path.c_str()); space.totalBytes && S_ISDIR(status.st_mode)) {
        result.properties["spaceTotal"] = std::to_string(*space.totalBytes);
        result.properties["spaceFree"] = std::to_string(*space.freeBytes);
    }
    std::string link(PATH_MAX, '\0');
    if (const auto size = ::readlink(path.c_str(), link.data(), link.size()); size > 0) {
        link.resize(static_cast<std::size_t>(size));
        // Bytes that are not UTF-8 become U+FFFD on the way.
        result.properties["linkTarget"] = fl::i18n::toUtf8(fl::i18n::fromUtf8(link));
    }
    return result;
}

ProviderStorageInfo LocalFileProvider::doGetProviderStorageInfo() {
    return spaceAt("/");
}

PathComparator LocalFileProvider::doGetPathComparator() {
    return IProvider::doGetPathComparator();
}

FilenameSensitivity LocalFileProvider::doGetFilenameSensitivity() {
    return FilenameSensitivity::CaseSensitive;
}

} // namespace storage::fileprovider
