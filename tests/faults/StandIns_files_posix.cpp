#include "StandIn.h"

#include <cstdarg>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/types.h>
#include <sys/uio.h>

// Each stands in for the function of the name in its assembler label (StandIn.h).
extern "C" {

using namespace kx::test;
using namespace kx::test::detail;

KX_STAND_IN(int, open, (const char* path, int flags, ...)) {
    static const auto call = next<int(const char*, int, mode_t)>("open");
    std::va_list rest;
    va_start(rest, flags);
    const auto mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : mode_t{0};
    va_end(rest);
    return guarded("open", CallKind::Interruptible, [&] { return call(path, flags, mode); });
}

KX_STAND_IN(int, open64, (const char* path, int flags, ...)) {
    static const auto call = next<int(const char*, int, mode_t)>("open64");
    std::va_list rest;
    va_start(rest, flags);
    const auto mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : mode_t{0};
    va_end(rest);
    return guarded("open", CallKind::Interruptible, [&] { return call(path, flags, mode); });
}

KX_STAND_IN(int, openat, (int folder, const char* path, int flags, ...)) {
    static const auto call = next<int(int, const char*, int, mode_t)>("openat");
    std::va_list rest;
    va_start(rest, flags);
    const auto mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : mode_t{0};
    va_end(rest);
    return guarded("openat", CallKind::Interruptible, [&] { return call(folder, path, flags, mode); });
}

// The descriptor is gone also when its closing fails.
KX_STAND_IN(int, close, (int file)) {
    static const auto call = next<int(int)>("close");
    const auto verdict = enter("close");
    const int error = errno;
    const int result = call(file);
    if (verdict == Verdict::Goes) {
        return result;
    }
    errno = error;
    return -1;
}

KX_STAND_IN(ssize_t, read, (int file, void* buffer, std::size_t size)) {
    static const auto call = next<ssize_t(int, void*, std::size_t)>("read");
    return transferred("read", size, [&](std::size_t now) { return call(file, buffer, now); });
}

KX_STAND_IN(ssize_t, pread, (int file, void* buffer, std::size_t size, off_t position)) {
    static const auto call = next<ssize_t(int, void*, std::size_t, off_t)>("pread");
    return transferred("pread", size, [&](std::size_t now) { return call(file, buffer, now, position); });
}

KX_STAND_IN(ssize_t, write, (int file, const void* buffer, std::size_t size)) {
    static const auto call = next<ssize_t(int, const void*, std::size_t)>("write");
    return transferred("write", size, [&](std::size_t now) { return call(file, buffer, now); });
}

KX_STAND_IN(ssize_t, pwrite, (int file, const void* buffer, std::size_t size, off_t position)) {
    static const auto call = next<ssize_t(int, const void*, std::size_t, off_t)>("pwrite");
    return transferred("pwrite", size, [&](std::size_t now) { return call(file, buffer, now, position); });
}

KX_STAND_IN(ssize_t, writev, (int file, const iovec* parts, int count)) {
    static const auto call = next<ssize_t(int, const iovec*, int)>("writev");
    switch (enter("writev", CallKind::InterruptibleTransfer)) {
    case Verdict::Goes:
        return call(file, parts, count);
    case Verdict::Short: {
        const iovec first{parts->iov_base, (parts->iov_len + 1) / 2};
        return call(file, &first, 1);
    }
    case Verdict::Fails:
    case Verdict::Interrupted:
        break;
    }
    return -1;
}

KX_STAND_IN(ssize_t, copy_file_range,
            (int from, off_t* fromPosition, int to, off_t* toPosition, std::size_t size, unsigned flags)) {
    static const auto call =
        next<ssize_t(int, off_t*, int, off_t*, std::size_t, unsigned)>("copy_file_range");
    return transferred("copy_file_range", size,
                       [&](std::size_t now) { return call(from, fromPosition, to, toPosition, now, flags); });
}

KX_STAND_IN(off_t, lseek, (int file, off_t offset, int origin)) {
    static const auto call = next<off_t(int, off_t, int)>("lseek");
    return guarded("lseek", CallKind::Other, [&] { return call(file, offset, origin); });
}

KX_STAND_IN(off_t, lseek64, (int file, off_t offset, int origin)) {
    static const auto call = next<off_t(int, off_t, int)>("lseek64");
    return guarded("lseek", CallKind::Other, [&] { return call(file, offset, origin); });
}

KX_STAND_IN(int, ftruncate, (int file, off_t size)) {
    static const auto call = next<int(int, off_t)>("ftruncate");
    return guarded("ftruncate", CallKind::Interruptible, [&] { return call(file, size); });
}

KX_STAND_IN(int, fallocate, (int file, int mode, off_t offset, off_t size)) {
    static const auto call = next<int(int, int, off_t, off_t)>("fallocate");
    return guarded("fallocate", CallKind::Interruptible, [&] { return call(file, mode, offset, size); });
}

// Waiting for the medium proves nothing where no power fails.
KX_STAND_IN(int, fsync, (int)) {
    return guarded("fsync", CallKind::Interruptible, [] { return 0; });
}

KX_STAND_IN(int, flock, (int file, int operation)) {
    static const auto call = next<int(int, int)>("flock");
    return guarded("flock", CallKind::Interruptible, [&] { return call(file, operation); });
}

KX_STAND_IN(ssize_t, sendfile, (int to, int from, off_t* position, std::size_t size)) {
    static const auto call = next<ssize_t(int, int, off_t*, std::size_t)>("sendfile");
    return transferred("sendfile", size, [&](std::size_t now) { return call(to, from, position, now); });
}

KX_STAND_IN(int, fdatasync, (int)) {
    return guarded("fdatasync", CallKind::Interruptible, [] { return 0; });
}

// Memory that stands for no file is the allocator's affair.
KX_STAND_IN(void*, mmap, (void* place, std::size_t size, int access, int flags, int file, off_t position)) {
    static const auto call = next<void*(void*, std::size_t, int, int, int, off_t)>("mmap");
    if (file < 0 || enter("mmap") == Verdict::Goes) {
        return call(place, size, access, flags, file, position);
    }
    return MAP_FAILED;
}
}
