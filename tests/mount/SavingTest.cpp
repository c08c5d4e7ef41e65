#include "Mounted.h"

#include <chrono>
#include <csignal>
#include <future>
#include <sys/mman.h>
#include <thread>

using namespace kx::test;
namespace fs = std::filesystem;

namespace {

/// When changes reach the archive, and what is said when they do not.
class MountSavingTest : public MountedPlans {
protected:
    /// A small file system of its own, over a folder of the test.
    bool mountSmall(const std::string& name, const std::string& size) {
        fs::create_directories(folder.file(name));
        if (runProcess({"mount", "-t", "tmpfs", "-o", "size=" + size, "none", folder.file(name).string()})
                .exitCode != 0)
            return false;
        m_small.push_back(folder.file(name).string());
        return true;
    }

    void TearDown() override {
        MountedPlans::TearDown();
        for (const auto& place : m_small)
            runProcess({"umount", "-l", place});
    }

    /// Unmounts, which must fail, and returns what was said.
    std::string failingUnmount() const {
        const auto result = runMountTool({"umount", mountPoint()});
        EXPECT_EQ(result.exitCode, 1) << result.output << result.errors;
        EXPECT_FALSE(isMounted());
        return result.errors;
    }

    pid_t server() const { return listing().at(0)["process"].get<pid_t>(); }

    /// What stands behind "kept in " in a message.
    static fs::path keptIn(const std::string& message) {
        const std::string mark = "kept in ";
        const auto at = message.find(mark);
        if (at == std::string::npos)
            return {};
        return message.substr(at + mark.size(), message.find('\n', at) - at - mark.size());
    }

    static std::string contentOf(const fs::path& archive, const std::string& entry) {
        return runProcess({"unzip", "-p", archive.string(), entry}).output;
    }

    std::vector<std::string> m_small;
};

std::string noise(std::size_t length) {
    std::string result;
    std::uint32_t state = 1;
    while (result.size() < length) {
        state = state * 1664525U + 1013904223U;
        result += static_cast<char>(state >> 24U);
    }
    return result;
}

} // namespace

TEST_F(MountSavingTest, TakesAnArchiveWhoseNameHasWhatSeparatesMountOptions) {
    const std::string name = "plans,2024\\ro.zip";
    ASSERT_EQ(runMountTool({"create", folder.file(name).string()}).exitCode, 0);
    mount(name);
    put(in("a.txt"), "written");
    unmount();
    EXPECT_EQ(names(name), (Names{"a.txt"}));
}

TEST_F(MountSavingTest, FsyncReturnsWhenTheArchiveHoldsTheChange) {
    mount("plans.zip", "save_after=3600,save_within=3600");
    const Descriptor file(in("b.txt"), O_RDWR | O_TRUNC);
    EXPECT_TRUE(file.write("first"));
    EXPECT_EQ(stored("b.txt"), "b");
    EXPECT_EQ(fsync(file.get()), 0);
    EXPECT_EQ(stored("b.txt"), "first");
    EXPECT_TRUE(file.write("second"));
    EXPECT_EQ(fdatasync(file.get()), 0);
    EXPECT_EQ(stored("b.txt"), "firstsecond");
    EXPECT_EQ(listing()[0]["saves"], 2);
    EXPECT_EQ(fsync(file.get()), 0);
    EXPECT_EQ(listing()[0]["saves"], 2) << "nothing was left to save";
    EXPECT_EQ(listing()[0]["lastSave"]["failure"], "");
    EXPECT_NE(runMountTool({"mount", "--list"}).output.find("everything saved, last save 2"),
              std::string::npos);
}

TEST_F(MountSavingTest, SyncOfAFolderSavesEverything) {
    mount("plans.zip", "save_after=3600,save_within=3600");
    put(in("b.txt"), "first");
    put(in("docs/new"), "second");
    shell("sync .");
    EXPECT_EQ(stored("b.txt"), "first");
    EXPECT_EQ(stored("docs/new"), "second");
}

