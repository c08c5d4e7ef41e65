#include "LocalFilesTest.h"
#include "OtherProcess.h"

#include <chrono>
#include <random>
#include <thread>

namespace kx::test {

namespace fs = std::filesystem;

namespace {

/// Contents from which their number can be told, and whether they are whole.
std::string version(unsigned number) {
    return std::to_string(number) + '\n' + randomBytes(40'000 + number % 7 * 9'000, number);
}

bool isWholeVersion(const std::string& bytes) {
    return bytes == version(static_cast<unsigned>(std::strtoul(bytes.c_str(), nullptr, 10)));
}

class KillTest : public LocalFilesTest {
protected:
    /// A process that saves one version after the other, for ever.
    std::string saveForEver(unsigned first, bool sync) {
        auto how = options();
        how.sync = sync;
        const auto provider = LocalFileProvider::create(how);
        for (unsigned number = first;; ++number) {
            writeFile(*provider, iri("a"), version(number));
        }
    }

    void killManyTimes(int times, bool sync, unsigned links) {
        std::mt19937 random(4711);
        std::uniform_int_distribution<int> delay(0, 12'000);
        for (int i = 0; i < times; ++i) {
            OtherProcess saver([&] { return saveForEver(static_cast<unsigned>(i) * 1000, sync); });
            std::this_thread::sleep_for(std::chrono::microseconds(delay(random)));
            saver.kill();
            ASSERT_TRUE(isWholeVersion(read("a"))) << "after kill " << i;
            ASSERT_EQ(statusOf(file("a")).st_nlink, links);
        }
        static_cast<void>(recover("a"));
        expectNothingLeft();
    }
};

} // namespace

TEST_F(KillTest, AKilledSaverLeavesAWholeFileThatIsReplaced) {
    spit(file("a"), version(1));
    killManyTimes(60, true, 1);
}

TEST_F(KillTest, AKilledSaverLeavesAWholeFileThatIsOverwritten) {
    spit(file("a"), version(1));
    fs::create_hard_link(file("a"), file("link"));
    killManyTimes(60, true, 2);
    EXPECT_EQ(statusOf(file("a")).st_ino, statusOf(file("link")).st_ino);
}

TEST_F(KillTest, AKilledSaverThatDoesNotSyncLeavesAWholeFileToo) {
    spit(file("a"), version(1));
    fs::create_hard_link(file("a"), file("link"));
    killManyTimes(60, false, 2);
}

TEST_F(KillTest, ReadersNextToASaverSeeWholeFiles) {
    spit(file("a"), version(1));
    OtherProcess saver([&] { return saveForEver(2, false); });
    for (int i = 0; i < 200; ++i) {
        ASSERT_TRUE(isWholeVersion(read("a")));
    }
}

} // namespace kx::test
