#include "LocalFilesTest.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace kx::test {

namespace fs = std::filesystem;
using foundation::storage::provider::EntryKind;
using foundation::storage::provider::FolderEntry;

class LocalFolderListing : public LocalFilesTest {
protected:
    std::vector<FolderEntry> list() {
        return listEntries(*files().listAll(iri("").parent().child(folderName())));
    }

private:
    std::u16string folderName() const { return folder().filename().u16string(); }
};

TEST_F(LocalFolderListing, IsOrderedByUtf16CodeUnits) {
    // By bytes, or by code points, U+FFFD stands before U+1F600.
    for (const auto* name : {"b", "a.txt", "A", "\xF0\x9F\x98\x80", "\xEF\xBF\xBD", "a"}) {
        spit(file(name), "");
    }
    const auto names = files().listAllNamesOnly(StorageIRI::fromLocalPath(folder().u16string()));
    EXPECT_EQ(names, (std::vector<std::u16string>{u"A", u"a", u"a.txt", u"b", u"\U0001F600", u"\uFFFD"}));
}

TEST_F(LocalFolderListing, FollowsLinksForTheKind) {
    fs::create_directory(file("folder"));
    spit(file("file"), "");
    fs::create_symlink("folder", file("to folder"));
    fs::create_symlink("file", file("to file"));
    fs::create_symlink("nowhere", file("to nowhere"));
    EXPECT_EQ(list(), (std::vector<FolderEntry>{{u"file", EntryKind::File},
                                                {u"folder", EntryKind::Folder},
                                                {u"to file", EntryKind::File},
                                                {u"to folder", EntryKind::Folder},
                                                {u"to nowhere", EntryKind::File}}));
    const auto root = StorageIRI::fromLocalPath(folder().u16string());
    EXPECT_EQ(listNames(*files().listFolders(root)), (std::vector<std::u16string>{u"folder", u"to folder"}));
    EXPECT_EQ(listNames(*files().listFiles(root)),
              (std::vector<std::u16string>{u"file", u"to file", u"to nowhere"}));
    EXPECT_TRUE(files().isFile(iri("to nowhere")));
    expectError(ErrorCode::NotFound, [&] { files().getFileAttributes(iri("to nowhere")); });
    expectError(ErrorCode::NotFound, [&] { files().openReadStream(iri("to nowhere")); });
}

TEST_F(LocalFolderListing, ListsFifosAndSocketsAsFilesAndNeverOpensThem) {
    ASSERT_EQ(::mkfifo(file("fifo").c_str(), 0666), 0);
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    file("socket").string().copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ::close(socket);
    EXPECT_EQ(list(), (std::vector<FolderEntry>{{u"fifo", EntryKind::File}, {u"socket", EntryKind::File}}));
    for (const auto* name : {"fifo", "socket"}) {
        EXPECT_TRUE(files().isFile(iri(name)));
        EXPECT_FALSE(files().getFileAttributes(iri(name)).getSize());
        const auto text = expectError(ErrorCode::NotSupported, [&] { files().openReadStream(iri(name)); });
        EXPECT_NE(text.find("not a regular file"), std::string::npos) << text;
        for (const auto& how : {ByteStreamOpenOptions::overwrite(), ByteStreamOpenOptions::append()}) {
            expectError(ErrorCode::NotSupported, [&] { files().openStream(iri(name), how); });
        }
        expectError(ErrorCode::NotSupported, [&] {
            files().copyFile(iri(name), iri("copy"), foundation::storage::provider::MoveOption::FailIfExists);
        });
        files().removeFile(iri(name));
    }
    EXPECT_TRUE(list().empty());
    const auto null = StorageIRI::fromLocalPath(u"/dev/null");
    expectError(ErrorCode::NotSupported, [&] { files().openReadStream(null); });
    expectError(ErrorCode::NotSupported, [&] { files().openStream(null, {}); });
    expectNothingLeft();
}

TEST_F(LocalFolderListing, ReplacesBytesOfNamesThatAreNotUtf8) {
    spit(file("caf\xE9.txt"), "x");
    spit(file("good"), "y");
    EXPECT_EQ(list(),
              (std::vector<FolderEntry>{{u"caf\uFFFD.txt", EntryKind::File}, {u"good", EntryKind::File}}));
    expectError(ErrorCode::NotFound, [&] { files().openReadStream(iri("caf\xEF\xBF\xBD.txt")); });
}

TEST_F(LocalFolderListing, TakesNamesOfAllKinds) {
    const std::string longest(255, 'n');
    for (const std::string name : {"with blank", "line\nbreak", "100%", "%41", "a!", "back\\slash", "-",
                                   ".hidden", "?*[x]", "\xC3\xA4\xF0\x9F\x98\x80", longest.c_str()}) {
        SCOPED_TRACE(name);
        save(name, "contents of " + name);
        EXPECT_EQ(slurp(file(name)), "contents of " + name);
        EXPECT_EQ(read(name), "contents of " + name);
        fs::create_hard_link(file(name), file("link"));
        save(name, "overwritten");
        EXPECT_EQ(slurp(file("link")), "overwritten");
        fs::remove(file("link"));
        ASSERT_EQ(list().size(), 1U);
        EXPECT_EQ(files().listAllNamesOnly(StorageIRI::fromLocalPath(folder().u16string())).front(),
                  iri(name).getName());
        files().removeFile(iri(name));
    }
    expectNothingLeft();
    expectError(ErrorCode::InvalidArgument, [&] { save(longest + 'n', "x"); });
}

TEST_F(LocalFolderListing, DoesNotShowTheWorkingFilesOfSaves) {
    save("a", "x");
    const auto stream = files().openStream(iri("a"), {});
    ASSERT_EQ(namesIn(folder()).size(), 2U);
    EXPECT_EQ(list(), (std::vector<FolderEntry>{{u"a", EntryKind::File}}));
}

TEST_F(LocalFolderListing, FoldersAreRemovedWithWhatDeadProcessesLeft) {
    fs::create_directory(file("f"));
    spit(file("f") / ".a.kxvfs-new0", "left");
    files().removeFolder(iri("f"));
    fs::create_directories(file("g") / "h");
    spit(file("g") / "h" / ".a.kxvfs-journal", "left");
    files().removeFolderRecursively(iri("g"));
    EXPECT_TRUE(list().empty());
}

TEST_F(LocalFolderListing, RemovingATreeDoesNotFollowLinks) {
    fs::create_directories(file("tree") / "sub");
    fs::create_directory(file("other"));
    spit(file("other") / "keep", "x");
    fs::create_directory_symlink(file("other"), file("tree") / "sub" / "link");
    fs::create_directory_symlink(file("other"), file("link"));
    files().removeFolderRecursively(iri("tree"));
    files().removeFolderRecursively(iri("link"));
    EXPECT_EQ(namesIn(folder()), std::vector<std::string>{"other"});
    EXPECT_EQ(slurp(file("other") / "keep"), "x");
}

} // namespace kx::test