TEST_F(MountSavingTest, WhatNeedsNoProviderIsQuickWhileItIsSaved) {
    mount("plans.zip", "save_after=3600,save_within=3600");
    put(in("large"), noise(32 << 20));
    auto saving = std::async(std::launch::async, [&] {
        const Descriptor file(in("large"), O_RDWR);
        return fsync(file.get());
    });
    int rounds = 0;
    while (saving.wait_for(std::chrono::milliseconds(2)) != std::future_status::ready) {
        EXPECT_EQ(std::distance(fs::directory_iterator(mountPoint()), {}), rounds == 0 ? 4 : 5);
        EXPECT_TRUE(fs::exists(in("docs/sub/c.txt")));
        put(in("meanwhile"), std::to_string(rounds));
        EXPECT_EQ(get(in("meanwhile")), std::to_string(rounds));
        ++rounds;
    }
    EXPECT_EQ(saving.get(), 0);
    EXPECT_GT(rounds, 10);
}

TEST_F(MountSavingTest, ProgramsThatWaitForASaveHoldUpNoOther) {
    mount("plans.zip", "save_after=3600,save_within=3600");
    put(in("large"), noise(32 << 20));
    constexpr int programs = 20;
    std::vector<std::future<int>> saving;
    for (int i = 0; i < programs; ++i)
        saving.push_back(std::async(std::launch::async, [&] {
            const Descriptor file(in("large"), O_RDWR);
            return fsync(file.get());
        }));
    auto slowest = std::chrono::steady_clock::duration::zero();
    int rounds = 0;
    const auto begun = std::chrono::steady_clock::now();
    while (saving.front().wait_for(std::chrono::milliseconds(2)) != std::future_status::ready) {
        const auto started = std::chrono::steady_clock::now();
        EXPECT_EQ(std::distance(fs::directory_iterator(mountPoint()), {}), 4);
        slowest = std::max(slowest, std::chrono::steady_clock::now() - started);
        ++rounds;
    }
    const auto saved = std::chrono::steady_clock::now() - begun;
    for (auto& one : saving)
        EXPECT_EQ(one.get(), 0);
    EXPECT_GT(rounds, 10);
    // Without threads that take over, a listing would wait for the save.
    EXPECT_LT(slowest, saved / 2);
}

TEST_F(MountSavingTest, ManyChangesCostAHandfulOfSaves) {
    mount();
    for (int i = 0; i < 10'000; ++i) {
        const auto place = in("empty/d" + std::to_string(i / 100));
        if (i % 100 == 0)
            fs::create_directories(place);
        put(place / std::to_string(i), std::to_string(i));
    }
    waitUntilSaved();
    EXPECT_LE(listing()[0]["saves"].get<int>(), 3);
    EXPECT_EQ(stored("empty/d99/9999"), "9999");
}

