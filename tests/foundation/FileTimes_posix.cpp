#include "FileTimes.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>

void setLastModified(const std::filesystem::path& file, std::int64_t seconds, std::int64_t nanoseconds) {
    const timespec times[2] = {{0, UTIME_OMIT}, {seconds, nanoseconds}};
    if (::utimensat(AT_FDCWD, file.c_str(), times, 0) != 0) {
        throw std::system_error(errno, std::generic_category(), file.string());
    }
}
