#include "Environment.h"
#include "TestFolder.h"

#include <fl/filesystem/FsysExceptionBase.h>
#include <fl/filesystem/TemporaryNames.h>
#include <fl/filesystem/detail/path_forms.h>
#include <fl/filesystem/operations.h>
#include <fl/filesystem/temporary.h>
#include <fl/i18n/utf8.h>

#include <gtest/gtest.h>

#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

namespace fs = fl::filesystem;
using fl::i18n::fromUtf8;
using fl::i18n::toUtf8;
using fl::i18n::ustring;

ustring nameOf(const TestFolder& folder) {
    return folder.path().generic_u16string();
}

fs::path native(const ustring& name) {
    return fs::detail::make_native_form(name, true);
}

std::size_t filesIn(const TestFolder& folder) {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder.path())) {
        ++count;
    }
    return count;
}

/// Gives "0", "1", "2" … as unique parts until the end of the block.
class CountingNames {
public:
    CountingNames()
        : m_before(fs::setTemporaryNameSource([count = 0]() mutable { return std::to_string(count++); })) {}
    ~CountingNames() { fs::setTemporaryNameSource(std::move(m_before)); }
    CountingNames(const CountingNames&) = delete;
    CountingNames& operator=(const CountingNames&) = delete;

private:
    fs::TemporaryNameSource m_before;
};

TEST(TemporaryDirectory, IsWhatTmpdirNames) {
    const TestFolder folder;
    const ScopedEnvironment tmpdir("TMPDIR", folder.path().string());
    EXPECT_EQ(nameOf(folder), fs::temp_directory_name());
}

TEST(TemporaryDirectory, IsTmpWhenTmpdirIsNotSet) {
    const ScopedEnvironment tmpdir("TMPDIR", std::nullopt);
    EXPECT_EQ(u"/tmp", fs::temp_directory_name());
}

TEST(TemporaryDirectory, IsTmpWhenTmpdirNamesNoFolder) {
    const TestFolder folder;
    const std::string file = folder.write("file", "x").string();
    for (const std::string& value : {std::string(), folder.path().string() + "/missing", file}) {
        const ScopedEnvironment tmpdir("TMPDIR", value);
        EXPECT_EQ(u"/tmp", fs::temp_directory_name()) << value;
    }
}

TEST(TemporaryDirectory, IsTmpWhenTheNameOfTmpdirIsNotUtf8) {
    const TestFolder folder;
    const std::string odd = folder.path().string() + "/\xE4";
    ASSERT_TRUE(std::filesystem::create_directory(odd));
    const ScopedEnvironment tmpdir("TMPDIR", odd);
    EXPECT_EQ(u"/tmp", fs::temp_directory_name());
}

TEST(TemporaryDirectory, IsAbsoluteForARelativeTmpdir) {
    const TestFolder folder;
    const fs::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder.path());
    std::filesystem::create_directory("scratch");
    const ScopedEnvironment tmpdir("TMPDIR", "scratch");
    const ustring name = fs::temp_directory_name();
    std::filesystem::current_path(before);
    EXPECT_TRUE(std::filesystem::equivalent(folder.path() / "scratch", native(name)));
}

TEST(TemporaryFile, IsEmptyAndStandsInTheFolderBetweenPrefixAndSuffix) {
    const TestFolder folder;
    const fs::TemporaryFile made = fs::tmpfile(nameOf(folder), u"zipProvider-", u".cache");
    ASSERT_NE(nullptr, made.file);
    EXPECT_TRUE(made.name.starts_with(nameOf(folder) + u"/zipProvider-")) << toUtf8(made.name);
    EXPECT_TRUE(made.name.ends_with(u".cache"));
    EXPECT_GT(made.name.size(), (nameOf(folder) + u"/zipProvider-.cache").size() + 9);
    EXPECT_EQ(0U, fs::status(native(made.name)).size);
}

TEST(TemporaryFile, CanBeWrittenAndReadThroughItsStream) {
    const TestFolder folder;
    const fs::TemporaryFile made = fs::tmpfile(nameOf(folder), u"a", u"z");
    ASSERT_EQ(5U, std::fwrite("hello", 1, 5, made.file.get()));
    ASSERT_EQ(0, std::fseek(made.file.get(), 0, SEEK_SET));
    char read[6] = {};
    EXPECT_EQ(5U, std::fread(read, 1, 5, made.file.get()));
    EXPECT_STREQ("hello", read);
}

