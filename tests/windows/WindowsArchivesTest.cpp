#include "../zipprovider/provider/ZipProviderTest.h"

#include <foundation/storage/provider/Exception.h>
#include <storage/fileprovider/LocalFileProvider.h>
#include <support/TemporaryFolder.h>
#include <support/archives/IndependentReaders.h>
#include <support/contents.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <windows.h>

namespace kx::test {

namespace {

namespace fs = std::filesystem;
using foundation::storage::provider::Exception;
using storage::fileprovider::LocalFileProvider;
using testing::UnorderedElementsAre;

constexpr auto everyScript = u8"Größe-日本語-😀";

/// Archives in local files, below a folder and with temporary files in a folder whose names no code page of
/// the system can say.
class WindowsArchives : public testing::Test {
protected:
    using StorageIRI = foundation::storage::provider::StorageIRI;
    using StorageItem = foundation::storage::provider::StorageItem;

    WindowsArchives() {
        fs::create_directory(m_outer.path() / everyScript);
        fs::create_directory(m_outer.path() / everyScript / u8"temporär");
        std::ofstream(path(), std::ios::binary);
    }

    fs::path path() const { return m_outer.path() / everyScript / u8"計画.zip"; }
    StorageItem container() const {
        return {LocalFileProvider::create(), StorageIRI::fromLocalPath(path().generic_u16string())};
    }
    std::vector<fs::path> leftovers() const {
        const fs::directory_iterator folder(m_outer.path() / everyScript / u8"temporär");
        return {begin(folder), end(folder)};
    }
    /// Opens the archive as a program does that lets nobody replace it.
    HANDLE openElsewhere() const {
        return ::CreateFileW(path().c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                             FILE_ATTRIBUTE_NORMAL, nullptr);
    }

private:
    static std::string utf8(const fs::path& path) {
        const auto text = path.u8string();
        return {text.begin(), text.end()};
    }

    const TemporaryFolder m_outer;
    const ScopedVariable m_temporary{"TMPDIR", utf8(m_outer.path() / everyScript / u8"temporär")};
};

TEST_F(WindowsArchives, AreWrittenAndReadUnderNamesOfEveryScript) {
    {
        MountedZip zip(container());
        zip.createFolder("/Überblick");
        zip.write("/Überblick/日本語.txt", "text");
        zip.write("/😀", "smile");
        zip.append("/😀", "!");
        zip.moveFile("/😀", "/Überblick/😀.txt");
    }
    EXPECT_EQ(
        MountedZip(container()).tree(),
        (Contents{{"Überblick/", ""}, {"Überblick/日本語.txt", "text"}, {"Überblick/😀.txt", "smile!"}}));
    EXPECT_TRUE(leftovers().empty());
    const TemporaryFolder plain;
    fs::copy_file(path(), plain.file("copy.zip"));
    const auto verdict = verifyArchive(plain.file("copy.zip"));
    EXPECT_EQ(verdict.problems(), "");
    EXPECT_THAT(verdict.names(),
                UnorderedElementsAre("Überblick/", "Überblick/日本語.txt", "Überblick/😀.txt"));
}

TEST_F(WindowsArchives, BelowAPathLongerThanTheSystemsOldLimitAreWrittenAndRead) {
    const auto files = LocalFileProvider::create();
    const TemporaryFolder plain;
    const auto first = plain.iri().child(std::u16string(40, u'長'));
    auto folder = first;
    for (int depth = 0; depth < 8; ++depth) {
        files->createFolder(folder);
        folder = folder.child(std::u16string(40, u'長'));
    }
    files->createFolder(folder);
    const auto archive = folder.child(u"計画.zip");
    writeFile(*files, archive, "");
    MountedZip({files, archive}).write("/日本語.txt", "text");
    EXPECT_EQ(MountedZip({files, archive}).tree(), (Contents{{"日本語.txt", "text"}}));
    writeFile(*files, plain.iri("copy.zip"), readFile(*files, archive));
    EXPECT_EQ(verifyArchive(plain.file("copy.zip")).problems(), "");
    files->removeFolderRecursively(first);
}

TEST_F(WindowsArchives, ThatAreOpenElsewhereKeepTheirBytesAndTheProviderItsChanges) {
    MountedZip zip(container());
    zip.write("/a", "old");
    const auto before = fs::file_size(path());
    const HANDLE other = openElsewhere();
    ASSERT_NE(other, INVALID_HANDLE_VALUE);
    EXPECT_THROW(zip.write("/a", "new"), std::exception);
    EXPECT_THROW(zip.createFolder("/f"), std::exception);
    EXPECT_EQ(fs::file_size(path()), before);
    EXPECT_EQ(MountedZip(container()).read("/a"), "old");
    ::CloseHandle(other);
    zip.createFolder("/g");
    EXPECT_EQ(MountedZip(container()).tree(), (Contents{{"a", "new"}, {"f/", ""}, {"g/", ""}}));
}

} // namespace

} // namespace kx::test
