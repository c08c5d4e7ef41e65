#include "PositionedFile.h"

#include <fl/filesystem/detail/windows_error.h>

#include <windows.h>

#include <fcntl.h>
#include <io.h>

#include <algorithm>
#include <cerrno>

namespace storage::zipprovider {

namespace {

// What one call of the system takes.
constexpr std::size_t largestPiece = std::size_t{1} << 30U;

HANDLE handleOf(int file) {
    return reinterpret_cast<HANDLE>(::_get_osfhandle(file));
}

OVERLAPPED at(std::uint64_t position) {
    OVERLAPPED place{};
    place.Offset = static_cast<DWORD>(position);
    place.OffsetHigh = static_cast<DWORD>(position >> 32U);
    return place;
}

bool succeeded(BOOL result) {
    if (result == 0) {
        errno = fl::filesystem::detail::lastWindowsError().value();
    }
    return result != 0;
}

} // namespace

int detail::openPositioned(const std::filesystem::path& accessForm, bool create) noexcept {
    const HANDLE handle =
        ::CreateFileW(accessForm.c_str(), GENERIC_READ | GENERIC_WRITE,
                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                      create ? CREATE_ALWAYS : OPEN_EXISTING,
                      FILE_ATTRIBUTE_NORMAL | (create ? FILE_FLAG_OPEN_REPARSE_POINT : 0), nullptr);
    if (!succeeded(handle != INVALID_HANDLE_VALUE)) {
        return -1;
    }
    const int file = ::_open_osfhandle(reinterpret_cast<std::intptr_t>(handle), _O_RDWR | _O_BINARY);
    if (file < 0) {
        ::CloseHandle(handle);
        errno = EMFILE;
    }
    return file;
}

std::int64_t detail::readAt(int file, char* buffer, std::size_t count, std::uint64_t position) noexcept {
    std::size_t total = 0;
    while (total < count) {
        OVERLAPPED place = at(position + total);
        DWORD got = 0;
        const auto piece = static_cast<DWORD>(std::min(count - total, largestPiece));
        if (::ReadFile(handleOf(file), buffer + total, piece, &got, &place) == 0 &&
            ::GetLastError() != ERROR_HANDLE_EOF) {
            succeeded(FALSE);
            return -1;
        }
        if (got == 0) {
            break;
        }
        total += got;
    }
    return static_cast<std::int64_t>(total);
}

bool detail::writeAt(int file, const char* data, std::size_t count, std::uint64_t position) noexcept {
    for (std::size_t done = 0; done < count;) {
        OVERLAPPED place = at(position + done);
        DWORD written = 0;
        const auto piece = static_cast<DWORD>(std::min(count - done, largestPiece));
        if (!succeeded(::WriteFile(handleOf(file), data + done, piece, &written, &place))) {
            return false;
        }
        done += written;
    }
    return true;
}

std::int64_t detail::sizeOf(int file) noexcept {
    LARGE_INTEGER size{};
    return succeeded(::GetFileSizeEx(handleOf(file), &size)) ? size.QuadPart : -1;
}

bool detail::endAt(int file, std::uint64_t size) noexcept {
    FILE_END_OF_FILE_INFO end{};
    end.EndOfFile.QuadPart = static_cast<LONGLONG>(size);
    return succeeded(::SetFileInformationByHandle(handleOf(file), FileEndOfFileInfo, &end, sizeof end));
}

bool detail::closePositioned(int file) noexcept {
    return ::_close(file) == 0;
}

} // namespace storage::zipprovider
