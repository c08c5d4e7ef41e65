#include "FileTimes.h"

#include <system_error>
#include <windows.h>

void setLastModified(const std::filesystem::path& file, std::int64_t seconds, std::int64_t nanoseconds) {
    constexpr std::int64_t secondsFrom1601To1970 = 11'644'473'600;
    ULARGE_INTEGER ticks{};
    ticks.QuadPart =
        static_cast<ULONGLONG>((seconds + secondsFrom1601To1970) * 10'000'000 + nanoseconds / 100);
    const FILETIME time{ticks.LowPart, ticks.HighPart};
    const HANDLE handle = ::CreateFileW(file.c_str(), FILE_WRITE_ATTRIBUTES, FILE_SHARE_READ, nullptr,
                                        OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    const bool done = handle != INVALID_HANDLE_VALUE && ::SetFileTime(handle, nullptr, nullptr, &time) != 0;
    const auto error = static_cast<int>(::GetLastError());
    ::CloseHandle(handle);
    if (!done) {
        throw std::system_error(error, std::system_category(), file.string());
    }
}