TEST(TemporaryFile, NamesThatAreTakenAreLeftAlone) {
    const TestFolder folder;
    const CountingNames names;
    folder.write("n0", "precious");
    std::filesystem::create_symlink(folder.path() / "target", folder.path() / "n1");
    const fs::TemporaryFile made = fs::tmpfile(nameOf(folder), u"n", u"");
    EXPECT_EQ(nameOf(folder) + u"/n2", made.name);
    EXPECT_EQ(8U, fs::status(folder.path() / "n0").size);
    EXPECT_FALSE(fs::exists(folder.path() / "target"));
}

TEST(TemporaryFile, AHundredOfFourThreadsAreAllDifferent) {
    const TestFolder folder;
    std::mutex mutex;
    std::set<ustring> names;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int j = 0; j < 25; ++j) {
                ustring name = fs::tmpfile(nameOf(folder), u"a", u"z").name;
                const std::lock_guard lock(mutex);
                names.insert(std::move(name));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(100U, names.size());
    EXPECT_EQ(100U, filesIn(folder));
}

TEST(TemporaryFile, OfFourThreadsWithOneSourceOfNamesAreAllDifferent) {
    const TestFolder folder;
    const CountingNames names;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&folder] {
            for (int j = 0; j < 25; ++j) {
                fs::tmpfile(nameOf(folder), u"a", u"z");
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(100U, filesIn(folder));
}

TEST(TemporaryFile, ReportsAFolderThatDoesNotExist) {
    const TestFolder folder;
    const std::string missing = folder.path().string() + "/missing";
    try {
        fs::tmpfile(fromUtf8(missing), u"a", u"z");
        FAIL() << "no failure";
    } catch (const fs::FsysExceptionBase& failure) {
        EXPECT_EQ("cannot create a temporary file in " + missing + ": No such file or directory",
                  failure.what());
    }
}

TEST(TemporaryFile, ReportsASourceOfNamesThatNeverComesToAFreeOne) {
    const TestFolder folder;
    folder.write("same", "x");
    const auto before = fs::setTemporaryNameSource([] { return std::string("same"); });
    EXPECT_THROW(fs::tmpfile(nameOf(folder), u"", u""), fs::FsysExceptionBase);
    EXPECT_THROW(fs::tmpnam(nameOf(folder), u"", u""), fs::FsysExceptionBase);
    fs::setTemporaryNameSource(before);
}

TEST(TemporaryFile, RefusesPrefixesAndSuffixesThatLeadOutOfTheFolder) {
    const TestFolder folder;
    const ustring withNul{u'a', u'\0', u'b'};
    EXPECT_THROW(fs::tmpfile(nameOf(folder), u"../a", u"z"), fs::FsysExceptionBase);
    EXPECT_THROW(fs::tmpfile(nameOf(folder), u"a", u"/z"), fs::FsysExceptionBase);
    EXPECT_THROW(fs::tmpfile(nameOf(folder), withNul, u""), fs::FsysExceptionBase);
    EXPECT_EQ(0U, filesIn(folder));
}

TEST(TemporaryName, IsFreeAndCreatesNothing) {
    const TestFolder folder;
    const ustring name = fs::tmpnam(nameOf(folder), u"zipProvider-", u"sanitized.zip");
    EXPECT_TRUE(name.starts_with(nameOf(folder) + u"/zipProvider-"));
    EXPECT_TRUE(name.ends_with(u"sanitized.zip"));
    EXPECT_EQ(0U, filesIn(folder));
    EXPECT_NE(name, fs::tmpnam(nameOf(folder), u"zipProvider-", u"sanitized.zip"));
}

TEST(TemporaryName, SkipsNamesThatAreTakenEvenByDanglingLinks) {
    const TestFolder folder;
    const CountingNames names;
    folder.write("n0", "x");
    std::filesystem::create_symlink("nothing", folder.path() / "n1");
    EXPECT_EQ(nameOf(folder) + u"/n2", fs::tmpnam(nameOf(folder) + u"/", u"n", u""));
}

TEST(TemporaryName, ReportsAFolderThatIsNone) {
    const TestFolder folder;
    const std::string file = folder.write("file", "x").string();
    try {
        fs::tmpnam(fromUtf8(file), u"a", u"z");
        FAIL() << "no failure";
    } catch (const fs::FsysExceptionBase& failure) {
        EXPECT_EQ("cannot choose a temporary name in " + file + ": Not a directory", failure.what());
    }
    EXPECT_THROW(fs::tmpnam(nameOf(folder) + u"/missing", u"a", u"z"), fs::FsysExceptionBase);
}

} // namespace
