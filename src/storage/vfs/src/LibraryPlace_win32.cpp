#include <storage/vfs/src/LibraryPlace.h>

#include <windows.h>

#include <algorithm>

namespace storage::vfs {

namespace {

constexpr std::size_t longestPath = 32768;

} // namespace

std::filesystem::path libraryFolder() {
    HMODULE library = nullptr;
    if (::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS |
                                 GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                             reinterpret_cast<LPCWSTR>(&libraryFolder), &library) == 0)
        return {};
    std::wstring file(longestPath, L'\0');
    file.resize(::GetModuleFileNameW(library, file.data(), static_cast<DWORD>(file.size())));
    return std::filesystem::path(file).parent_path();
}

std::string libraryExtension() {
    return ".dll";
}

std::vector<std::filesystem::path> environmentPaths(const char* variable) {
    const std::wstring name(variable, std::find(variable, variable + longestPath, '\0'));
    std::wstring list(longestPath, L'\0');
    list.resize(::GetEnvironmentVariableW(name.c_str(), list.data(), static_cast<DWORD>(list.size())));
    std::vector<std::filesystem::path> paths;
    for (std::size_t start = 0; start < list.size();) {
        const auto end = std::min(list.find(L';', start), list.size());
        if (end > start)
            paths.emplace_back(list.substr(start, end - start));
        start = end + 1;
    }
    return paths;
}

} // namespace storage::vfs