TEST_F(MountSavingTest, WhatTakesMuchRoomIsSavedBeforeItIsQuiet) {
    mount("plans.zip", "save_after=3600,save_within=3600,space=1M");
    put(in("large"), noise(3 << 20));
    for (int i = 0; i < 100 && listing()[0]["saves"] == 0; ++i)
        usleep(50'000);
    EXPECT_GE(listing()[0]["saves"].get<int>(), 1);
}

TEST_F(MountSavingTest, ChangesThatNeverCeaseAreSavedInTime) {
    mount("plans.zip", "save_after=3600,save_within=0.5");
    const Descriptor file(in("log"), O_WRONLY | O_CREAT);
    for (int i = 0; i < 30; ++i) {
        EXPECT_TRUE(file.write("line\n"));
        usleep(50'000);
    }
    EXPECT_GE(listing()[0]["saves"].get<int>(), 1);
}

TEST_F(MountSavingTest, ListsWhatIsNotSaved) {
    mount("plans.zip", "save_after=3600,save_within=3600");
    put(in("new"), "12345");
    for (int i = 0; i < 60 && listing()[0]["unsavedBytes"] != 5; ++i)
        usleep(50'000);
    const auto mounts = listing();
    ASSERT_EQ(mounts.size(), 1U);
    EXPECT_EQ(mounts[0]["state"], "mounted");
    EXPECT_EQ(mounts[0]["mountPoint"], fs::canonical(mountPoint()).string());
    EXPECT_EQ(mounts[0]["unsavedChanges"], 1);
    EXPECT_EQ(mounts[0]["unsavedBytes"], 5);
    EXPECT_NE(runMountTool({"mount", "--list"}).output.find("1 not saved"), std::string::npos);
    unmount();
    EXPECT_EQ(listing().size(), 0U);
}

TEST_F(MountSavingTest, ASignalEndsItAfterALastSave) {
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        mount("plans.zip", "save_after=3600,save_within=3600");
        const auto text = "signal " + std::to_string(signal);
        put(in("new"), text);
        constexpr std::size_t size = 8192;
        put(in("mapped"), std::string(size, 'a'));
        {
            const Descriptor file(in("mapped"), O_RDWR);
            auto* const bytes =
                static_cast<char*>(mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0));
            ASSERT_NE(static_cast<void*>(bytes), MAP_FAILED);
            bytes[0] = 'b';
            EXPECT_EQ(kill(server(), signal), 0);
            for (int i = 0; i < 200 && !listing().empty(); ++i)
                usleep(50'000);
            munmap(bytes, size);
        }
        EXPECT_EQ(listing().size(), 0U);
        EXPECT_FALSE(isMounted());
        EXPECT_EQ(stored("new"), text);
        EXPECT_EQ(stored("mapped").substr(0, 2), "ba");
        EXPECT_EQ(names("plans.zip").size(), 7U);
    }
}

TEST_F(MountSavingTest, UnmountingByTheSystemsOwnToolSavesToo) {
    mount("plans.zip", "save_after=3600,save_within=3600");
    put(in("new"), "text");
    ASSERT_EQ(runProcess({"umount", mountPoint()}).exitCode, 0);
    for (int i = 0; i < 200 && !listing().empty(); ++i)
        usleep(50'000);
    EXPECT_EQ(stored("new"), "text");
}

TEST_F(MountSavingTest, ABusyMountIsNotUnmounted) {
    mount();
    {
        const Descriptor file(in("b.txt"), O_RDONLY);
        const auto result = runMountTool({"umount", mountPoint()});
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_NE(result.errors.find("busy"), std::string::npos) << result.errors;
        EXPECT_TRUE(isMounted());
        EXPECT_EQ(get(in("b.txt")), "b");
    }
    unmount();
}

TEST_F(MountSavingTest, AKilledProcessLeavesTheLastSavedArchive) {
    mount("plans.zip", "save_after=3600,save_within=3600");
    const Descriptor file(in("b.txt"), O_RDWR);
    EXPECT_TRUE(file.write("saved"));
    EXPECT_EQ(fsync(file.get()), 0);
    put(in("new"), "not saved");
    for (int i = 0; i < 60 && listing()[0]["unsavedChanges"] == 0; ++i)
        usleep(50'000);
    EXPECT_EQ(kill(server(), SIGKILL), 0);
    for (int i = 0; i < 100 && listing()[0]["state"] != "killed"; ++i)
        usleep(20'000);
    EXPECT_EQ(listing()[0]["state"], "killed");
    EXPECT_EQ(names("plans.zip").size(), 5U);
    EXPECT_EQ(stored("b.txt"), "saved");
    const auto message = runMountTool({"umount", mountPoint()});
    EXPECT_EQ(message.exitCode, 1);
    EXPECT_NE(message.errors.find("was killed"), std::string::npos) << message.errors;
    EXPECT_EQ(listing().size(), 0U);
    mount();
    EXPECT_EQ(get(in("b.txt")), "saved");
}

TEST_F(MountSavingTest, KilledAtAnyMomentItLeavesTheOldOrTheNewArchive) {
    int last = -1;
    for (int round = 0; round < 6; ++round) {
        mount("plans.zip", "save_after=3600,save_within=3600");
        put(in("one"), std::to_string(round));
        put(in("ballast"), noise((1 << 20) + round));
        put(in("two"), std::to_string(round));
        std::thread saving([&] {
            const Descriptor root(mountPoint(), O_RDONLY | O_DIRECTORY);
            fsync(root.get());
        });
        usleep(static_cast<useconds_t>(round) * 15'000);
        EXPECT_EQ(kill(server(), SIGKILL), 0);
        saving.join();
        EXPECT_EQ(runMountTool({"umount", mountPoint()}).exitCode, 1);
        EXPECT_EQ(runMountTool({"check", folder.file("plans.zip").string()}).exitCode, 0);
        EXPECT_EQ(verifyArchive(folder.file("plans.zip")).problems(), "");
        if (const auto entries = names("plans.zip"); entries.size() > 5U) {
            const auto one = stored("one");
            EXPECT_EQ(one, stored("two"));
            EXPECT_TRUE(one == std::to_string(round) || one == std::to_string(last)) << one;
            last = std::stoi(one);
        } else {
            EXPECT_EQ(last, -1);
        }
    }
}

TEST_F(MountSavingTest, WhatAnotherNamespaceShowsDoesNotKeepItMounted) {
    mount("plans.zip", "save_after=3600,save_within=3600");
    put(in("new"), "text");
    const auto pid = runProcess({"bash", "-c",
                                 "unshare -m sh -c 'mount --make-rprivate / && exec sleep 60' "
                                 "> /dev/null 2>&1 & sleep 0.5; kill -0 $! && echo $!"})
                         .output;
    if (pid.empty())
        GTEST_SKIP() << "no namespace of mounts can be made here";
    const auto begun = std::chrono::steady_clock::now();
    unmount();
    EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(30));
    EXPECT_EQ(kill(std::stoi(pid), SIGKILL), 0);
    EXPECT_EQ(stored("new"), "text");
}

TEST_F(MountSavingTest, WhatIsRescuedCanBeBroughtIntoTheArchive) {
    if (!mountSmall("disk", "1m"))
        GTEST_SKIP() << "a small file system cannot be mounted here";
    fs::copy_file(folder.file("plans.zip"), folder.file("disk/plans.zip"));
    mount("disk/plans.zip", "save_after=3600,save_within=3600");
    put(in("it's \\ gone"), "x");
    fs::create_directories(in("gone/deep"));
    put(in("gone/deep/x"), "x");
    shell("sync .");
    save("disk/ballast", noise(900 << 10));
    put(in("large"), noise(200 << 10));
    EXPECT_EQ(rename(in("docs").c_str(), in("papers").c_str()), 0);
    EXPECT_EQ(unlink(in("papers/sub/c.txt").c_str()), 0);
    EXPECT_EQ(rename(in("b.txt").c_str(), in("papers/moved.txt").c_str()), 0);
    EXPECT_EQ(unlink(in("it's \\ gone").c_str()), 0);
    fs::remove_all(in("gone"));
    EXPECT_EQ(mkdir(in("made").c_str(), 0755), 0);
    const auto message = failingUnmount();
    const auto rescue = keptIn(message);
    ASSERT_FALSE(rescue.empty()) << message;
    EXPECT_EQ(verifyArchive(rescue).problems(), "");
    EXPECT_EQ(contentOf(rescue, "papers/a.txt"), "text\n");
    EXPECT_EQ(contentOf(rescue, "papers/moved.txt"), "b");
    const auto list = fs::path(rescue).replace_extension(".batch");
    EXPECT_NE(message.find(list.string()), std::string::npos) << message;
    fs::remove(folder.file("disk/ballast"));
    const auto brought = runMountTool({"batch", folder.file("disk/plans.zip").string(), list.string()});
    EXPECT_EQ(brought.exitCode, 0) << brought.errors << get(list);
    EXPECT_EQ(names("disk/plans.zip"), (Names{"empty/", "large", "made/", "papers/", "papers/a.txt",
                                              "papers/moved.txt", "papers/sub/"}));
    EXPECT_TRUE(contentOf(folder.file("disk/plans.zip"), "large") == noise(200 << 10));
}

TEST_F(MountSavingTest, AFullDiskIsReportedAndNothingIsLost) {
    if (!mountSmall("disk", "1m"))
        GTEST_SKIP() << "a small file system cannot be mounted here";
    fs::copy_file(folder.file("plans.zip"), folder.file("disk/plans.zip"));
    mount("disk/plans.zip", "save_after=3600,save_within=3600");
    const auto large = noise(2 << 20);
    put(in("large"), large);
    {
        Descriptor file(in("b.txt"), O_RDWR | O_TRUNC);
        EXPECT_TRUE(file.write("changed"));
        EXPECT_EQ(fsync(file.get()), -1);
        EXPECT_EQ(errno, ENOSPC);
    }
    EXPECT_EQ(listing()[0]["unsavedChanges"] != 0, true);
    EXPECT_NE(listing()[0]["lastSave"]["failure"], "");
    EXPECT_NE(runMountTool({"mount", "--list"}).output.find("last save failed: "), std::string::npos);
    EXPECT_EQ(names("disk/plans.zip").size(), 5U) << "the old archive is whole";
    const auto message = failingUnmount();
    const auto rescue = keptIn(message);
    ASSERT_FALSE(rescue.empty()) << message;
    EXPECT_EQ(verifyArchive(rescue).problems(), "");
    EXPECT_TRUE(contentOf(rescue, "large") == large);
    EXPECT_EQ(contentOf(rescue, "b.txt"), "changed");
    EXPECT_EQ(names("disk/plans.zip").size(), 5U);
    EXPECT_EQ(stored("b.txt", "disk/plans.zip"), "b");
}

TEST_F(MountSavingTest, ADiskThatHasRoomAgainIsSavedTo) {
    if (!mountSmall("disk", "1m"))
        GTEST_SKIP() << "a small file system cannot be mounted here";
    fs::copy_file(folder.file("plans.zip"), folder.file("disk/plans.zip"));
    save("disk/ballast", noise(900 << 10));
    mount("disk/plans.zip", "save_after=3600,save_within=3600");
    Descriptor file(in("new"), O_RDWR | O_CREAT);
    EXPECT_TRUE(file.write(noise(300 << 10)));
    EXPECT_EQ(fsync(file.get()), -1);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(file.close(), ENOSPC) << "closing tells of it, too";
    fs::remove(folder.file("disk/ballast"));
    unmount();
    EXPECT_EQ(names("disk/plans.zip").size(), 6U);
}

TEST_F(MountSavingTest, AFullFolderForTemporaryFilesIsReportedAndNothingIsLost) {
    // ThreadSanitizer keeps a file there, too.
    if (runProcess({"mount", "-t", "tmpfs", "-o", "size=3m", "none", temporary.path().string()}).exitCode !=
        0)
        GTEST_SKIP() << "a small file system cannot be mounted here";
    m_small.push_back(temporary.path().string());
    mount("plans.zip", "save_after=3600,save_within=3600");
    const auto some = noise(1800 << 10);
    put(in("some"), some);
    {
        const Descriptor more(in("more"), O_WRONLY | O_CREAT);
        std::string rest = noise(4 << 20);
        const auto written = ::write(more.get(), rest.data(), rest.size());
        EXPECT_TRUE(written < static_cast<ssize_t>(rest.size())) << "the writer is told";
        EXPECT_TRUE(written >= 0 || errno == ENOSPC) << std::strerror(errno);
        EXPECT_EQ(unlink(in("more").c_str()), 0);
    }
    {
        const Descriptor root(mountPoint(), O_RDONLY | O_DIRECTORY);
        EXPECT_EQ(fsync(root.get()), -1) << "there is no room to build the archive";
    }
    EXPECT_EQ(names("plans.zip").size(), 5U);
    const auto message = failingUnmount();
    const auto rescue = keptIn(message);
    ASSERT_FALSE(rescue.empty()) << message;
    EXPECT_EQ(verifyArchive(rescue).problems(), "");
    EXPECT_TRUE(contentOf(rescue, "some") == some);
}

TEST_F(MountSavingTest, AnArchiveThatWasMadeReadOnlyIsNotWrittenAndNothingIsLost) {
    mount("plans.zip", "save_after=3600,save_within=3600");
    put(in("new"), "text");
    if (runProcess({"chattr", "+i", folder.file("plans.zip").string()}).exitCode != 0)
        GTEST_SKIP() << "a file cannot be made immutable here";
    {
        const Descriptor root(mountPoint(), O_RDONLY | O_DIRECTORY);
        EXPECT_EQ(fsync(root.get()), -1);
        EXPECT_TRUE(errno == EROFS || errno == EACCES || errno == EPERM) << std::strerror(errno);
    }
    const auto message = failingUnmount();
    runProcess({"chattr", "-i", folder.file("plans.zip").string()});
    const auto rescue = keptIn(message);
    ASSERT_FALSE(rescue.empty()) << message;
    EXPECT_EQ(contentOf(rescue, "new"), "text");
    EXPECT_EQ(names("plans.zip").size(), 5U);
}

TEST_F(MountSavingTest, AnArchiveThatWasMadeReadOnlyRefusesTheFirstChange) {
    mount();
    put(in("new"), "text");
    waitUntilSaved();
    if (runProcess({"chattr", "+i", folder.file("plans.zip").string()}).exitCode != 0)
        GTEST_SKIP() << "a file cannot be made immutable here";
    EXPECT_FALSE(Descriptor(in("new"), O_WRONLY).isOpen());
    EXPECT_EQ(errno, EROFS);
    EXPECT_EQ(mkdir(in("made").c_str(), 0755), -1);
    EXPECT_EQ(errno, EROFS);
    EXPECT_EQ(unlink(in("b.txt").c_str()), -1);
    EXPECT_EQ(errno, EROFS);
    runProcess({"chattr", "-i", folder.file("plans.zip").string()});
    EXPECT_EQ(unlink(in("b.txt").c_str()), 0) << std::strerror(errno);
    unmount();
    EXPECT_EQ(names("plans.zip").size(), 5U);
}

TEST_F(MountSavingTest, TheLogSaysWhySavesFail) {
    const auto log = folder.file("log").string();
    runProcess({"bash", "-c", "\"$@\" > /dev/null 2> '" + log + "' &", "bash", binary(), "mount", "-f", "-o",
                "save_after=3600,save_within=3600", folder.file("plans.zip").string(), mountPoint()},
               mountOptions());
    for (int i = 0; i < 200 && !isMounted(); ++i)
        usleep(50'000);
    ASSERT_TRUE(isMounted()) << get(log);
    put(in("new"), "text");
    save("plans.zip", "no archive any more");
    {
        const Descriptor root(mountPoint(), O_RDONLY | O_DIRECTORY);
        EXPECT_EQ(fsync(root.get()), -1);
        EXPECT_NE(get(log).find("cannot save " + folder.file("plans.zip").string() + ": "), std::string::npos)
            << get(log);
    }
    const auto message = failingUnmount();
    EXPECT_EQ(contentOf(keptIn(message), "new"), "text");
    EXPECT_NE(get(log).find("not everything could be saved"), std::string::npos) << get(log);
    EXPECT_EQ(load("plans.zip"), "no archive any more");
}

TEST_F(MountSavingTest, AnArchiveThatAnotherProgramChangedIsNotOverwritten) {
    mount("plans.zip", "save_after=3600,save_within=3600");
    put(in("new"), "mine");
    ASSERT_EQ(runProcess({"python3", "-c",
                          "import zipfile, sys\n"
                          "with zipfile.ZipFile(sys.argv[1], 'a') as z: z.writestr('theirs', 'theirs')",
                          folder.file("plans.zip").string()})
                  .exitCode,
              0);
    {
        const Descriptor file(in("new"), O_RDWR);
        EXPECT_EQ(fsync(file.get()), -1);
        EXPECT_EQ(errno, EIO);
    }
    const auto message = failingUnmount();
    EXPECT_NE(message.find("another program has changed it"), std::string::npos) << message;
    EXPECT_EQ(contentOf(keptIn(message), "new"), "mine");
    EXPECT_EQ(stored("theirs"), "theirs");
    EXPECT_EQ(names("plans.zip").size(), 6U);
}

TEST_F(MountSavingTest, OtherCommandsWaitForAMountAndAMountDoesNotWait) {
    mount();
    fs::create_directories(folder.file("second"));
    const auto second =
        runMountTool({"mount", folder.file("plans.zip").string(), folder.file("second").string()});
    EXPECT_EQ(second.exitCode, 1);
    EXPECT_NE(second.errors.find("another program changes it, or has mounted it"), std::string::npos)
        << second.errors;
    const auto readOnly = runMountTool(
        {"mount", "-o", "ro", folder.file("plans.zip").string(), folder.file("second").string()});
    EXPECT_EQ(readOnly.exitCode, 0) << readOnly.errors;
    EXPECT_EQ(get(folder.file("second/b.txt")), "b");
    EXPECT_EQ(runMountTool({"umount", folder.file("second").string()}).exitCode, 0);
    const auto waiting = runProcess(
        {"timeout", "0.5", binary(), "mkdir", folder.file("plans.zip/made").string()}, mountOptions());
    EXPECT_NE(waiting.exitCode, 0);
    EXPECT_NE(waiting.errors.find("waiting for another program"), std::string::npos) << waiting.errors;
    unmount();
    EXPECT_EQ(runMountTool({"mkdir", folder.file("plans.zip/made").string()}).exitCode, 0);
}

TEST_F(MountSavingTest, AReadOnlyMountCanBeReadAlone) {
    mount("plans.zip", "ro");
    EXPECT_EQ(get(in("docs/a.txt")), "text\n");
    const Descriptor file(in("b.txt"), O_RDWR);
    EXPECT_FALSE(file.isOpen());
    EXPECT_EQ(errno, EROFS);
    EXPECT_EQ(mkdir(in("new").c_str(), 0755), -1);
    EXPECT_EQ(errno, EROFS);
    unmount();
}

TEST_F(MountSavingTest, ArchivesInsideAreShownAsFoldersWhereAskedFor) {
    ArchiveBuilder inner;
    inner.add("deep/x.txt", "inside\n");
    ArchiveBuilder outer;
    outer.add("inner.zip", inner.build()).add("inner.zip.d", "taken").add("text.zip", "no archive");
    save("outer.zip", outer.build());
    mount("outer.zip", "nested");
    EXPECT_EQ(get(in("inner.zip.d")), "taken");
    EXPECT_EQ(get(in("inner.zip.d2/deep/x.txt")), "inside\n");
    EXPECT_FALSE(Descriptor(in("inner.zip.d2/deep/x.txt"), O_RDWR).isOpen());
    EXPECT_EQ(errno, EROFS);
    EXPECT_EQ(runProcess({"ls", in("text.zip.d").string()}).exitCode, 2);
    ArchiveBuilder changed;
    changed.add("deep/x.txt", "changed\n");
    put(in("inner.zip"), changed.build());
    EXPECT_EQ(get(in("inner.zip")), changed.build());
    ASSERT_EQ(rename(in("inner.zip").c_str(), in("renamed.zip").c_str()), 0);
    EXPECT_FALSE(fs::exists(in("inner.zip.d2")));
    EXPECT_EQ(get(in("renamed.zip.d/deep/x.txt")), "changed\n");
    unmount();
    EXPECT_EQ(names("outer.zip"), (Names{"inner.zip.d", "renamed.zip", "text.zip"}));
}

TEST_F(MountSavingTest, MountAndUmountTellWhatTheyDidInJson) {
    const auto archive = folder.file("plans.zip").string();
    const auto mounted = runMountTool({"--json", "mount", archive, mountPoint()});
    ASSERT_EQ(mounted.exitCode, 0) << mounted.errors;
    const auto first = nlohmann::json::parse(mounted.output).at(0);
    EXPECT_EQ(first["path"], archive);
    EXPECT_EQ(first["mountPoint"], mountPoint());
    EXPECT_EQ(first["process"], listing()[0]["process"]);
    put(in("new.txt"), "new");
    const auto ended = runMountTool({"--json", "umount", mountPoint() + "/"});
    ASSERT_EQ(ended.exitCode, 0) << ended.errors;
    const auto last = nlohmann::json::parse(ended.output).at(0);
    EXPECT_EQ(last["path"], mountPoint() + "/");
    EXPECT_EQ(last["archive"], archive);
    EXPECT_EQ(last["saves"], 1);
    EXPECT_EQ(stored("new.txt"), "new");
}

TEST_F(MountSavingTest, WhatCannotBeMountedIsSaid) {
    save("text", "no archive");
    fs::create_directories(folder.file("place"));
    const auto place = folder.file("place").string();
    EXPECT_NE(failure({"mount", "text", place}).find("not a ZIP archive"), std::string::npos);
    EXPECT_NE(failure({"mount", "none.zip", place}), "");
    EXPECT_NE(failure({"mount", "plans.zip", "nowhere"}).find("no folder to mount over"), std::string::npos);
    EXPECT_NE(failure({"umount", place}).find("no archive of this user is mounted there"), std::string::npos);
    EXPECT_NE(failure({"umount", "none/below"}).find("no archive of this user is mounted there"),
              std::string::npos);
    EXPECT_EQ(run({"mount", "-o", "nonsense", "plans.zip", place}).exitCode, 2);
    EXPECT_EQ(run({"mount", "-o", "save_after=soon", "plans.zip", place}).exitCode, 2);
    EXPECT_EQ(run({"mount", "plans.zip"}).exitCode, 2);
}
