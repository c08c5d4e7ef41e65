#include "WorkingFileTime.h"

#include <fl/filesystem/detail/path_forms.h>

#include <windows.h>

namespace storage::zipprovider {

namespace {

HANDLE open(const fl::filesystem::path& path, DWORD access) {
    return ::CreateFileW(fl::filesystem::detail::make_access_form(path).c_str(), access,
                         FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                         FILE_ATTRIBUTE_NORMAL, nullptr);
}

} // namespace

// The C++ library sets whole seconds.
void copyLastModified(const fl::filesystem::path& from, const fl::filesystem::path& to) noexcept {
    const HANDLE source = open(from, FILE_READ_ATTRIBUTES);
    const HANDLE target = open(to, FILE_WRITE_ATTRIBUTES);
    FILETIME time{};
    if (source != INVALID_HANDLE_VALUE && target != INVALID_HANDLE_VALUE &&
        ::GetFileTime(source, nullptr, nullptr, &time) != 0) {
        ::SetFileTime(target, nullptr, nullptr, &time);
    }
    for (const HANDLE handle : {source, target}) {
        if (handle != INVALID_HANDLE_VALUE) {
            ::CloseHandle(handle);
        }
    }
}

} // namespace storage::zipprovider
