#include "LocalFilesTest.h"
#include "OtherProcess.h"

#include <storage/fileprovider/FileLock.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include <unistd.h>

namespace kx::test {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using storage::fileprovider::FileLock;

class LocalFileLock : public LocalFilesTest {
protected:
    LocalFileLock() { spit(file("a"), "0"); }

    FileLock tryLock(std::string_view name) { return FileLock::tryAcquire(iri(name), options()); }
    /// What another process finds.
    bool isFreeElsewhere(std::string_view name) {
        OtherProcess other([&]() -> std::string { return tryLock(name).isHeld() ? "free" : "held"; });
        return other.result() == "free";
    }
    void addOne() {
        const auto lock = FileLock::acquire(iri("a"), {}, options());
        save("a", std::to_string(std::stoi(read("a")) + 1));
    }
};

TEST_F(LocalFileLock, ExcludesThreadsAndProcesses) {
    auto lock = FileLock::acquire(iri("a"), {}, options());
    EXPECT_TRUE(lock.isHeld());
    EXPECT_FALSE(isFreeElsewhere("a"));
    std::thread([this] { EXPECT_FALSE(tryLock("a").isHeld()); }).join();
    lock.release();
    EXPECT_FALSE(lock.isHeld());
    EXPECT_TRUE(isFreeElsewhere("a"));
    EXPECT_TRUE(tryLock("a").isHeld());
    expectNothingLeft();
}

TEST_F(LocalFileLock, IsOneForAllNamesOfAFile) {
    fs::create_hard_link(file("a"), file("hard"));
    fs::create_symlink("a", file("soft"));
    const auto lock = FileLock::acquire(iri("a"), {}, options());
    EXPECT_FALSE(isFreeElsewhere("hard"));
    EXPECT_FALSE(isFreeElsewhere("soft"));
    spit(file("b"), "");
    EXPECT_TRUE(isFreeElsewhere("b"));
}

TEST_F(LocalFileLock, MovesWithItsOwner) {
    auto first = FileLock::acquire(iri("a"), {}, options());
    FileLock second(std::move(first));
    EXPECT_FALSE(first.isHeld()); // NOLINT(bugprone-use-after-move)
    EXPECT_TRUE(second.isHeld());
    second = FileLock();
    EXPECT_TRUE(isFreeElsewhere("a"));
}

TEST_F(LocalFileLock, StaysOnAFileThatASaveReplaces) {
    const auto lock = FileLock::acquire(iri("a"), {}, options());
    for (int i = 0; i < 3; ++i) {
        const auto inode = statusOf(file("a")).st_ino;
        save("a", "new");
        EXPECT_NE(statusOf(file("a")).st_ino, inode);
        EXPECT_FALSE(isFreeElsewhere("a"));
    }
}

TEST_F(LocalFileLock, StaysOnAFileThatASaveOverwrites) {
    fs::create_hard_link(file("a"), file("link"));
    const auto lock = FileLock::acquire(iri("a"), {}, options());
    save("a", "new");
    EXPECT_FALSE(isFreeElsewhere("a"));
}

TEST_F(LocalFileLock, OfAMissingFileIsOnTheFileFromItsFirstMoment) {
    auto lock = FileLock::acquire(iri("new"), {}, options());
    EXPECT_FALSE(isFreeElsewhere("new"));
    EXPECT_TRUE(isFreeElsewhere("other"));
    EXPECT_FALSE(fs::exists(file("new")));
    save("new", "x");
    EXPECT_FALSE(isFreeElsewhere("new"));
    lock.release();
    EXPECT_TRUE(isFreeElsewhere("new"));
    expectNothingLeft();
}

TEST_F(LocalFileLock, NeedsAFolderForTheFileAndNoFolderInItsPlace) {
    expectError(ErrorCode::NotFound, [&] { tryLock("no/such"); });
    fs::create_directory(file("f"));
    expectError(ErrorCode::NotFound, [&] { tryLock("f"); });
}

TEST_F(LocalFileLock, TellsOnceThatItWaits) {
    std::atomic<int> told{0};
    std::atomic<bool> got{false};
    auto lock = FileLock::acquire(iri("a"), {}, options());
    std::thread waiting([&] {
        const auto second = FileLock::acquire(
            iri("a"),
            [&](const StorageIRI& location) {
                EXPECT_EQ(location, iri("a"));
                ++told;
            },
            options());
        got = second.isHeld();
    });
    while (told == 0) {
        std::this_thread::sleep_for(1ms);
    }
    // The file under the waiting thread's lock is replaced several times.
    save("a", "1");
    save("a", "2");
    std::this_thread::sleep_for(20ms);
    EXPECT_FALSE(got);
    lock.release();
    waiting.join();
    EXPECT_TRUE(got);
    EXPECT_EQ(told, 1);
    int toldForNothing = 0;
    EXPECT_TRUE(FileLock::acquire(
                    iri("a"), [&](const StorageIRI&) { ++toldForNothing; }, options())
                    .isHeld());
    EXPECT_EQ(toldForNothing, 0);
}

TEST_F(LocalFileLock, GivesUpWhenTheTimeIsOver) {
    auto lock = FileLock::acquire(iri("a"), {}, options());
    std::thread other([this] {
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_FALSE(FileLock::acquireFor(iri("a"), 60ms, {}, options()).isHeld());
        EXPECT_GE(std::chrono::steady_clock::now() - begin, 60ms);
    });
    other.join();
    std::thread patient([this] { EXPECT_TRUE(FileLock::acquireFor(iri("a"), 20s, {}, options()).isHeld()); });
    std::this_thread::sleep_for(20ms);
    lock.release();
    patient.join();
}

TEST_F(LocalFileLock, OfAKilledProcessIsFree) {
    OtherProcess holder([this]() -> std::string {
        const auto lock = FileLock::acquire(iri("a"), {}, options());
        const auto missing = FileLock::acquire(iri("missing"), {}, options());
        spit(file("ready"), "");
        ::pause();
        return {};
    });
    while (!fs::exists(file("ready"))) {
        ::usleep(1000);
    }
    EXPECT_FALSE(tryLock("a").isHeld());
    EXPECT_FALSE(tryLock("missing").isHeld());
    holder.kill();
    EXPECT_TRUE(tryLock("a").isHeld());
    EXPECT_TRUE(tryLock("missing").isHeld());
    expectNothingLeft();
}

TEST_F(LocalFileLock, IsTakenOnTheFileThatTheNameLeadsToInTheEnd) {
    auto lock = FileLock::acquire(iri("a"), {}, options());
    std::atomic<bool> waits{false};
    std::thread waiting([&] {
        const auto second = FileLock::acquire(
            iri("a"), [&](const StorageIRI&) { waits = true; }, options());
        EXPECT_FALSE(isFreeElsewhere("a"));
    });
    while (!waits) {
        std::this_thread::sleep_for(1ms);
    }
    // By a program that knows nothing of locks.
    spit(file("b"), "another file");
    fs::rename(file("b"), file("a"));
    lock.release();
    waiting.join();
}

TEST_F(LocalFileLock, AFileThatCannotBeOpenedIsLockedByItsName) {
    if (!isSuperuser()) {
        GTEST_SKIP() << "only the superuser may act as another user";
    }
    fs::permissions(folder(), fs::perms::all);
    fs::permissions(stateFolder(), fs::perms::all);
    fs::permissions(file("a"), fs::perms::none);
    OtherProcess stranger(
        [this]() -> std::string {
            auto how = options();
            how.stateFolder = (stateFolder() / "stranger").string();
            const auto lock = FileLock::acquire(iri("a"), {}, how);
            return lock.isHeld() && !FileLock::tryAcquire(iri("a"), how).isHeld() ? "excluded"
                                                                                  : "not excluded";
        },
        65123);
    EXPECT_EQ(stranger.result(), "excluded");
}

TEST_F(LocalFileLock, ChangesUnderItAreNeverLost) {
    constexpr int rounds = 25;
    std::vector<std::unique_ptr<OtherProcess>> processes;
    for (int i = 0; i < 3; ++i) {
        processes.push_back(std::make_unique<OtherProcess>([this]() -> std::string {
            for (int round = 0; round < rounds; ++round) {
                addOne();
            }
            return "done";
        }));
    }
    std::thread thread([this] {
        for (int round = 0; round < rounds; ++round) {
            addOne();
        }
    });
    for (const auto& process : processes) {
        EXPECT_EQ(process->result(), "done");
    }
    thread.join();
    EXPECT_EQ(read("a"), std::to_string(4 * rounds));
    expectNothingLeft();
}

} // namespace kx::test
