#include "FileTimes.h"
#include "TestFolder.h"

#include <fl/filesystem/FsysExceptionBase.h>
#include <fl/filesystem/detail/path_forms.h>
#include <fl/filesystem/operations.h>
#include <foundation/core/except/IInternalException.h>

#include <gtest/gtest.h>

#include <boost/date_time/posix_time/posix_time.hpp>

#include <string>

namespace {

namespace fs = fl::filesystem;
using boost::posix_time::time_from_string;
using std::filesystem::file_type;

template <typename Action>
std::string failureText(Action action) {
    try {
        action();
    } catch (const fs::FsysExceptionBase& failure) {
        return failure.what();
    }
    return "no failure";
}

TEST(FileSystem, ExistsTellsFilesAndFoldersFromNothing) {
    const TestFolder folder;
    EXPECT_TRUE(fs::exists(folder.path()));
    EXPECT_TRUE(fs::exists(folder.write("file", "x")));
    EXPECT_FALSE(fs::exists(folder.path() / "nothing"));
    EXPECT_FALSE(fs::exists(folder.path() / "file" / "below a file"));
}

TEST(FileSystem, ExistsFollowsSymbolicLinks) {
    const TestFolder folder;
    std::filesystem::create_symlink("nothing", folder.path() / "dangling");
    std::filesystem::create_symlink(folder.write("file", ""), folder.path() / "link");
    EXPECT_FALSE(fs::exists(folder.path() / "dangling"));
    EXPECT_TRUE(fs::exists(folder.path() / "link"));
}

TEST(FileSystem, ExistsReportsWhatItCannotKnow) {
    const std::string tooLong = "/" + std::string(300, 'x');
    EXPECT_EQ("cannot look for " + tooLong + ": File name too long",
              failureText([&] { fs::exists(tooLong); }));
}

TEST(FileSystem, StatusTellsTypeSizeAndTimeOfAFile) {
    const TestFolder folder;
    const fs::path file = folder.write("file", "12345");
    setLastModified(file, 1'717'243'445, 123'456'789);
    const fs::file_status status = fs::status(file);
    EXPECT_EQ(file_type::regular, status.type);
    EXPECT_EQ(5U, status.size);
    EXPECT_EQ(time_from_string("2024-06-01 12:04:05.123456"), status.lastModified);
}

TEST(FileSystem, StatusTellsFoldersAndFollowsLinks) {
    const TestFolder folder;
    EXPECT_EQ(file_type::directory, fs::status(folder.path()).type);
    std::filesystem::create_symlink(folder.write("file", "123"), folder.path() / "link");
    EXPECT_EQ(file_type::regular, fs::status(folder.path() / "link").type);
    EXPECT_EQ(3U, fs::status(folder.path() / "link").size);
    EXPECT_EQ(file_type::character, fs::status("/dev/null").type);
}

TEST(FileSystem, StatusTellsSizesAbove4GiB) {
    const TestFolder folder;
    const fs::path file = folder.write("sparse", "");
    const std::uint64_t size = (std::uint64_t{5} << 30) + 7;
    std::filesystem::resize_file(file, size);
    EXPECT_EQ(size, fs::status(file).size);
}

TEST(FileSystem, StatusTellsTimesBefore1970) {
    const TestFolder folder;
    const fs::path file = folder.write("file", "");
    setLastModified(file, -1, 500'000'000);
    EXPECT_EQ(time_from_string("1969-12-31 23:59:59.500000"), fs::status(file).lastModified);
}

TEST(FileSystem, StatusOfNothingFailsWithThePathAndTheCause) {
    try {
        fs::status("/nonexistent/file");
        FAIL() << "no failure";
    } catch (const fs::FsysExceptionBase& failure) {
        EXPECT_STREQ("cannot read the attributes of /nonexistent/file: No such file or directory",
                     failure.what());
        EXPECT_EQ("read the attributes of", failure.getOperation());
        EXPECT_EQ("/nonexistent/file", failure.getPath());
        EXPECT_EQ(std::errc::no_such_file_or_directory, failure.getErrorCode());
    }
}

TEST(FileSystem, FailuresAreInternalExceptions) {
    EXPECT_THROW(fs::status("/nonexistent/file"), foundation::core::except::IInternalException);
    EXPECT_THROW(fs::status("/nonexistent/file"), std::runtime_error);
}

TEST(FileSystem, AFailureThatIsAssignedAnotherTellsOfThat) {
    const auto missing = std::make_error_code(std::errc::no_such_file_or_directory);
    const auto full = std::make_error_code(std::errc::no_space_on_device);
    fs::FsysExceptionBase failure("remove", "a", missing);
    {
        const fs::FsysExceptionBase other("write", "b", full);
        failure = other;
    }
    EXPECT_EQ("write", failure.getOperation());
    EXPECT_EQ("b", failure.getPath());
    EXPECT_EQ(full, failure.getErrorCode());
    EXPECT_EQ("cannot write b: " + full.message(), failure.what());
}

TEST(FileSystem, RemoveTakesFilesLinksAndEmptyFoldersAndTellsWhetherTheyWereThere) {
    const TestFolder folder;
    const fs::path file = folder.write("file", "x");
    std::filesystem::create_symlink(file, folder.path() / "link");
    std::filesystem::create_directory(folder.path() / "empty");
    EXPECT_TRUE(fs::remove(folder.path() / "link"));
    EXPECT_TRUE(fs::exists(file));
    EXPECT_TRUE(fs::remove(file));
    EXPECT_TRUE(fs::remove(folder.path() / "empty"));
    EXPECT_FALSE(fs::remove(file));
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

TEST(FileSystem, RemoveReportsAFolderThatIsNotEmpty) {
    const TestFolder folder;
    folder.write("file", "x");
    EXPECT_EQ("cannot remove " + folder.path().string() + ": Directory not empty",
              failureText([&] { fs::remove(folder.path()); }));
    EXPECT_TRUE(fs::exists(folder.path() / "file"));
}

TEST(FileSystem, RemoveAllTakesWholeTreesButNotWhatLinksLeadTo) {
    const TestFolder folder;
    const fs::path kept = folder.write("kept", "x");
    std::filesystem::create_directories(folder.path() / "tree/a/b");
    folder.write("tree/a/b/file", "x");
    std::filesystem::create_symlink(kept, folder.path() / "tree/link");
    EXPECT_EQ(5U, fs::remove_all(folder.path() / "tree"));
    EXPECT_EQ(0U, fs::remove_all(folder.path() / "tree"));
    EXPECT_TRUE(fs::exists(kept));
}

TEST(FileSystem, RemoveAllReportsWhatItCannotRemove) {
    // The cause depends on whether the user may write to the folder.
    EXPECT_TRUE(failureText([] {
                    fs::remove_all("/proc/self/status");
                }).starts_with("cannot remove /proc/self/status: "));
}

TEST(PathForms, NativeFormIsUtf8) {
    EXPECT_EQ("/tmp/\xC3\xA4\xF0\x9F\x98\x80",
              fs::detail::make_native_form(u"/tmp/\u00E4\U0001F600", true).string());
    EXPECT_EQ("a/b", fs::detail::make_native_form(u"a/b", false).string());
}

TEST(PathForms, AnUnpairedSurrogateHasANativeForm) {
    EXPECT_EQ("a\xEF\xBF\xBD",
              fs::detail::make_native_form(fl::i18n::ustring{u'a', char16_t{0xD800}}, true).string());
}

TEST(PathForms, AccessFormOpensTheSameFile) {
    const TestFolder folder;
    const fs::path file = folder.write("file", "x");
    const auto access = fs::detail::make_access_form(fs::detail::to_filesystem(file));
    EXPECT_TRUE(std::filesystem::equivalent(file, access));
}

} // namespace
