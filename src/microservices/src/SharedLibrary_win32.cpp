#include "SharedLibrary.h"

#include <windows.h>

#include <filesystem>
#include <system_error>

namespace cppmicroservices {

namespace {

std::filesystem::path fromUtf8(const std::string& path) {
    return std::filesystem::path(std::u8string(path.begin(), path.end()));
}

void* load(const std::string& path) {
    std::filesystem::path absolute = std::filesystem::absolute(fromUtf8(path));
    absolute.make_preferred();
    // Libraries that it needs are looked for beside it as well.
    HMODULE const handle = ::LoadLibraryExW(absolute.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
    if (handle)
        return handle;
    const DWORD error = ::GetLastError();
    std::error_code ignored;
    const std::errc code = std::filesystem::exists(absolute, ignored) ? std::errc::executable_format_error
                                                                      : std::errc::no_such_file_or_directory;
    throw LibraryLoadError(code, "the loader's error is " + std::to_string(error));
}

} // namespace

SharedLibrary::SharedLibrary(const std::string& path) : m_handle(load(path)) {}

SharedLibrary::~SharedLibrary() {
    if (!m_isPinned)
        ::FreeLibrary(static_cast<HMODULE>(m_handle));
}

void* SharedLibrary::address(const std::string& name) const noexcept {
    return reinterpret_cast<void*>(::GetProcAddress(static_cast<HMODULE>(m_handle), name.c_str()));
}

} // namespace cppmicroservices
