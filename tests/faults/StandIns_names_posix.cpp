#include "StandIn.h"

#include <dirent.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/types.h>

// Each stands in for the function of the name in its assembler label (StandIn.h).
extern "C" {

using namespace kx::test;
using namespace kx::test::detail;

KX_STAND_IN(int, rename, (const char* from, const char* to)) {
    static const auto call = next<int(const char*, const char*)>("rename");
    return guarded("rename", CallKind::Other, [&] { return call(from, to); });
}

KX_STAND_IN(int, renameat2,
            (int fromFolder, const char* from, int toFolder, const char* to, unsigned flags)) {
    static const auto call = next<int(int, const char*, int, const char*, unsigned)>("renameat2");
    return guarded("renameat2", CallKind::Other, [&] { return call(fromFolder, from, toFolder, to, flags); });
}

KX_STAND_IN(int, link, (const char* from, const char* to)) {
    static const auto call = next<int(const char*, const char*)>("link");
    return guarded("link", CallKind::Other, [&] { return call(from, to); });
}

KX_STAND_IN(int, unlink, (const char* path)) {
    static const auto call = next<int(const char*)>("unlink");
    return removed("unlink", path, [&] { return call(path); });
}

KX_STAND_IN(int, unlinkat, (int folder, const char* path, int flags)) {
    static const auto call = next<int(int, const char*, int)>("unlinkat");
    return removed("unlinkat", path, [&] { return call(folder, path, flags); });
}

KX_STAND_IN(int, remove, (const char* path)) {
    static const auto call = next<int(const char*)>("remove");
    return removed("remove", path, [&] { return call(path); });
}

KX_STAND_IN(int, mkdir, (const char* path, mode_t mode)) {
    static const auto call = next<int(const char*, mode_t)>("mkdir");
    return guarded("mkdir", CallKind::Other, [&] { return call(path, mode); });
}

KX_STAND_IN(int, rmdir, (const char* path)) {
    static const auto call = next<int(const char*)>("rmdir");
    return removed("rmdir", path, [&] { return call(path); });
}

KX_STAND_IN(int, fchown, (int file, uid_t user, gid_t group)) {
    static const auto call = next<int(int, uid_t, gid_t)>("fchown");
    return guarded("fchown", CallKind::Other, [&] { return call(file, user, group); });
}

KX_STAND_IN(int, fchmod, (int file, mode_t mode)) {
    static const auto call = next<int(int, mode_t)>("fchmod");
    return guarded("fchmod", CallKind::Other, [&] { return call(file, mode); });
}

KX_STAND_IN(int, fsetxattr, (int file, const char* name, const void* value, std::size_t size, int flags)) {
    static const auto call = next<int(int, const char*, const void*, std::size_t, int)>("fsetxattr");
    return guarded("fsetxattr", CallKind::Other, [&] { return call(file, name, value, size, flags); });
}

KX_STAND_IN(int, fremovexattr, (int file, const char* name)) {
    static const auto call = next<int(int, const char*)>("fremovexattr");
    return guarded("fremovexattr", CallKind::Other, [&] { return call(file, name); });
}

KX_STAND_IN(int, stat, (const char* path, struct stat* status)) {
    static const auto call = next<int(const char*, struct stat*)>("stat");
    return guarded("stat", CallKind::Other, [&] { return call(path, status); });
}

KX_STAND_IN(int, lstat, (const char* path, struct stat* status)) {
    static const auto call = next<int(const char*, struct stat*)>("lstat");
    return guarded("lstat", CallKind::Other, [&] { return call(path, status); });
}

KX_STAND_IN(int, fstat, (int file, struct stat* status)) {
    static const auto call = next<int(int, struct stat*)>("fstat");
    return guarded("fstat", CallKind::Other, [&] { return call(file, status); });
}

KX_STAND_IN(int, symlink, (const char* target, const char* path)) {
    static const auto call = next<int(const char*, const char*)>("symlink");
    return guarded("symlink", CallKind::Other, [&] { return call(target, path); });
}

KX_STAND_IN(int, mkstemp, (char* path)) {
    static const auto call = next<int(char*)>("mkstemp");
    return guarded("mkstemp", CallKind::Other, [&] { return call(path); });
}

KX_STAND_IN(char*, mkdtemp, (char* path)) {
    static const auto call = next<char*(char*)>("mkdtemp");
    return enter("mkdtemp") == Verdict::Goes ? call(path) : nullptr;
}

KX_STAND_IN(int, chmod, (const char* path, mode_t mode)) {
    static const auto call = next<int(const char*, mode_t)>("chmod");
    return guarded("chmod", CallKind::Other, [&] { return call(path, mode); });
}

KX_STAND_IN(int, fchmodat, (int folder, const char* path, mode_t mode, int flags)) {
    static const auto call = next<int(int, const char*, mode_t, int)>("fchmodat");
    return guarded("fchmodat", CallKind::Other, [&] { return call(folder, path, mode, flags); });
}

KX_STAND_IN(int, futimens, (int file, const timespec* times)) {
    static const auto call = next<int(int, const timespec*)>("futimens");
    return guarded("futimens", CallKind::Other, [&] { return call(file, times); });
}

KX_STAND_IN(int, utimensat, (int folder, const char* path, const timespec* times, int flags)) {
    static const auto call = next<int(int, const char*, const timespec*, int)>("utimensat");
    return guarded("utimensat", CallKind::Other, [&] { return call(folder, path, times, flags); });
}

KX_STAND_IN(ssize_t, getxattr, (const char* path, const char* name, void* value, std::size_t size)) {
    static const auto call = next<ssize_t(const char*, const char*, void*, std::size_t)>("getxattr");
    return guarded("getxattr", CallKind::Other, [&] { return call(path, name, value, size); });
}

KX_STAND_IN(ssize_t, fgetxattr, (int file, const char* name, void* value, std::size_t size)) {
    static const auto call = next<ssize_t(int, const char*, void*, std::size_t)>("fgetxattr");
    return guarded("fgetxattr", CallKind::Other, [&] { return call(file, name, value, size); });
}

KX_STAND_IN(ssize_t, flistxattr, (int file, char* names, std::size_t size)) {
    static const auto call = next<ssize_t(int, char*, std::size_t)>("flistxattr");
    return guarded("flistxattr", CallKind::Other, [&] { return call(file, names, size); });
}

KX_STAND_IN(int, access, (const char* path, int mode)) {
    static const auto call = next<int(const char*, int)>("access");
    return guarded("access", CallKind::Other, [&] { return call(path, mode); });
}

KX_STAND_IN(int, faccessat, (int folder, const char* path, int mode, int flags)) {
    static const auto call = next<int(int, const char*, int, int)>("faccessat");
    return guarded("faccessat", CallKind::Other, [&] { return call(folder, path, mode, flags); });
}

KX_STAND_IN(int, fstatat, (int folder, const char* path, struct stat* status, int flags)) {
    static const auto call = next<int(int, const char*, struct stat*, int)>("fstatat");
    return guarded("fstatat", CallKind::Other, [&] { return call(folder, path, status, flags); });
}

KX_STAND_IN(int, statx, (int folder, const char* path, int flags, unsigned mask, struct statx* status)) {
    static const auto call = next<int(int, const char*, int, unsigned, struct statx*)>("statx");
    return guarded("statx", CallKind::Other, [&] { return call(folder, path, flags, mask, status); });
}

KX_STAND_IN(int, statvfs, (const char* path, struct statvfs* status)) {
    static const auto call = next<int(const char*, struct statvfs*)>("statvfs");
    return guarded("statvfs", CallKind::Other, [&] { return call(path, status); });
}

KX_STAND_IN(ssize_t, readlink, (const char* path, char* target, std::size_t size)) {
    static const auto call = next<ssize_t(const char*, char*, std::size_t)>("readlink");
    return guarded("readlink", CallKind::Other, [&] { return call(path, target, size); });
}

KX_STAND_IN(char*, realpath, (const char* path, char* resolved)) {
    // The oldest version of this function refuses the null pointer that asks it to allocate.
    static const auto call = nextOf<char*(const char*, char*)>("realpath", "GLIBC_2.3");
    return enter("realpath") == Verdict::Goes ? call(path, resolved) : nullptr;
}

KX_STAND_IN(DIR*, opendir, (const char* path)) {
    static const auto call = next<DIR*(const char*)>("opendir");
    return enter("opendir") == Verdict::Goes ? call(path) : nullptr;
}

KX_STAND_IN(DIR*, fdopendir, (int file)) {
    static const auto call = next<DIR*(int)>("fdopendir");
    return enter("fdopendir") == Verdict::Goes ? call(file) : nullptr;
}

KX_STAND_IN(dirent*, readdir, (DIR * folder)) {
    static const auto call = next<dirent*(DIR*)>("readdir");
    return enter("readdir") == Verdict::Goes ? call(folder) : nullptr;
}
}
