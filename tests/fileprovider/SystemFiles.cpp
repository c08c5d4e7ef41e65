#include "LocalFilesTest.h"

#include <sys/xattr.h>
#include <unistd.h>

namespace kx::test {

namespace fs = std::filesystem;

struct stat statusOf(const fs::path& path) {
    struct stat status {};
    EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
    return status;
}

std::string attributeOf(const fs::path& path, const char* name) {
    std::string value(4096, '\0');
    const auto size = ::lgetxattr(path.c_str(), name, value.data(), value.size());
    value.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
    return value;
}

bool setAttributeOf(const fs::path& path, const char* name, std::string_view value) {
    return ::lsetxattr(path.c_str(), name, value.data(), value.size(), 0) == 0;
}

bool isSuperuser() {
    return ::geteuid() == 0;
}

} // namespace kx::test
