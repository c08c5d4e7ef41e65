#include <windows/support/posix_names.h>

#include <dlfcn.h>
#include <sys/mount.h>
#include <sys/resource.h>

#include <cerrno>
#include <filesystem>
#include <random>
#include <string>
#include <string_view>

#include <windows.h>

#include <psapi.h>

namespace {

std::wstring wideOf(const char* text) {
    const std::string_view narrow(text);
    return std::filesystem::path(std::u8string(narrow.begin(), narrow.end())).wstring();
}

int failUnsupported() {
    errno = ENOSYS;
    return -1;
}

} // namespace

int setenv(const char* name, const wchar_t* value, int overwrite) {
    const std::wstring wideName = wideOf(name);
    if (overwrite == 0 && ::GetEnvironmentVariableW(wideName.c_str(), nullptr, 0) != 0)
        return 0;
    // The C library passes it on to the system.
    return _wputenv_s(wideName.c_str(), value);
}

int setenv(const char* name, const char* value, int overwrite) {
    return setenv(name, wideOf(value).c_str(), overwrite);
}

int unsetenv(const char* name) {
    return setenv(name, L"", 1);
}

char* mkdtemp(char* pattern) {
    std::string_view text(pattern);
    static std::random_device random;
    for (int attempt = 0; attempt < 100; ++attempt) {
        for (std::size_t i = text.size() - 6; i < text.size(); ++i)
            pattern[i] = "0123456789abcdefghijklmnopqrstuv"[random() % 32];
        std::error_code ignored;
        if (std::filesystem::create_directory(wideOf(pattern), ignored))
            return pattern;
    }
    return nullptr;
}

std::tm* gmtime_r(const std::time_t* time, std::tm* result) {
    return ::gmtime_s(result, time) == 0 ? result : nullptr;
}

std::tm* localtime_r(const std::time_t* time, std::tm* result) {
    return ::localtime_s(result, time) == 0 ? result : nullptr;
}

std::time_t timegm(std::tm* time) {
    return ::_mkgmtime(time);
}

void* dlopen(const char* path, int mode) {
    const auto wide = std::filesystem::path(wideOf(path)).make_preferred();
    if (mode != RTLD_NOLOAD)
        return ::LoadLibraryExW(wide.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
    HMODULE library = nullptr;
    ::GetModuleHandleExW(0, wide.c_str(), &library);
    return library;
}

void* dlsym(void* library, const char* name) {
    return reinterpret_cast<void*>(::GetProcAddress(static_cast<HMODULE>(library), name));
}

int dlclose(void* library) {
    return ::FreeLibrary(static_cast<HMODULE>(library)) != 0 ? 0 : -1;
}

const char* dlerror() {
    return "the library cannot be loaded";
}

int getrusage(int, rusage* usage) {
    PROCESS_MEMORY_COUNTERS counters{};
    if (::K32GetProcessMemoryInfo(::GetCurrentProcess(), &counters, sizeof counters) == 0)
        return failUnsupported();
    usage->ru_maxrss = static_cast<long>(counters.PeakWorkingSetSize / 1024);
    return 0;
}

int getrlimit(int, rlimit*) {
    return failUnsupported();
}

int setrlimit(int, const rlimit*) {
    return failUnsupported();
}

int mount(const char*, const wchar_t*, const char*, unsigned long, const void*) {
    return failUnsupported();
}

int umount2(const wchar_t*, int) {
    return failUnsupported();
}
