#include <storage/fileprovider/src/SystemCalls.h>

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace storage::fileprovider {

SystemCalls::~SystemCalls() = default;

int SystemCalls::open(const char* path, int flags, mode_t mode) {
    return ::open(path, flags | O_CLOEXEC, mode);
}

int SystemCalls::close(int file) {
    return ::close(file);
}

int SystemCalls::access(const char* path, int mode) {
    return ::access(path, mode);
}

ssize_t SystemCalls::read(int file, char* buffer, std::size_t count, off_t position) {
    return ::pread(file, buffer, count, position);
}

ssize_t SystemCalls::write(int file, const char* buffer, std::size_t count, off_t position) {
    return ::pwrite(file, buffer, count, position);
}

ssize_t SystemCalls::copyRange(int from, off_t fromPosition, int to, off_t toPosition, std::size_t count) {
    return ::copy_file_range(from, &fromPosition, to, &toPosition, count, 0);
}

off_t SystemCalls::seek(int file, off_t offset, int origin) {
    return ::lseek(file, offset, origin);
}

int SystemCalls::allocate(int file, off_t position, off_t length) {
    return ::fallocate(file, FALLOC_FL_KEEP_SIZE, position, length);
}

int SystemCalls::truncate(int file, off_t size) {
    return ::ftruncate(file, size);
}

int SystemCalls::sync(int file) {
    return ::fsync(file);
}

int SystemCalls::rename(const char* from, const char* to) {
    return ::rename(from, to);
}

int SystemCalls::renameToFree(const char* from, const char* to) {
    if (::renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0) {
        return 0;
    }
    if (errno != EINVAL && errno != ENOSYS) {
        return -1;
    }
    if (::link(from, to) == 0) {
        if (::unlink(from) == 0) {
            return 0;
        }
        const int error = errno;
        ::unlink(to);
        errno = error;
        return -1;
    }
    if (errno != EPERM && errno != EOPNOTSUPP && errno != ENOSYS) {
        return -1;
    }
    struct stat existing {};
    if (::lstat(to, &existing) == 0) {
        errno = EEXIST;
        return -1;
    }
    return ::rename(from, to);
}

int SystemCalls::exchange(const char* one, const char* other) {
    return ::renameat2(AT_FDCWD, one, AT_FDCWD, other, RENAME_EXCHANGE);
}

int SystemCalls::unlink(const char* path) {
    return ::unlink(path);
}

int SystemCalls::makeFolder(const char* path, mode_t mode) {
    return ::mkdir(path, mode);
}

int SystemCalls::removeFolder(const char* path) {
    return ::rmdir(path);
}

int SystemCalls::setOwner(int file, uid_t user, gid_t group) {
    return ::fchown(file, user, group);
}

int SystemCalls::setMode(int file, mode_t mode) {
    return ::fchmod(file, mode);
}

int SystemCalls::setAttribute(int file, const char* name, const void* value, std::size_t size, int flags) {
    return ::fsetxattr(file, name, value, size, flags);
}

timespec SystemCalls::now() {
    timespec time{};
    static_cast<void>(::clock_gettime(CLOCK_REALTIME, &time));
    return time;
}

int SystemCalls::removeAttribute(int file, const char* name) {
    return ::fremovexattr(file, name);
}

SystemRun SystemCalls::run() {
    SystemRun run;
    std::ifstream file("/proc/sys/kernel/random/boot_id");
    std::getline(file, run.id);
    timespec time{};
    timespec sinceStart{};
    if (::clock_gettime(CLOCK_REALTIME, &time) == 0 && ::clock_gettime(CLOCK_BOOTTIME, &sinceStart) == 0) {
        // A clock that was set back, or never set, does not tell.
        const auto now = toNanoseconds(time);
        const auto since = toNanoseconds(sinceStart);
        run.start = now > since ? now - since : 0;
    }
    return run;
}

} // namespace storage::fileprovider
