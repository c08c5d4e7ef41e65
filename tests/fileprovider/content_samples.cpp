#include <storage/fileprovider/src/ContentSamples.h>
#include <storage/fileprovider/src/Descriptor.h>
#include <support/TemporaryFolder.h>
#include <support/contents.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <fstream>
#include <random>

namespace kx::test {

using namespace storage::fileprovider;

namespace {

constexpr std::size_t sector = 512;

struct Sizes {
    std::size_t before;
    std::size_t after;
};

const Sizes sizes[] = {{0, 700},      {22, 100},        {100, 22},
                       {300, 340},    {9000, 20'000},   {20'000, 9000},
                       {70'000, 100}, {600'001, 7'000}, {2'000'003, 2'100'001}};

class ContentSamples : public testing::Test {
protected:
    Descriptor fileWith(const std::string& name, const std::string& bytes) const {
        std::ofstream(m_folder.file(name), std::ios::binary) << bytes;
        return Descriptor::open(m_environment.calls, m_folder.file(name).c_str(), O_RDONLY);
    }

    void begin(const Sizes& given) {
        m_before = randomBytes(given.before, 1);
        m_after = randomBytes(given.after, 2);
        m_newFile = fileWith("after", m_after);
        const auto before = fileWith("before", m_before);
        ASSERT_EQ(sampleContents(m_environment, before.get(), given.before, given.after, m_samples), 0);
        ASSERT_LE(m_samples.size(), 8192U);
    }

    bool fits(const std::string& bytes) const {
        const auto file = fileWith("present", bytes);
        bool result = false;
        EXPECT_EQ(compareWithStoppedCopy(m_environment, file.get(),
                                         {m_samples, m_before.size(), m_after.size(), m_newFile.get()},
                                         result),
                  0);
        return result;
    }

    /// As after a process that was killed when it had copied `count` bytes.
    std::string stoppedAfter(std::size_t count) const {
        return m_after.substr(0, count) + (count < m_before.size() ? m_before.substr(count) : std::string());
    }

    const TemporaryFolder m_folder;
    const Environment m_environment{std::make_shared<SystemCalls>(), false, {}, {}};
    std::string m_before;
    std::string m_after;
    std::string m_samples;
    Descriptor m_newFile;
};

} // namespace

TEST_F(ContentSamples, FitWhereverTheProcessStopped) {
    for (const auto& given : sizes) {
        begin(given);
        const auto step = std::max<std::size_t>(1, given.after / 29);
        for (std::size_t count = 0; count <= given.after; count += step) {
            ASSERT_TRUE(fits(stoppedAfter(count))) << given.before << ", " << given.after << ", " << count;
        }
        EXPECT_TRUE(fits(m_after));
        EXPECT_TRUE(fits(m_before));
    }
}

TEST_F(ContentSamples, FitWhateverSectorsThePowerFailureLeft) {
    std::mt19937 random(4711);
    for (const auto& given : sizes) {
        begin(given);
        for (int i = 0; i < 20; ++i) {
            // What is reserved behind the old end reads as zeros.
            auto bytes = m_before;
            bytes.resize(std::max(given.before, given.after));
            for (std::size_t at = 0; at < given.after; at += sector) {
                if (random() % 2 == 0) {
                    const auto count = std::min(sector, given.after - at);
                    bytes.replace(at, count, m_after, at, count);
                }
            }
            ASSERT_TRUE(fits(bytes)) << given.before << ", " << given.after;
        }
    }
}

TEST_F(ContentSamples, DoNotFitOtherContents) {
    for (const auto& given : sizes) {
        begin(given);
        const auto larger = std::max(given.before, given.after);
        EXPECT_FALSE(fits(randomBytes(larger, 3)));
        auto otherEnd = stoppedAfter(given.after / 2);
        otherEnd.resize(larger);
        const auto changed = std::min<std::size_t>(larger, 64);
        otherEnd.replace(larger - changed, changed, randomBytes(changed, 4));
        EXPECT_FALSE(fits(otherEnd)) << given.before << ", " << given.after;
    }
}

TEST_F(ContentSamples, FitWhereTheNewContentsEndTooEarly) {
    begin(sizes[4]);
    m_newFile = fileWith("cut", "");
    EXPECT_TRUE(fits(stoppedAfter(5000)));
}

TEST_F(ContentSamples, FitWhatMayNotBeRead) {
    begin(sizes[3]);
    std::ofstream(m_folder.file("closed")) << "foreign";
    const auto file = Descriptor::open(m_environment.calls, m_folder.file("closed").c_str(), O_WRONLY);
    bool fits = false;
    EXPECT_EQ(compareWithStoppedCopy(m_environment, file.get(),
                                     {m_samples, m_before.size(), m_after.size(), m_newFile.get()}, fits),
              0);
    EXPECT_TRUE(fits);
    std::string samples = "left over";
    EXPECT_EQ(sampleContents(m_environment, file.get(), 7, 100, samples), 0);
    EXPECT_EQ(samples, "");
}

TEST_F(ContentSamples, TellThatReadingFailed) {
    begin(sizes[3]);
    const auto folder = Descriptor::open(m_environment.calls, m_folder.path().c_str(), O_RDONLY);
    bool fits = false;
    EXPECT_EQ(compareWithStoppedCopy(m_environment, folder.get(),
                                     {m_samples, m_before.size(), m_after.size(), m_newFile.get()}, fits),
              EISDIR);
    std::string samples;
    EXPECT_EQ(sampleContents(m_environment, folder.get(), 7, 100, samples), EISDIR);
}

} // namespace kx::test
