#include "Mounted.h"

#include <array>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/xattr.h>

using namespace kx::test;
namespace fs = std::filesystem;

namespace {

class MountOperationsTest : public MountedPlans {
protected:
    void SetUp() override {
        MountedPlans::SetUp();
        if (!IsSkipped())
            mount();
    }

    static struct stat statusOf(const fs::path& file) {
        struct stat status {};
        EXPECT_EQ(stat(file.c_str(), &status), 0) << file << ": " << std::strerror(errno);
        return status;
    }

    static Names namesIn(const fs::path& place) {
        Names found;
        for (const auto& entry : fs::directory_iterator(place))
            found.push_back(entry.path().filename().string());
        std::sort(found.begin(), found.end());
        return found;
    }
};

} // namespace

TEST_F(MountOperationsTest, ShowsWhatTheArchiveHolds) {
    EXPECT_EQ(namesIn(mountPoint()), (Names{"b.txt", "docs", "empty"}));
    EXPECT_EQ(namesIn(in("docs")), (Names{"a.txt", "sub"}));
    EXPECT_EQ(get(in("docs/sub/c.txt")), "see\n");
    const auto file = statusOf(in("b.txt"));
    EXPECT_EQ(file.st_mode, static_cast<mode_t>(S_IFREG | 0644));
    EXPECT_EQ(file.st_size, 1);
    EXPECT_EQ(file.st_mtime, 1640995198) << "2021-12-31 23:59:58 UTC";
    EXPECT_EQ(statusOf(in("docs")).st_mode, static_cast<mode_t>(S_IFDIR | 0755));
    EXPECT_EQ(statusOf(in("docs")).st_nlink, 3U);
    struct stat status {};
    EXPECT_EQ(stat(in("none").c_str(), &status), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(stat(in("b.txt/x").c_str(), &status), -1);
    EXPECT_EQ(errno, ENOTDIR);
}

TEST_F(MountOperationsTest, ReadsAndWritesAtAnyOffset) {
    put(in("new.txt"), "0123456789");
    {
        const Descriptor file(in("new.txt"), O_RDWR);
        EXPECT_EQ(pwrite(file.get(), "AB", 2, 4), 2);
        EXPECT_EQ(pwrite(file.get(), "end", 3, 20), 3);
        std::array<char, 32> bytes{};
        EXPECT_EQ(pread(file.get(), bytes.data(), bytes.size(), 3), 20);
        EXPECT_EQ(std::string(bytes.data(), 20), std::string("3AB6789") + std::string(10, '\0') + "end");
        EXPECT_EQ(pread(file.get(), bytes.data(), bytes.size(), 23), 0);
    }
    {
        const Descriptor file(in("new.txt"), O_WRONLY | O_APPEND);
        EXPECT_TRUE(file.write("+"));
    }
    unmount();
    EXPECT_EQ(stored("new.txt"), std::string("0123AB6789") + std::string(10, '\0') + "end+");
    EXPECT_EQ(names("plans.zip").size(), 6U);
}

TEST_F(MountOperationsTest, TruncatesOpenFilesAndPaths) {
    EXPECT_EQ(truncate(in("docs/a.txt").c_str(), 2), 0);
    EXPECT_EQ(get(in("docs/a.txt")), "te");
    const Descriptor file(in("b.txt"), O_RDWR);
    EXPECT_EQ(ftruncate(file.get(), 4), 0);
    EXPECT_EQ(get(in("b.txt")), std::string("b\0\0\0", 4));
    EXPECT_EQ(statusOf(in("b.txt")).st_size, 4);
    {
        const Descriptor emptied(in("docs/sub/c.txt"), O_WRONLY | O_TRUNC);
        EXPECT_EQ(statusOf(in("docs/sub/c.txt")).st_size, 0);
    }
    EXPECT_EQ(truncate(in("new").c_str(), 2), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(MountOperationsTest, HolesReadAsZeros) {
    {
        const Descriptor file(in("sparse"), O_RDWR | O_CREAT);
        constexpr off_t end = 3 << 20;
        EXPECT_EQ(pwrite(file.get(), "x", 1, end - 1), 1);
        EXPECT_EQ(fallocate(file.get(), FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, end - 1, 1), 0);
        EXPECT_EQ(fallocate(file.get(), 0, end, 10), 0);
    }
    EXPECT_EQ(get(in("sparse")), std::string((3 << 20) + 10, '\0'));
    unmount();
    EXPECT_EQ(stored("sparse"), std::string((3 << 20) + 10, '\0'));
}

TEST_F(MountOperationsTest, RenamesFilesAndFolders) {
    EXPECT_EQ(rename(in("b.txt").c_str(), in("docs/b2.txt").c_str()), 0);
    EXPECT_EQ(rename(in("docs").c_str(), in("empty/papers").c_str()), 0);
    EXPECT_EQ(get(in("empty/papers/b2.txt")), "b");
    EXPECT_EQ(get(in("empty/papers/sub/c.txt")), "see\n");
    EXPECT_EQ(rename(in("empty").c_str(), in("empty/papers/x").c_str()), -1);
    EXPECT_EQ(errno, EINVAL);
    unmount();
    EXPECT_EQ(names("plans.zip"), (Names{"empty/", "empty/papers/", "empty/papers/a.txt",
                                         "empty/papers/b2.txt", "empty/papers/sub/c.txt"}));
}

TEST_F(MountOperationsTest, RenamingReplacesUnlessToldNotTo) {
    put(in("new"), "new");
    EXPECT_EQ(renameat2(AT_FDCWD, in("new").c_str(), AT_FDCWD, in("b.txt").c_str(), RENAME_NOREPLACE), -1);
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(renameat2(AT_FDCWD, in("new").c_str(), AT_FDCWD, in("b.txt").c_str(), RENAME_EXCHANGE), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(rename(in("new").c_str(), in("b.txt").c_str()), 0);
    EXPECT_EQ(get(in("b.txt")), "new");
    EXPECT_EQ(rename(in("docs/a.txt").c_str(), in("b.txt").c_str()), 0);
    EXPECT_EQ(get(in("b.txt")), "text\n");
    EXPECT_EQ(rename(in("b.txt").c_str(), in("empty").c_str()), -1);
    EXPECT_EQ(errno, EISDIR);
    EXPECT_EQ(rename(in("empty").c_str(), in("docs").c_str()), -1);
    EXPECT_EQ(errno, ENOTEMPTY);
    EXPECT_EQ(rename(in("docs").c_str(), in("empty").c_str()), 0);
    unmount();
    EXPECT_EQ(stored("b.txt"), "text\n");
    EXPECT_EQ(names("plans.zip"), (Names{"b.txt", "empty/", "empty/sub/c.txt"}));
}

TEST_F(MountOperationsTest, ARemovedFileThatIsOpenGoesOnWorking) {
    const Descriptor reading(in("b.txt"), O_RDONLY);
    const Descriptor writing(in("temporary"), O_RDWR | O_CREAT);
    EXPECT_TRUE(writing.write("one"));
    EXPECT_EQ(unlink(in("b.txt").c_str()), 0);
    EXPECT_EQ(unlink(in("temporary").c_str()), 0);
    put(in("b.txt"), "another");
    EXPECT_EQ(fsync(writing.get()), 0);
    EXPECT_TRUE(writing.write("two"));
    std::array<char, 16> bytes{};
    EXPECT_EQ(pread(writing.get(), bytes.data(), bytes.size(), 0), 6);
    EXPECT_EQ(std::string(bytes.data(), 6), "onetwo");
    EXPECT_EQ(pread(reading.get(), bytes.data(), bytes.size(), 0), 1);
    EXPECT_EQ(bytes[0], 'b');
    struct stat status {};
    EXPECT_EQ(fstat(writing.get(), &status), 0);
    EXPECT_EQ(status.st_size, 6);
    EXPECT_EQ(status.st_nlink, 0U);
    EXPECT_EQ(stored("b.txt"), "another");
}

TEST_F(MountOperationsTest, AFileThatIsRenamedWhileItIsOpenKeepsWhatIsWritten) {
    const Descriptor file(in("docs/a.txt"), O_RDWR | O_APPEND);
    EXPECT_TRUE(file.write("1"));
    EXPECT_EQ(fsync(file.get()), 0);
    EXPECT_EQ(rename(in("docs").c_str(), in("papers").c_str()), 0);
    EXPECT_TRUE(file.write("2"));
    EXPECT_EQ(fsync(file.get()), 0);
    EXPECT_EQ(stored("papers/a.txt"), "text\n12");
    EXPECT_EQ(rename(in("papers/a.txt").c_str(), in("z.txt").c_str()), 0);
    EXPECT_TRUE(file.write("3"));
    EXPECT_EQ(fsync(file.get()), 0);
    EXPECT_EQ(stored("z.txt"), "text\n123");
    EXPECT_EQ(names("plans.zip"), (Names{"b.txt", "empty/", "papers/", "papers/sub/c.txt", "z.txt"}));
}

TEST_F(MountOperationsTest, FoldersStayWhenTheirLastEntryGoes) {
    EXPECT_EQ(unlink(in("docs/sub/c.txt").c_str()), 0);
    EXPECT_TRUE(fs::is_directory(in("docs/sub")));
    const Descriptor root(mountPoint(), O_RDONLY | O_DIRECTORY);
    EXPECT_EQ(fsync(root.get()), 0);
    EXPECT_TRUE(fs::is_directory(in("docs/sub")));
    EXPECT_EQ(names("plans.zip"), (Names{"b.txt", "docs/", "docs/a.txt", "docs/sub/", "empty/"}));
    EXPECT_EQ(rmdir(in("docs").c_str()), -1);
    EXPECT_EQ(errno, ENOTEMPTY);
    EXPECT_EQ(rmdir(in("docs/sub").c_str()), 0);
    EXPECT_EQ(mkdir(in("docs/sub").c_str(), 0755), 0);
    EXPECT_EQ(rmdir(in("docs/sub").c_str()), 0);
    EXPECT_EQ(fsync(root.get()), 0);
    EXPECT_EQ(names("plans.zip"), (Names{"b.txt", "docs/", "docs/a.txt", "empty/"}));
}

TEST_F(MountOperationsTest, AFileAndAFolderMayTakeEachOthersPlace) {
    EXPECT_EQ(unlink(in("b.txt").c_str()), 0);
    EXPECT_EQ(mkdir(in("b.txt").c_str(), 0755), 0);
    put(in("b.txt/inside"), "in");
    EXPECT_EQ(fs::remove_all(in("docs")), 4U);
    put(in("docs"), "a file");
    unmount();
    EXPECT_EQ(names("plans.zip"), (Names{"b.txt/", "b.txt/inside", "docs", "empty/"}));
    EXPECT_EQ(stored("docs"), "a file");
}

TEST_F(MountOperationsTest, MemoryMapsReadAndWrite) {
    constexpr std::size_t size = 100'000;
    put(in("mapped"), std::string(size, 'a'));
    {
        const Descriptor file(in("mapped"), O_RDWR);
        auto* const bytes =
            static_cast<char*>(mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0));
        ASSERT_NE(static_cast<void*>(bytes), MAP_FAILED);
        EXPECT_EQ(bytes[size - 1], 'a');
        bytes[0] = 'b';
        bytes[70'000] = 'c';
        EXPECT_EQ(msync(bytes, size, MS_SYNC), 0);
        EXPECT_EQ(get(in("mapped")).substr(69'999, 3), "aca");
        bytes[size - 1] = 'd';
        EXPECT_EQ(munmap(bytes, size), 0);
    }
    unmount();
    const auto content = stored("mapped");
    EXPECT_EQ(content.size(), size);
    EXPECT_EQ(content.front(), 'b');
    EXPECT_EQ(content[70'000], 'c');
    EXPECT_EQ(content.back(), 'd');
}

TEST_F(MountOperationsTest, TimesAndPermissionsHoldWhileItIsMounted) {
    const std::array<timespec, 2> times{{{1'000'000'000, 5}, {1'100'000'000, 7}}};
    EXPECT_EQ(utimensat(AT_FDCWD, in("b.txt").c_str(), times.data(), 0), 0);
    EXPECT_EQ(chmod(in("b.txt").c_str(), 0711), 0);
    put(in("script"), "#!/bin/sh\necho ran\n");
    EXPECT_EQ(chmod(in("script").c_str(), 0755), 0);
    EXPECT_EQ(shell("./script"), "ran\n");
    waitUntilSaved();
    const auto status = statusOf(in("b.txt"));
    EXPECT_EQ(status.st_mtim.tv_sec, 1'100'000'000);
    EXPECT_EQ(status.st_mtim.tv_nsec, 7);
    EXPECT_EQ(status.st_atim.tv_sec, 1'000'000'000);
    EXPECT_EQ(status.st_mode & 0777U, 0711U);
    unmount();
    mount();
    EXPECT_EQ(statusOf(in("b.txt")).st_mtime, 1640995198) << "the archive has no place for more";
    EXPECT_EQ(statusOf(in("b.txt")).st_mode & 0777U, 0644U);
}

TEST_F(MountOperationsTest, WhatAnArchiveCannotHoldIsRefused) {
    EXPECT_EQ(link(in("b.txt").c_str(), in("hard").c_str()), -1);
    EXPECT_EQ(errno, EPERM);
    EXPECT_EQ(symlink("b.txt", in("soft").c_str()), -1);
    EXPECT_EQ(errno, EPERM);
    EXPECT_EQ(mkfifo(in("pipe").c_str(), 0644), -1);
    EXPECT_EQ(errno, EPERM);
    EXPECT_EQ(setxattr(in("b.txt").c_str(), "user.x", "1", 1, 0), -1);
    EXPECT_EQ(errno, EOPNOTSUPP);
    EXPECT_EQ(chown(in("b.txt").c_str(), getuid(), getgid()), 0);
    if (getuid() == 0) {
        EXPECT_EQ(chown(in("b.txt").c_str(), 12345, getgid()), -1);
        EXPECT_EQ(errno, EPERM);
    }
    EXPECT_EQ(mkdir(in(std::string(256, 'x')).c_str(), 0755), -1);
    EXPECT_EQ(errno, ENAMETOOLONG);
    EXPECT_EQ(mkdir(in("not\xffutf8").c_str(), 0755), -1);
    EXPECT_EQ(errno, EILSEQ);
    EXPECT_EQ(mkdir(in("docs").c_str(), 0755), -1);
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(rmdir(in("b.txt").c_str()), -1);
    EXPECT_EQ(errno, ENOTDIR);
    unmount();
    EXPECT_EQ(names("plans.zip").size(), 5U) << "nothing was written";
}

TEST_F(MountOperationsTest, PathsThatNoArchiveCanStoreAreRefused) {
    constexpr std::size_t longest = 65535;
    const std::string name(255, 'd');
    int place = open(mountPoint().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    std::size_t length = 0;
    const auto enter = [&](const std::string& child) {
        ASSERT_EQ(mkdirat(place, child.c_str(), 0755), 0) << length << ": " << std::strerror(errno);
        const int below = openat(place, child.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        ASSERT_GE(below, 0);
        ::close(place);
        place = below;
        length += child.size() + 1;
    };
    while (length + name.size() + 1 <= longest)
        enter(name);
    // Of exactly the length that can be stored, and of one byte more.
    const std::string fits(longest - length, 'f');
    EXPECT_EQ(mkdirat(place, fits.c_str(), 0755), -1);
    EXPECT_EQ(errno, ENAMETOOLONG) << "a folder's name ends in a slash";
    EXPECT_EQ(mknodat(place, (fits + 'f').c_str(), S_IFREG | 0644, 0), -1);
    EXPECT_EQ(errno, ENAMETOOLONG);
    EXPECT_EQ(mknodat(place, fits.c_str(), S_IFREG | 0644, 0), 0) << std::strerror(errno);
    EXPECT_EQ(rename(in(name).c_str(), in("short").c_str()), 0) << std::strerror(errno);
    EXPECT_EQ(rename(in("short").c_str(), in(name).c_str()), 0) << std::strerror(errno);
    EXPECT_EQ(rename(in(name).c_str(), in("docs/" + name).c_str()), -1);
    EXPECT_EQ(errno, ENAMETOOLONG);
    EXPECT_EQ(fsync(place), 0) << std::strerror(errno);
    EXPECT_EQ(rename(in(name).c_str(), in("docs/" + name).c_str()), -1);
    EXPECT_EQ(errno, ENAMETOOLONG) << "the same of what is stored";
    ::close(place);
    unmount();
    EXPECT_EQ(runProcess({"python3", "-c",
                          "import sys, zipfile\n"
                          "print(max(len(name) for name in zipfile.ZipFile(sys.argv[1]).namelist()))",
                          folder.file("plans.zip").string()})
                  .output,
              "65535\n");
}

TEST_F(MountOperationsTest, NamesOfEveryKindAreKept) {
    const Names unusual{"a b",
                        "dot.",
                        ".hidden",
                        "back\\slash",
                        "per%cent!",
                        "\xc3\xa9t\xc3\xa9",
                        "\xf0\x9f\x98\x80",
                        "new\nline",
                        std::string(255, 'n')};
    for (const auto& name : unusual)
        put(in(name), name);
    unmount();
    mount();
    for (const auto& name : unusual)
        EXPECT_EQ(get(in(name)), name) << name;
    auto expected = unusual;
    expected.insert(expected.end(), {"b.txt", "docs", "empty"});
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(namesIn(mountPoint()), expected);
}

TEST_F(MountOperationsTest, AccessIsAnsweredByThePermissions) {
    EXPECT_EQ(access(in("b.txt").c_str(), R_OK | W_OK), 0);
    EXPECT_EQ(access(in("b.txt").c_str(), X_OK), -1);
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(access(in("docs").c_str(), R_OK | W_OK | X_OK), 0);
    EXPECT_EQ(access(in("none").c_str(), F_OK), -1);
    EXPECT_EQ(errno, ENOENT);
    unmount();
    mount("plans.zip", "ro");
    EXPECT_EQ(access(in("b.txt").c_str(), R_OK), 0);
    EXPECT_EQ(access(in("b.txt").c_str(), W_OK), -1);
    EXPECT_EQ(errno, EROFS);
}

TEST_F(MountOperationsTest, OptionsSetOwnersAndPermissions) {
    unmount();
    mount("plans.zip", "uid=1234,gid=4321,umask=027");
    EXPECT_EQ(mkdir(in("made").c_str(), 0755), getuid() == 0 ? 0 : -1);
    for (const auto* name : {"b.txt", "docs"}) {
        EXPECT_EQ(statusOf(in(name)).st_uid, 1234U) << name;
        EXPECT_EQ(statusOf(in(name)).st_gid, 4321U) << name;
    }
    EXPECT_EQ(statusOf(in("b.txt")).st_mode & 0777U, 0640U);
    EXPECT_EQ(statusOf(in("docs")).st_mode & 0777U, 0750U);
    EXPECT_EQ(statusOf(mountPoint()).st_mode & 0777U, 0750U);
    unmount();
    const auto mounting = runProcess({"bash", "-c", "umask 077 && exec \"$@\"", "bash", binary(), "mount",
                                      folder.file("plans.zip").string(), mountPoint()},
                                     mountOptions());
    ASSERT_EQ(mounting.exitCode, 0) << mounting.errors;
    EXPECT_EQ(statusOf(in("b.txt")).st_mode & 0777U, 0600U) << "the mask of the process that mounts";
    EXPECT_EQ(statusOf(in("docs")).st_mode & 0777U, 0700U);
    EXPECT_EQ(statusOf(in("b.txt")).st_uid, getuid());
    EXPECT_EQ(statusOf(in("b.txt")).st_gid, getgid());
}

TEST_F(MountOperationsTest, OthersLookInWhereTheyAreAllowedTo) {
    if (getuid() != 0)
        GTEST_SKIP() << "only the superuser can look with the eyes of others";
    fs::permissions(folder.path(), fs::perms::others_exec, fs::perm_options::add);
    const auto asNobody = [&] {
        return runProcess(
            {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", "cat", in("b.txt").string()});
    };
    EXPECT_EQ(asNobody().exitCode, 1);
    unmount();
    mount("plans.zip", "allow_other");
    EXPECT_EQ(asNobody().output, "b");
    unmount();
    mount("plans.zip", "allow_other,umask=077");
    EXPECT_EQ(asNobody().exitCode, 1) << "as far as the permissions shown allow";
}

TEST_F(MountOperationsTest, AFileIsFetchedOnce) {
    const auto workingFiles = [&] {
        std::size_t found = 0;
        for (const auto& entry : fs::recursive_directory_iterator(temporary.path()))
            found += entry.path().extension() == ".cache" ? 1 : 0;
        return found;
    };
    {
        const Descriptor file(in("b.txt"), O_RDONLY);
        for (int i = 0; i < 500 && workingFiles() == 0; ++i)
            usleep(10'000);
        EXPECT_EQ(workingFiles(), 1U) << "before anybody has read";
    }
    EXPECT_EQ(get(in("b.txt")), "b");
    put(in("docs/a.txt"), "changed");
    EXPECT_EQ(get(in("docs/a.txt")), "changed");
    waitUntilSaved();
    for (int i = 0; i < 500 && workingFiles() > 0; ++i)
        usleep(10'000);
    const Descriptor again(in("b.txt"), O_RDONLY);
    const Descriptor written(in("docs/a.txt"), O_RDONLY);
    EXPECT_EQ(get(in("b.txt")), "b");
    EXPECT_EQ(get(in("docs/a.txt")), "changed");
    EXPECT_EQ(workingFiles(), 0U) << "the system has the bytes";
}

TEST_F(MountOperationsTest, LocksWorkBetweenPrograms) {
    const Descriptor one(in("b.txt"), O_RDWR);
    const Descriptor two(in("b.txt"), O_RDWR);
    EXPECT_EQ(flock(one.get(), LOCK_EX | LOCK_NB), 0);
    EXPECT_EQ(flock(two.get(), LOCK_EX | LOCK_NB), -1);
    struct flock range {};
    range.l_type = F_WRLCK;
    range.l_whence = SEEK_SET;
    EXPECT_EQ(fcntl(one.get(), F_SETLK, &range), 0);
    EXPECT_EQ(shell("python3 -c 'import fcntl\n"
                    "f = open(\"b.txt\", \"r+\")\n"
                    "try: fcntl.lockf(f, fcntl.LOCK_EX | fcntl.LOCK_NB); print(\"free\")\n"
                    "except OSError: print(\"held\")'"),
              "held\n");
}

TEST_F(MountOperationsTest, TellsOfTheRoomForSaving) {
    struct statvfs status {};
    EXPECT_EQ(statvfs(mountPoint().c_str(), &status), 0);
    EXPECT_GT(status.f_blocks, 0U);
    EXPECT_LE(status.f_bavail, status.f_blocks);
    EXPECT_EQ(status.f_namemax, 255U);
}

TEST_F(MountOperationsTest, AListingThatIsUnderWaySurvivesRemovals) {
    for (int i = 0; i < 2000; ++i)
        put(in("empty/f" + std::to_string(i)), "x");
    std::size_t removed = 0;
    for (const auto& entry : fs::directory_iterator(in("empty")))
        removed += fs::remove(entry.path()) ? 1 : 0;
    EXPECT_EQ(removed, 2000U);
    EXPECT_TRUE(fs::is_empty(in("empty")));
}
