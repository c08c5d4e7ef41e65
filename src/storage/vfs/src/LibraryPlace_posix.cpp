#include <storage/vfs/src/LibraryPlace.h>

#include <cstdlib>
#include <dlfcn.h>
#include <sstream>

namespace storage::vfs {

std::filesystem::path libraryFolder() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<const void*>(&libraryFolder), &info) == 0 || !info.dli_fname)
        return {};
    std::error_code failure;
    const auto file = std::filesystem::canonical(info.dli_fname, failure);
    return failure ? std::filesystem::path() : file.parent_path();
}

std::string libraryExtension() {
    return ".so";
}

std::vector<std::filesystem::path> environmentPaths(const char* variable) {
    std::vector<std::filesystem::path> paths;
    const char* value = std::getenv(variable);
    if (!value)
        return paths;
    std::istringstream list(value);
    for (std::string path; std::getline(list, path, ':');)
        if (!path.empty())
            paths.emplace_back(path);
    return paths;
}

} // namespace storage::vfs
