#include "ZipProviderTest.h"

#include <support/archives/ArchiveBuilder.h>

#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <random>
#include <thread>

namespace kx::test {

namespace {

using namespace std::chrono_literals;

/// Runs each piece of work again and again, each in a thread of its own, for a while. What one throws ends
/// the test with its message.
void inThreads(std::chrono::milliseconds time, const std::vector<std::function<void(std::mt19937&)>>& works) {
    const auto end = std::chrono::steady_clock::now() + time;
    std::atomic<bool> failed = false;
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < works.size(); ++i) {
        threads.emplace_back([&, i] {
            std::mt19937 random(static_cast<std::mt19937::result_type>(i));
            try {
                while (!failed && std::chrono::steady_clock::now() < end) {
                    works[i](random);
                }
            } catch (const std::exception& error) {
                failed = true;
                ADD_FAILURE() << "thread " << i << ": " << error.what();
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
}

class ConcurrentUse : public ZipProviderTest {
protected:
    using Exception = foundation::storage::provider::Exception;

    /// Does something that may find that another thread was there first.
    static void unlessRefused(const std::function<void()>& work) {
        try {
            work();
        } catch (const Exception& error) {
            const auto code = error.getErrorCode();
            if (code != ErrorCode::NotFound && code != ErrorCode::AlreadyExists &&
                code != ErrorCode::FolderNotEmpty) {
                throw;
            }
        }
    }

    static std::string name(std::mt19937& random, const char* prefix, unsigned count) {
        return prefix + std::to_string(random() % count);
    }

    /// Everything is in order when the threads are done.
    void expectSound() {
        const auto tree = zip.tree();
        EXPECT_EQ(MountedZip(container).tree(), tree);
        EXPECT_EQ(archiveProblems(archive(), tree), "");
        zip.unmount();
        EXPECT_TRUE(temporaryFiles().empty());
        EXPECT_EQ(memory->openStreamCount(), 0u);
    }
};

TEST_F(ConcurrentUse, ManyThreadsOnANewProviderReadTheArchiveOnce) {
    mount({{"a", "1"}});
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([this] { EXPECT_EQ(zip.list(), (std::vector<std::string>{"a"})); });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(memory->callCount(ProviderOperation::OpenReadStream), 1u);
}

TEST_F(ConcurrentUse, ReadersWritersListersAndMoversDoNotDisturbOneAnother) {
    // Folders have entries of their own, or they would go with their last file.
    mount({{"fixed/", ""},
           {"fixed/a", std::string(20'000, 'a')},
           {"files/", ""},
           {"moved/", ""},
           {"moved/here/", ""},
           {"moved/here/x", "ex"}});
    const auto write = [this](std::mt19937& random) {
        const auto path = name(random, "/files/f", 4);
        unlessRefused([&] {
            const auto stream = zip.writer(path);
            const std::string bytes(1 + random() % 3000, static_cast<char>('a' + random() % 26));
            writeAll(*stream, bytes);
            if (random() % 4 != 0) {
                stream->close();
            }
        });
    };
    const auto read = [this](std::mt19937& random) {
        EXPECT_EQ(zip.read("/fixed/a"), std::string(20'000, 'a'));
        unlessRefused([&] { zip.read(name(random, "/files/f", 4)); });
    };
    const auto list = [this](std::mt19937&) {
        EXPECT_EQ(zip.list(), (std::vector<std::string>{"files/", "fixed/", "moved/"}));
        unlessRefused([&] {
            for (const auto& file : zip.list("/files")) {
                zip.isFile("/files/" + file);
            }
        });
        EXPECT_EQ(zip.size("/fixed/a"), 20'000u);
    };
    const auto move = [this](std::mt19937&) {
        unlessRefused([&] { zip.moveFolder("/moved/here", "/moved/there"); });
        unlessRefused([&] { EXPECT_EQ(zip.read("/moved/there/x"), "ex"); });
        unlessRefused([&] { zip.moveFolder("/moved/there", "/moved/here"); });
    };
    const auto rename = [this](std::mt19937& random) {
        unlessRefused([&] {
            zip.moveFile(name(random, "/files/f", 4), name(random, "/files/f", 4),
                         MoveOption::ReplaceExisting);
        });
        unlessRefused([&] { zip.removeFile(name(random, "/files/f", 4)); });
    };
    inThreads(3s, {write, write, read, list, move, rename});
    EXPECT_EQ(zip.read("/fixed/a"), std::string(20'000, 'a'));
    EXPECT_EQ(zip.isFile("/moved/here/x") + zip.isFile("/moved/there/x"), 1);
    expectSound();
}

TEST_F(ConcurrentUse, EveryThreadFindsItsOwnFilesAsItLeftThem) {
    std::array<std::map<std::string, std::string>, 4> left;
    std::vector<std::function<void(std::mt19937&)>> works;
    for (std::size_t i = 0; i < left.size(); ++i) {
        const auto folder = "/t" + std::to_string(i);
        zip.createFolder(folder);
        works.push_back([this, folder, &mine = left[i]](std::mt19937& random) {
            const auto path = name(random, (folder + "/f").c_str(), 5);
            if (const auto known = mine.find(path); known == mine.end()) {
                zip.write(path,
                          mine[path] = randomBytes(random() % 5000, static_cast<unsigned>(random() % 1000)));
            } else if (random() % 3 == 0) {
                zip.removeFile(path);
                mine.erase(known);
            } else if (random() % 2 == 0) {
                zip.append(path, "+");
                known->second += "+";
            } else {
                EXPECT_EQ(zip.read(path), known->second);
                EXPECT_EQ(zip.size(path), known->second.size());
            }
        });
    }
    inThreads(3s, works);
    for (const auto& files : left) {
        for (const auto& [path, bytes] : files) {
            EXPECT_EQ(zip.read(path), bytes);
        }
    }
    expectSound();
}

TEST_F(ConcurrentUse, StreamsOnOneFileAreOpenedAndClosedFromEverywhere) {
    zip.write("/shared", "");
    std::atomic<std::size_t> appended = 0;
    const auto append = [&](std::mt19937&) {
        const auto stream = zip.writer("/shared", ByteStreamOpenOptions::append());
        writeAll(*stream, "x");
        ++appended;
        stream->close();
    };
    const auto read = [&](std::mt19937&) {
        const auto bytes = zip.read("/shared");
        EXPECT_EQ(bytes, std::string(bytes.size(), 'x'));
    };
    inThreads(2s, {append, append, append, read, read});
    EXPECT_EQ(zip.read("/shared"), std::string(appended, 'x'));
    expectSound();
}

TEST_F(ConcurrentUse, InnerAndOuterArchivesAreUsedAtTheSameTime) {
    mount({{"inner.zip", simpleArchive({{"a", "1"}})}, {"other", "2"}});
    MountedZip inner(zip.item("/inner.zip"));
    const auto inside = [&](std::mt19937& random) { inner.write(name(random, "/f", 3), "inner"); };
    const auto outside = [&](std::mt19937& random) { zip.write(name(random, "/f", 3), "outer"); };
    const auto look = [&](std::mt19937&) {
        EXPECT_EQ(inner.read("/a"), "1");
        EXPECT_EQ(zip.read("/other"), "2");
        zip.list();
        inner.list();
    };
    inThreads(2s, {inside, outside, look});
    const auto tree = inner.tree();
    inner.unmount();
    EXPECT_EQ(MountedZip(zip.item("/inner.zip")).tree(), tree);
    expectSound();
}

TEST_F(ConcurrentUse, AProviderIsDestroyedWhileItsChangesAreLookedFor) {
    for (int i = 0; i < 20; ++i) {
        mount({{"a", "1"}});
        std::atomic<int> events = 0;
        zip.provider().publishFolderEventsFor(zip.at("/"), [&](const auto&) { ++events; });
        zip.provider().startChangePollingMechanism(1ms);
        zip.write("/b", "2");
        std::this_thread::sleep_for(std::chrono::milliseconds(i));
        zip.unmount();
        const int seen = events;
        std::this_thread::sleep_for(2ms);
        EXPECT_EQ(events, seen);
    }
}

TEST_F(ConcurrentUse, ClosingAStreamFromTwoThreadsSavesOnce) {
    for (int i = 0; i < 50; ++i) {
        const auto stream = zip.writer("/a");
        const auto before = memory->callCount(ProviderOperation::OpenStream);
        std::thread other([&] { stream->close(); });
        stream->close();
        other.join();
        EXPECT_EQ(memory->callCount(ProviderOperation::OpenStream), before + 1);
    }
}

} // namespace

} // namespace kx::test
