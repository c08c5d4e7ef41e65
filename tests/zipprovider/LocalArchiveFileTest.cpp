#include "WorkingFolder.h"

#include <storage/zipprovider/src/LocalArchiveFile.h>

#include <support/contents.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

namespace kx::test {
namespace {

using storage::zipprovider::LocalArchiveFile;

std::string bytesOf(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios_base::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

TEST(LocalArchiveFile, HoldsWhatWasWrittenWhereverAndInWhateverPieces) {
    const WorkingFolder folder;
    std::mt19937 random(3);
    for (int round = 0; round < 20; ++round) {
        const auto path = folder.path() / ("file" + std::to_string(round));
        const auto file = LocalArchiveFile::open(path, LocalArchiveFile::Mode::Create);
        ASSERT_NE(file, nullptr);
        std::string expected;
        for (int step = 0; step < 60; ++step) {
            const auto place = step % 3 == 0 ? random() % (expected.size() + 1) : expected.size();
            const auto bytes =
                randomBytes(random() % (step % 10 == 0 ? 1'500'000 : 3000), static_cast<unsigned>(random()));
            file->goTo(place);
            ASSERT_TRUE(file->write(bytes.data(), bytes.size()));
            EXPECT_EQ(file->position(), place + bytes.size());
            expected.resize(std::max(expected.size(), place + bytes.size()));
            std::copy(bytes.begin(), bytes.end(), expected.begin() + static_cast<std::ptrdiff_t>(place));
            if (step % 7 == 0) {
                std::string seen(std::min<std::size_t>(expected.size(), 5000), '\0');
                file->goTo(expected.size() - seen.size());
                EXPECT_EQ(file->read(seen.data(), seen.size()), seen.size());
                EXPECT_EQ(seen, expected.substr(expected.size() - seen.size()));
                EXPECT_EQ(file->size(), expected.size());
            }
        }
        ASSERT_TRUE(file->close());
        EXPECT_TRUE(bytesOf(path) == expected) << "round " << round;
    }
}

TEST(LocalArchiveFile, EndsAtThePositionWhenItIsTruncated) {
    const WorkingFolder folder;
    const auto path = folder.path() / "file";
    const auto file = LocalArchiveFile::open(path, LocalArchiveFile::Mode::Create);
    ASSERT_TRUE(file->write("0123456789", 10));
    file->goTo(4);
    ASSERT_TRUE(file->truncate());
    ASSERT_TRUE(file->write("ab", 2));
    ASSERT_TRUE(file->close());
    EXPECT_EQ(bytesOf(path), "0123ab");
}

TEST(LocalArchiveFile, ThatDoesNotExistIsNotOpened) {
    const WorkingFolder folder;
    EXPECT_EQ(LocalArchiveFile::open(folder.path() / "missing", LocalArchiveFile::Mode::Open), nullptr);
    EXPECT_EQ(LocalArchiveFile::open(folder.path() / "no" / "folder", LocalArchiveFile::Mode::Create),
              nullptr);
}

} // namespace
} // namespace kx::test
