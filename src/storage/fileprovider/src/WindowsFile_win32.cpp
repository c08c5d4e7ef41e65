#include <storage/fileprovider/src/WindowsFile.h>

#include <fl/filesystem/detail/windows_error.h>
#include <fl/i18n/utf8.h>
#include <storage/fileprovider/src/Failure.h>

#include <boost/date_time/gregorian/gregorian_types.hpp>

#include <algorithm>
#include <vector>

namespace storage::fileprovider {

using boost::posix_time::ptime;
using foundation::storage::provider::StorageIRI;

namespace {

constexpr DWORD shareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
// What one call of the system takes.
constexpr std::int64_t largestPiece = 1 << 30;
constexpr std::size_t copyBuffer = 1 << 20;
constexpr std::int64_t ticksPerMicrosecond = 10;
constexpr std::int64_t microsecondsPerHour = 3'600'000'000;

const ptime& firstTime() {
    static const ptime instance(boost::gregorian::date(1601, 1, 1));
    return instance;
}

OVERLAPPED at(std::uint64_t position) {
    OVERLAPPED place{};
    place.Offset = static_cast<DWORD>(position);
    place.OffsetHigh = static_cast<DWORD>(position >> 32U);
    return place;
}

std::optional<FileStatus> statusWith(const std::filesystem::path& path, DWORD flags) noexcept {
    const auto file = FileHandle::open(path, FILE_READ_ATTRIBUTES, OPEN_EXISTING, flags);
    return file.isOpen() ? statusOf(file.get()) : std::nullopt;
}

} // namespace

FileHandle FileHandle::open(const std::filesystem::path& path, DWORD access, DWORD disposition,
                            DWORD flags) noexcept {
    return FileHandle(::CreateFileW(path.c_str(), access, shareAll, nullptr, disposition,
                                    flags | FILE_FLAG_BACKUP_SEMANTICS, nullptr));
}

void FileHandle::close() noexcept {
    if (const HANDLE handle = std::exchange(m_handle, INVALID_HANDLE_VALUE); handle != INVALID_HANDLE_VALUE) {
        ::CloseHandle(handle);
    }
}

std::optional<FileStatus> statusOf(HANDLE file) noexcept {
    BY_HANDLE_FILE_INFORMATION found{};
    if (::GetFileInformationByHandle(file, &found) == 0) {
        return std::nullopt;
    }
    FileStatus status;
    status.isFolder = (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    status.isReadOnly = (found.dwFileAttributes & FILE_ATTRIBUTE_READONLY) != 0;
    status.isLink = (found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
    status.size = (static_cast<std::uint64_t>(found.nFileSizeHigh) << 32U) | found.nFileSizeLow;
    status.lastWritten = found.ftLastWriteTime;
    status.volume = found.dwVolumeSerialNumber;
    status.index = (static_cast<std::uint64_t>(found.nFileIndexHigh) << 32U) | found.nFileIndexLow;
    status.links = found.nNumberOfLinks;
    return status;
}

std::optional<FileStatus> statusOf(const std::filesystem::path& path) noexcept {
    return statusWith(path, 0);
}

std::optional<FileStatus> statusOfItself(const std::filesystem::path& path) noexcept {
    return statusWith(path, FILE_FLAG_OPEN_REPARSE_POINT);
}

ptime toTime(const FILETIME& time) {
    ULARGE_INTEGER ticks{};
    ticks.LowPart = time.dwLowDateTime;
    ticks.HighPart = time.dwHighDateTime;
    static const auto last = (ptime(boost::gregorian::date(9999, 12, 31)) - firstTime()).hours();
    const auto microseconds = static_cast<std::int64_t>(ticks.QuadPart / ticksPerMicrosecond);
    const auto hours = microseconds / microsecondsPerHour;
    if (hours > last) {
        return {};
    }
    return firstTime() + boost::posix_time::hours(static_cast<long>(hours)) +
           boost::posix_time::microseconds(microseconds % microsecondsPerHour);
}

std::optional<FILETIME> toFileTime(const ptime& time) {
    if (time.is_special() || time < firstTime()) {
        return std::nullopt;
    }
    ULARGE_INTEGER ticks{};
    ticks.QuadPart = static_cast<ULONGLONG>((time - firstTime()).total_microseconds() * ticksPerMicrosecond);
    return FILETIME{ticks.LowPart, ticks.HighPart};
}

std::int64_t readAt(HANDLE file, char* buffer, std::int64_t count, std::uint64_t position) noexcept {
    std::int64_t done = 0;
    while (done < count) {
        OVERLAPPED place = at(position + static_cast<std::uint64_t>(done));
        DWORD got = 0;
        const auto piece = static_cast<DWORD>(std::min(count - done, largestPiece));
        if (::ReadFile(file, buffer + done, piece, &got, &place) == 0 &&
            ::GetLastError() != ERROR_HANDLE_EOF) {
            return -1;
        }
        if (got == 0) {
            break;
        }
        done += got;
    }
    return done;
}

bool writeAt(HANDLE file, const char* buffer, std::int64_t count, std::uint64_t position) noexcept {
    while (count > 0) {
        OVERLAPPED place = at(position);
        DWORD put = 0;
        if (::WriteFile(file, buffer, static_cast<DWORD>(std::min(count, largestPiece)), &put, &place) == 0) {
            return false;
        }
        buffer += put;
        count -= put;
        position += put;
    }
    return true;
}

bool copyBytes(HANDLE from, HANDLE to, std::uint64_t size) {
    std::vector<char> buffer(static_cast<std::size_t>(std::min<std::uint64_t>(size, copyBuffer)));
    for (std::uint64_t position = 0; position < size;) {
        const auto wanted =
            static_cast<std::int64_t>(std::min<std::uint64_t>(size - position, buffer.size()));
        const auto got = readAt(from, buffer.data(), wanted, position);
        if (got < 0) {
            return false;
        }
        if (got == 0) {
            ::SetLastError(ERROR_HANDLE_EOF);
            return false;
        }
        if (!writeAt(to, buffer.data(), got, position)) {
            return false;
        }
        position += static_cast<std::uint64_t>(got);
    }
    return true;
}

bool setSize(HANDLE file, std::uint64_t size) noexcept {
    FILE_END_OF_FILE_INFO end{};
    end.EndOfFile.QuadPart = static_cast<LONGLONG>(size);
    return ::SetFileInformationByHandle(file, FileEndOfFileInfo, &end, sizeof end) != 0;
}

LockResult lockFile(HANDLE file, bool wait) noexcept {
    OVERLAPPED place{};
    place.Offset = 0xFFFFFFF0;
    place.OffsetHigh = 0x7FFFFFFF;
    const DWORD flags = LOCKFILE_EXCLUSIVE_LOCK | (wait ? 0 : LOCKFILE_FAIL_IMMEDIATELY);
    if (::LockFileEx(file, flags, 0, 1, 0, &place) != 0) {
        return LockResult::Locked;
    }
    const DWORD error = ::GetLastError();
    return error == ERROR_LOCK_VIOLATION || error == ERROR_IO_PENDING ? LockResult::Held
                                                                      : LockResult::Impossible;
}

void throwWindowsError(const StorageIRI& iri, DWORD error, std::string_view doing) {
    throwSystemError(iri, fl::filesystem::detail::toErrno(error), doing);
}

std::string textOf(const std::filesystem::path& path) {
    return fl::i18n::toUtf8(path.u16string());
}

} // namespace storage::fileprovider
