#include "LocalFilesTest.h"
#include "OtherProcess.h"

#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/resource.h>

namespace kx::test {

namespace fs = std::filesystem;
using foundation::storage::provider::MoveOption;
using foundation::storage::provider::SeekOrigin;

class LocalFileSaving : public LocalFilesTest {};

TEST_F(LocalFileSaving, ANewFileHasTheUsualPermissions) {
    const auto mask = ::umask(027);
    save("new", "x");
    ::umask(mask);
    EXPECT_EQ(statusOf(file("new")).st_mode & 07777, 0640U);
}

TEST_F(LocalFileSaving, AFileMadeMeanwhileIsReplacedWithAllItIs) {
    const auto stream = files().openStream(iri("new"), {});
    writeAll(*stream, "mine");
    spit(file("new"), "theirs");
    fs::permissions(file("new"), fs::perms::owner_read | fs::perms::owner_write);
    stream->close();
    EXPECT_EQ(slurp(file("new")), "mine");
    EXPECT_EQ(statusOf(file("new")).st_mode & 07777, 0600U);
    expectNothingLeft();
}

TEST_F(LocalFileSaving, AFileRemovedMeanwhileComesBack) {
    save("a", "old");
    fs::permissions(file("a"), fs::perms::owner_read | fs::perms::owner_write);
    const auto stream = files().openStream(iri("a"), {});
    writeAll(*stream, "new");
    fs::remove(file("a"));
    stream->close();
    EXPECT_EQ(slurp(file("a")), "new");
    EXPECT_EQ(statusOf(file("a")).st_mode & 07777, 0600U);
}

TEST_F(LocalFileSaving, ThreadsThatOverwriteOneFileLeaveOneOfTheirContents) {
    spit(file("a"), "");
    fs::create_hard_link(file("a"), file("link"));
    std::vector<std::thread> threads;
    for (unsigned seed = 1; seed <= 4; ++seed) {
        threads.emplace_back([this, seed] {
            for (int i = 0; i < 10; ++i) {
                save("a", randomBytes(seed * 5000, seed));
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    const auto bytes = slurp(file("a"));
    EXPECT_TRUE(bytes == randomBytes(bytes.size(), static_cast<unsigned>(bytes.size() / 5000)));
    EXPECT_EQ(statusOf(file("a")).st_nlink, 2U);
    expectNothingLeft();
}

TEST_F(LocalFileSaving, AFileBeyondFourGigabytesIsWrittenAndRead) {
    constexpr std::int64_t far = std::int64_t{5} << 30;
    {
        const auto stream = files().openStream(iri("a"), {});
        EXPECT_EQ(stream->seek(far, SeekOrigin::Begin), far);
        writeAll(*stream, "end");
        stream->close();
    }
    EXPECT_EQ(files().getFileAttributes(iri("a")).getSize(), static_cast<std::uint64_t>(far) + 3);
    {
        const auto stream = files().openStream(iri("a"), ByteStreamOpenOptions::append());
        writeAll(*stream, "+");
        stream->close();
    }
    EXPECT_LT(statusOf(file("a")).st_blocks, 1000) << "holes were filled";
    const auto stream = files().openReadStream(iri("a"));
    EXPECT_EQ(stream->seek(-4, SeekOrigin::End), far);
    EXPECT_EQ(readAll(*stream), "end+");
    stream->seek(far - 1, SeekOrigin::Begin);
    EXPECT_EQ(readAll(*stream), std::string("\0end+", 5));
}

TEST_F(LocalFileSaving, AFileTooLargeForItsUserIsNoSpace) {
    save("a", "old");
    OtherProcess limited([this]() -> std::string {
        ::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{10'000, 10'000};
        ::setrlimit(RLIMIT_FSIZE, &limit);
        try {
            save("a", std::string(20'000, 'x'));
        } catch (const Exception& error) {
            return error.getErrorCode() == ErrorCode::NoSpace ? "no space" : error.what();
        }
        return "saved";
    });
    EXPECT_EQ(limited.result(), "no space");
    EXPECT_EQ(slurp(file("a")), "old");
    expectNothingLeft();
}

/// On a file system of one megabyte.
class FullDiskSaving : public LocalFileSaving {
protected:
    void SetUp() override {
        if (::mount("tmpfs", folder().c_str(), "tmpfs", 0, "size=1m") != 0) {
            GTEST_SKIP() << "cannot mount a small file system here";
        }
        m_mounted = true;
    }
    void TearDown() override {
        if (m_mounted) {
            ::umount2(folder().c_str(), MNT_DETACH);
        }
    }

private:
    bool m_mounted = false;
};

TEST_F(FullDiskSaving, ContentsThatDoNotFitLeaveTheOldOnes) {
    const auto old = randomBytes(300'000, 1);
    save("a", old);
    expectError(ErrorCode::NoSpace, [&] { save("a", randomBytes(900'000, 2)); });
    EXPECT_EQ(slurp(file("a")), old);
    expectNothingLeft();
    save("a", "small");
    EXPECT_EQ(read("a"), "small");
}

TEST_F(FullDiskSaving, ALinkedFileThatCannotGrowKeepsItsContents) {
    const auto old = randomBytes(300'000, 1);
    save("a", old);
    fs::create_hard_link(file("a"), file("link"));
    // The staging file fits, but not the growth of the file beside it.
    expectError(ErrorCode::NoSpace, [&] { save("a", randomBytes(600'000, 2)); });
    EXPECT_EQ(slurp(file("link")), old);
    EXPECT_EQ(read("a"), old);
    EXPECT_EQ(attributeOf(file("a"), "user.kxvfs.save"), "");
    expectNothingLeft();
    const auto fitting = randomBytes(400'000, 3);
    save("a", fitting);
    EXPECT_EQ(slurp(file("link")), fitting);
    expectNothingLeft();
}

} // namespace kx::test
