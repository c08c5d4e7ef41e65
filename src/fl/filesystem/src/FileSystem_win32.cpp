#include "failure.h"

#include <fl/filesystem/detail/path_forms.h>
#include <fl/filesystem/detail/windows_error.h>
#include <fl/filesystem/operations.h>

#include <windows.h>

#include <algorithm>
#include <cerrno>

namespace fl::filesystem {

namespace {

using boost::posix_time::ptime;

/// The longest path that every function of the system takes without the prefix, with room for a name of 8.3
/// form.
constexpr std::size_t longestPlainPath = 247;

std::filesystem::path accessForm(const path& item) {
    return detail::make_access_form(detail::to_filesystem(item));
}

class Handle {
public:
    explicit Handle(HANDLE handle) : m_handle(handle) {}
    ~Handle() {
        if (m_handle != INVALID_HANDLE_VALUE) {
            ::CloseHandle(m_handle);
        }
    }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;

    HANDLE get() const { return m_handle; }

private:
    HANDLE m_handle;
};

/// Asking for attributes alone never conflicts with what others do with the file. Links are followed.
HANDLE openForAttributes(const path& item) {
    return ::CreateFileW(accessForm(item).c_str(), FILE_READ_ATTRIBUTES,
                         FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                         FILE_FLAG_BACKUP_SEMANTICS, nullptr);
}

ptime timeOf(const FILETIME& stamp) {
    ULARGE_INTEGER ticks{};
    ticks.LowPart = stamp.dwLowDateTime;
    ticks.HighPart = stamp.dwHighDateTime;
    constexpr std::uint64_t ticksPerMicrosecond = 10;
    constexpr std::uint64_t microsecondsPerHour = 3'600'000'000;
    constexpr std::uint64_t lastHour = (9999 - 1601 + 1) * 8766ULL;
    const std::uint64_t microseconds = ticks.QuadPart / ticksPerMicrosecond;
    const std::uint64_t hours = microseconds / microsecondsPerHour;
    if (hours >= lastHour) {
        return ptime(boost::posix_time::not_a_date_time);
    }
    return ptime(boost::gregorian::date(1601, 1, 1)) + boost::posix_time::hours(static_cast<long>(hours)) +
           boost::posix_time::microseconds(static_cast<std::int64_t>(microseconds % microsecondsPerHour));
}

bool isMissing(const std::error_code& error) {
    return error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory;
}

/// Removes what is at the path and no folder with something in it; false when nothing is there.
bool removeOne(const path& item) {
    const auto name = accessForm(item);
    const DWORD attributes = ::GetFileAttributesW(name.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES) {
        const bool isFolder = (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
        if ((isFolder ? ::RemoveDirectoryW(name.c_str()) : ::DeleteFileW(name.c_str())) != 0) {
            return true;
        }
    }
    const auto error = detail::lastWindowsError();
    if (!isMissing(error)) {
        detail::fail("remove", item, error);
    }
    return false;
}

bool isRealFolder(const path& item) {
    const DWORD attributes = ::GetFileAttributesW(accessForm(item).c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 &&
           (attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0;
}

} // namespace

bool exists(const path& item) {
    const Handle handle(openForAttributes(item));
    if (handle.get() != INVALID_HANDLE_VALUE) {
        return true;
    }
    const auto error = detail::lastWindowsError();
    if (!isMissing(error) && error != std::errc::invalid_argument) {
        detail::fail("look for", item, error);
    }
    return false;
}

file_status status(const path& item) {
    const Handle handle(openForAttributes(item));
    BY_HANDLE_FILE_INFORMATION found{};
    if (handle.get() == INVALID_HANDLE_VALUE || ::GetFileInformationByHandle(handle.get(), &found) == 0) {
        detail::fail("read the attributes of", item, detail::lastWindowsError());
    }
    const bool isFolder = (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    const auto size = (static_cast<std::uint64_t>(found.nFileSizeHigh) << 32U) | found.nFileSizeLow;
    return {isFolder ? std::filesystem::file_type::directory : std::filesystem::file_type::regular, size,
            timeOf(found.ftLastWriteTime)};
}

bool remove(const path& item) {
    return removeOne(item);
}

std::uint64_t remove_all(const path& item) {
    std::uint64_t removed = 0;
    if (isRealFolder(item)) {
        std::error_code error;
        for (std::filesystem::directory_iterator entry(accessForm(item), error), end; !error && entry != end;
             entry.increment(error)) {
            removed += fl::filesystem::remove_all(entry->path());
        }
        if (error) {
            detail::fail("remove", item, error);
        }
    }
    return removed + (removeOne(item) ? 1 : 0);
}

path detail::make_native_form(i18n::ustring_view name, bool preferredSeparators) {
    path native{std::u16string(name)};
    if (preferredSeparators) {
        native.make_preferred();
    }
    return native;
}

std::filesystem::path detail::to_filesystem(const path& item) {
    return item;
}

std::filesystem::path detail::make_access_form(const std::filesystem::path& item) {
    const std::wstring& text = item.native();
    if (text.starts_with(L"\\\\?\\") || text.starts_with(L"\\\\.\\")) {
        return item;
    }
    std::error_code error;
    std::filesystem::path whole = std::filesystem::absolute(item, error);
    if (error || whole.native().size() <= longestPlainPath) {
        return item;
    }
    whole = whole.lexically_normal();
    whole.make_preferred();
    const std::wstring& native = whole.native();
    return native.starts_with(L"\\\\") ? L"\\\\?\\UNC\\" + native.substr(2) : L"\\\\?\\" + native;
}

} // namespace fl::filesystem
