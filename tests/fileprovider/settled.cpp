#include "LocalFilesTest.h"
#include "SimulatedCrash.h"

#include <storage/fileprovider/src/SystemCalls.h>

#include <string>

namespace kx::test {

namespace fs = std::filesystem;

namespace {

/// Counts the files that are opened: the one that is read, and those that tell of interrupted saves.
class CountedOpens : public storage::fileprovider::SystemCalls {
public:
    int open(const char* path, int flags, mode_t mode) override {
        ++count;
        return SystemCalls::open(path, flags, mode);
    }
    timespec now() override {
        auto time = SystemCalls::now();
        time.tv_sec += later;
        return time;
    }
    int count = 0;
    /// Seconds that the files seem to be older than they are.
    int later = 0;
};

} // namespace

class SettledFilesTest : public LocalFilesTest {
protected:
    /// Reads through the same provider each time; returns how many files were opened for it.
    int opensToRead(std::string_view name, std::string_view expected) {
        m_opens->count = 0;
        EXPECT_EQ(readFile(*m_provider, iri(name)), expected);
        return m_opens->count;
    }

    const std::shared_ptr<CountedOpens> m_opens = std::make_shared<CountedOpens>();
    const std::shared_ptr<LocalFileProvider> m_provider = LocalFileProvider::create(options(m_opens));
};

TEST_F(SettledFilesTest, AFileThatDidNotChangeIsSearchedForInterruptedSavesOnce) {
    spit(file("a"), "bytes");
    m_opens->later = 10;
    EXPECT_GT(opensToRead("a", "bytes"), 1);
    EXPECT_EQ(opensToRead("a", "bytes"), 1);
    spit(file("a"), "other");
    EXPECT_GT(opensToRead("a", "other"), 1);
}

TEST_F(SettledFilesTest, AFileThatHasJustChangedIsSearchedEachTime) {
    spit(file("a"), "bytes");
    EXPECT_GT(opensToRead("a", "bytes"), 1);
    EXPECT_GT(opensToRead("a", "bytes"), 1);
}

TEST_F(SettledFilesTest, AFileWithSeveralNamesIsSearchedEachTime) {
    spit(file("a"), "bytes");
    fs::create_hard_link(file("a"), file("b"));
    m_opens->later = 10;
    EXPECT_GT(opensToRead("a", "bytes"), 1);
    EXPECT_GT(opensToRead("a", "bytes"), 1);
}

TEST_F(SettledFilesTest, AFileWhoseTimeWasPutBackIsSearched) {
    spit(file("a"), "bytes");
    const auto time = fs::last_write_time(file("a"));
    m_opens->later = 10;
    opensToRead("a", "bytes");
    spit(file("a"), "other");
    fs::last_write_time(file("a"), time);
    EXPECT_GT(opensToRead("a", "other"), 1);
}

TEST_F(SettledFilesTest, ADifferentFileOfThatNameIsSearched) {
    spit(file("a"), "bytes");
    spit(file("b"), "other");
    m_opens->later = 10;
    opensToRead("a", "bytes");
    fs::rename(file("b"), file("a"));
    EXPECT_GT(opensToRead("a", "other"), 1);
    fs::remove(file("a"));
    expectError(ErrorCode::NotFound, [&] { m_provider->openReadStream(iri("a")); });
    fs::create_directory(file("a"));
    expectError(ErrorCode::NotFound, [&] { m_provider->openReadStream(iri("a")); });
}

TEST_F(SettledFilesTest, ASaveThatIsInterruptedAfterTheFileWasReadIsFinishedOrUndone) {
    constexpr std::uint64_t crashes = 40;
    const auto before = randomBytes(20'000, 1);
    const auto after = randomBytes(20'000, 2);
    const auto nameOf = [](std::uint64_t crash) { return "file" + std::to_string(crash); };
    for (std::uint64_t crash = 1; crash <= crashes; ++crash) {
        spit(file(nameOf(crash)), before);
    }
    m_opens->later = 10;
    for (std::uint64_t crash = 1; crash <= crashes; ++crash) {
        opensToRead(nameOf(crash), before);
    }
    int halfWritten = 0;
    for (std::uint64_t crash = 1; crash <= crashes; ++crash) {
        const auto calls = std::make_shared<SimulatedCrash>(std::vector<fs::path>{folder(), stateFolder()});
        // A file beside which none can be made is overwritten where it stands.
        calls->denyCreationIn(folder());
        calls->crashBefore(crash);
        try {
            writeFile(*LocalFileProvider::create(options(calls)), iri(nameOf(crash)), after);
        } catch (const Exception&) {
            EXPECT_TRUE(calls->crashed());
        }
        const auto left = slurp(file(nameOf(crash)));
        halfWritten += left != before && left != after ? 1 : 0;
        const auto seen = readFile(*m_provider, iri(nameOf(crash)));
        EXPECT_TRUE(seen == before || seen == after) << "crash before call " << crash;
    }
    EXPECT_GT(halfWritten, 0);
}

} // namespace kx::test
