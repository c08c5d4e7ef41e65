#include "SharedLibrary.h"

#include <dlfcn.h>

#include <filesystem>
#include <system_error>

namespace cppmicroservices {

namespace {

void* load(const std::string& path) {
    // A name without "/" would be looked for in the loader's search path.
    const std::filesystem::path absolute = std::filesystem::absolute(path);
    void* const handle = ::dlopen(absolute.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle)
        return handle;
    const char* const reason = ::dlerror();
    std::error_code ignored;
    const std::errc code = std::filesystem::exists(absolute, ignored) ? std::errc::executable_format_error
                                                                      : std::errc::no_such_file_or_directory;
    throw LibraryLoadError(code, reason ? reason : "the loader gives no reason");
}

} // namespace

SharedLibrary::SharedLibrary(const std::string& path) : m_handle(load(path)) {}

SharedLibrary::~SharedLibrary() {
    if (!m_isPinned)
        ::dlclose(m_handle);
}

void* SharedLibrary::address(const std::string& name) const noexcept {
    return ::dlsym(m_handle, name.c_str());
}

} // namespace cppmicroservices
