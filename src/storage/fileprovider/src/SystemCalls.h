#pragma once

#include <storage/fileprovider/Export.h>

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>

namespace storage::fileprovider {

/// A point in time or a duration that is not negative, in nanoseconds.
inline std::uint64_t toNanoseconds(const timespec& time) {
    constexpr std::uint64_t nanosecondsInASecond = 1'000'000'000;
    return static_cast<std::uint64_t>(time.tv_sec) * nanosecondsInASecond +
           static_cast<std::uint64_t>(time.tv_nsec);
}

/// One run of the operating system, from its start to its end.
struct SystemRun {
    /// No other run has it; empty when unknown.
    std::string id;
    /// When it began, in nanoseconds since 1970; 0 when unknown.
    std::uint64_t start = 0;
};

/// The calls to the operating system that read, write or change files. Everything the component does to a
/// file goes through here, so that a test can count the calls, have one fail, or let the program "end" before
/// one.
///
/// Each operation is the POSIX call that its comment names, with its result and `errno`; none is retried
/// here. Threads: any.
class KXFILEPROVIDER_API SystemCalls {
public:
    virtual ~SystemCalls();

    SystemCalls(const SystemCalls&) = delete;
    SystemCalls& operator=(const SystemCalls&) = delete;
    SystemCalls() = default;

    /// open, with O_CLOEXEC added.
    virtual int open(const char* path, int flags, mode_t mode);
    virtual int close(int file);
    virtual int access(const char* path, int mode);
    /// pread.
    virtual ssize_t read(int file, char* buffer, std::size_t count, off_t position);
    /// pwrite.
    virtual ssize_t write(int file, const char* buffer, std::size_t count, off_t position);
    /// copy_file_range.
    virtual ssize_t copyRange(int from, off_t fromPosition, int to, off_t toPosition, std::size_t count);
    /// lseek; used to find holes only.
    virtual off_t seek(int file, off_t offset, int origin);
    /// fallocate of a range with FALLOC_FL_KEEP_SIZE: the file's size stays.
    virtual int allocate(int file, off_t position, off_t length);
    /// ftruncate.
    virtual int truncate(int file, off_t size);
    /// fsync.
    virtual int sync(int file);
    virtual int rename(const char* from, const char* to);
    /// A rename that fails with EEXIST when `to` exists. Where the file system has no such rename, by link
    /// and unlink; where it has no hard links either, by looking first.
    virtual int renameToFree(const char* from, const char* to);
    /// A rename that lets two names change places.
    virtual int exchange(const char* one, const char* other);
    virtual int unlink(const char* path);
    virtual int makeFolder(const char* path, mode_t mode);
    virtual int removeFolder(const char* path);
    /// fchown.
    virtual int setOwner(int file, uid_t user, gid_t group);
    /// fchmod.
    virtual int setMode(int file, mode_t mode);
    /// fsetxattr.
    virtual int setAttribute(int file, const char* name, const void* value, std::size_t size, int flags);
    /// clock_gettime of the clock that file times are taken from.
    virtual timespec now();
    /// fremovexattr.
    virtual int removeAttribute(int file, const char* name);
    /// The run that is under way.
    virtual SystemRun run();
};

} // namespace storage::fileprovider
