#include <storage/fileprovider/src/FileIo.h>

#include <storage/fileprovider/src/Descriptor.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace storage::fileprovider {

namespace {

// The kernel moves at most 2 GiB less a page by one call.
constexpr std::int64_t largestTransfer = std::int64_t{1} << 30;
constexpr std::int64_t copyBufferSize = std::int64_t{1} << 20;

template <typename Call>
auto retried(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR) {
        result = call();
    }
    return result;
}

/// What copy_file_range says where it does not work at all, as against failing.
bool isNoCopyRange(int error) {
    return error == EXDEV || error == ENOSYS || error == EINVAL || error == EOPNOTSUPP || error == EBADF ||
           error == ETXTBSY || error == EPERM;
}

int copyByBuffer(const Environment& environment, int from, int to, std::uint64_t begin, std::uint64_t end) {
    std::vector<char> buffer(static_cast<std::size_t>(std::min<std::uint64_t>(end - begin, copyBufferSize)));
    while (begin < end) {
        const auto wanted = static_cast<std::int64_t>(std::min<std::uint64_t>(end - begin, buffer.size()));
        const auto got = readAt(environment, from, buffer.data(), wanted, begin);
        if (got <= 0) {
            return got < 0 ? errno : EIO;
        }
        if (const int error = writeAt(environment, to, buffer.data(), got, begin); error != 0) {
            return error;
        }
        begin += static_cast<std::uint64_t>(got);
    }
    return 0;
}

int copyStretch(const Environment& environment, int from, int to, std::uint64_t begin, std::uint64_t end) {
    while (begin < end) {
        const auto wanted = std::min<std::uint64_t>(end - begin, largestTransfer);
        const auto done = retried([&] {
            return environment.calls->copyRange(from, static_cast<off_t>(begin), to,
                                                static_cast<off_t>(begin), static_cast<std::size_t>(wanted));
        });
        if (done < 0 && !isNoCopyRange(errno)) {
            return errno;
        }
        if (done <= 0) {
            // Some file systems report 0 for files that they do not store, so 0 is no proof of the end.
            return copyByBuffer(environment, from, to, begin, end);
        }
        begin += static_cast<std::uint64_t>(done);
    }
    return 0;
}

} // namespace

std::int64_t readAt(const Environment& environment, int file, char* buffer, std::int64_t count,
                    std::uint64_t position) {
    std::int64_t total = 0;
    while (total < count) {
        const auto wanted = static_cast<std::size_t>(std::min(count - total, largestTransfer));
        const auto got = retried([&] {
            return environment.calls->read(file, buffer + total, wanted,
                                           static_cast<off_t>(position) + static_cast<off_t>(total));
        });
        if (got < 0) {
            return -1;
        }
        if (got == 0) {
            break;
        }
        total += got;
    }
    return total;
}

int writeAt(const Environment& environment, int file, const char* buffer, std::int64_t count,
            std::uint64_t position) {
    std::int64_t total = 0;
    while (total < count) {
        const auto wanted = static_cast<std::size_t>(std::min(count - total, largestTransfer));
        const auto done = retried([&] {
            return environment.calls->write(file, buffer + total, wanted,
                                            static_cast<off_t>(position) + static_cast<off_t>(total));
        });
        if (done < 0) {
            return errno;
        }
        if (done == 0) {
            return EIO;
        }
        total += done;
    }
    return 0;
}

int copyBytes(const Environment& environment, int from, int to, std::uint64_t size, bool skipHoles) {
    if (!skipHoles) {
        return copyStretch(environment, from, to, 0, size);
    }
    std::uint64_t position = 0;
    while (position < size) {
        const auto data = environment.calls->seek(from, static_cast<off_t>(position), SEEK_DATA);
        if (data < 0) {
            // ENXIO: nothing but a hole is left.
            return errno == ENXIO ? 0 : copyStretch(environment, from, to, position, size);
        }
        const auto hole = environment.calls->seek(from, data, SEEK_HOLE);
        const auto begin = std::min(static_cast<std::uint64_t>(data), size);
        const auto end = hole < 0 ? size : std::min(static_cast<std::uint64_t>(hole), size);
        if (const int error = copyStretch(environment, from, to, begin, end); error != 0) {
            return error;
        }
        position = end;
    }
    return 0;
}

int reserve(const Environment& environment, int file, std::uint64_t size) {
    if (size == 0 ||
        retried([&] { return environment.calls->allocate(file, 0, static_cast<off_t>(size)); }) == 0) {
        return 0;
    }
    return errno == ENOSYS || errno == EINVAL ? EOPNOTSUPP : errno;
}

int writeZeros(const Environment& environment, int file, std::uint64_t begin, std::uint64_t end) {
    const std::vector<char> zeros(
        static_cast<std::size_t>(std::min<std::uint64_t>(end > begin ? end - begin : 0, copyBufferSize)));
    while (begin < end) {
        const auto count = std::min<std::uint64_t>(end - begin, zeros.size());
        if (const int error =
                writeAt(environment, file, zeros.data(), static_cast<std::int64_t>(count), begin);
            error != 0) {
            return error;
        }
        begin += count;
    }
    return 0;
}

std::optional<bool> isZeroFrom(const Environment& environment, int file, std::uint64_t begin) {
    std::vector<char> buffer(static_cast<std::size_t>(copyBufferSize));
    for (;;) {
        const auto got = readAt(environment, file, buffer.data(), copyBufferSize, begin);
        if (got <= 0) {
            return got == 0 ? std::optional(true) : std::nullopt;
        }
        if (std::any_of(buffer.begin(), buffer.begin() + got, [](char c) { return c != 0; })) {
            return false;
        }
        begin += static_cast<std::uint64_t>(got);
    }
}

std::uint64_t birthTimeOf(int file) {
    struct statx status {};
    if (::statx(file, "", AT_EMPTY_PATH, STATX_BTIME, &status) != 0 || (status.stx_mask & STATX_BTIME) == 0) {
        return 0;
    }
    constexpr std::uint64_t nanosecondsInASecond = 1'000'000'000;
    return static_cast<std::uint64_t>(status.stx_btime.tv_sec) * nanosecondsInASecond +
           status.stx_btime.tv_nsec;
}

int setSize(const Environment& environment, int file, std::uint64_t size) {
    return retried([&] { return environment.calls->truncate(file, static_cast<off_t>(size)); }) == 0 ? 0
                                                                                                     : errno;
}

void keepModified(int file, const struct stat& before) noexcept {
    struct stat status {};
    if (::fstat(file, &status) != 0 || (status.st_mtim.tv_sec == before.st_mtim.tv_sec &&
                                        status.st_mtim.tv_nsec == before.st_mtim.tv_nsec)) {
        return;
    }
    const struct timespec times[] = {{0, UTIME_OMIT}, before.st_mtim};
    static_cast<void>(::futimens(file, times));
}

int syncFile(const Environment& environment, int file) {
    if (!environment.sync) {
        return 0;
    }
    return retried([&] { return environment.calls->sync(file); }) == 0 ? 0 : errno;
}

int syncFolder(const Environment& environment, const std::string& folder) {
    if (!environment.sync) {
        return 0;
    }
    const auto opened = Descriptor::open(environment.calls, folder.c_str(), O_RDONLY | O_DIRECTORY);
    if (!opened.isOpen()) {
        // A folder that may be entered and written but not read cannot be opened to be synced.
        return errno == EACCES ? 0 : errno;
    }
    const int error = syncFile(environment, opened.get());
    return error == EINVAL || error == ENOTSUP ? 0 : error;
}

} // namespace storage::fileprovider
