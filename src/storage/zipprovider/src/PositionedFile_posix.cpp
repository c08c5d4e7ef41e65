#include "PositionedFile.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace storage::zipprovider {

int detail::openPositioned(const std::filesystem::path& accessForm, bool create) noexcept {
    const int creation = create ? O_CREAT | O_TRUNC | O_NOFOLLOW : 0;
    int file = -1;
    do {
        file = ::open(accessForm.c_str(), O_RDWR | O_CLOEXEC | creation, S_IRUSR | S_IWUSR);
    } while (file < 0 && errno == EINTR);
    return file;
}

std::int64_t detail::readAt(int file, char* buffer, std::size_t count, std::uint64_t position) noexcept {
    std::size_t total = 0;
    while (total < count) {
        const auto got = ::pread(file, buffer + total, count - total, static_cast<off_t>(position + total));
        if (got > 0) {
            total += static_cast<std::size_t>(got);
        } else if (got == 0) {
            break;
        } else if (errno != EINTR) {
            return -1;
        }
    }
    return static_cast<std::int64_t>(total);
}

bool detail::writeAt(int file, const char* data, std::size_t count, std::uint64_t position) noexcept {
    for (std::size_t done = 0; done < count;) {
        errno = 0;
        const auto written = ::pwrite(file, data + done, count - done, static_cast<off_t>(position + done));
        if (written > 0) {
            done += static_cast<std::size_t>(written);
        } else if (written == 0 || errno != EINTR) {
            return false;
        }
    }
    return true;
}

std::int64_t detail::sizeOf(int file) noexcept {
    struct stat status {};
    return ::fstat(file, &status) == 0 ? static_cast<std::int64_t>(status.st_size) : -1;
}

bool detail::endAt(int file, std::uint64_t size) noexcept {
    return ::ftruncate(file, static_cast<off_t>(size)) == 0;
}

bool detail::closePositioned(int file) noexcept {
    return ::close(file) == 0;
}

} // namespace storage::zipprovider
