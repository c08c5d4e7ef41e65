#include "ProviderConformance.h"

#include <algorithm>

namespace kx::test {

using provider::Existence;

TEST_P(ItemConformance, ANewFileIsEmptyAndStandsInItsFolder) {
    storage().createFile(at(u"a.txt"));

    EXPECT_TRUE(storage().isFile(at(u"a.txt")));
    EXPECT_FALSE(storage().isFolder(at(u"a.txt")));
    EXPECT_EQ(read(u"a.txt"), "");
    EXPECT_EQ(names(), Names{u"a.txt"});
    tested().reopen();
    EXPECT_EQ(names(), Names{u"a.txt"});
    EXPECT_EQ(read(u"a.txt"), "");
}

TEST_P(ItemConformance, CreatingAFileOnWhatExistsFailsAndChangesNothing) {
    write(u"file", "old");
    makeFolder(u"folder");

    expectError(
        ErrorCode::AlreadyExists, [&] { storage().createFile(at(u"file")); }, at(u"file"));
    expectError(
        ErrorCode::AlreadyExists, [&] { storage().createFile(at(u"folder")); }, at(u"folder"));
    EXPECT_EQ(read(u"file"), "old");
    EXPECT_EQ(names(), (Names{u"file", u"folder"}));
}

TEST_P(ItemConformance, CreatingAFileInAMissingFolderFails) {
    write(u"file", "");

    expectError(
        ErrorCode::NotFound, [&] { storage().createFile(at(u"no/a")); }, at(u"no/a"));
    expectError(
        ErrorCode::NotFound, [&] { storage().createFile(at(u"file/a")); }, at(u"file/a"));
    EXPECT_EQ(names(), Names{u"file"});
}

TEST_P(ItemConformance, ANewFolderIsEmptyAndStandsInItsFolder) {
    makeFolder(u"f");
    makeFolder(u"f/g");

    EXPECT_TRUE(storage().isFolder(at(u"f/g")));
    EXPECT_FALSE(storage().isFile(at(u"f/g")));
    EXPECT_EQ(names(u"f"), Names{u"g"});
    EXPECT_EQ(names(u"f/g"), Names{});
}

TEST_P(ItemConformance, AnEmptyFolderIsKept) {
    if (!storage().hasFeature(provider::Feature::EmptyFolders)) {
        GTEST_SKIP() << "the provider has no empty folders";
    }
    makeFolder(u"f");
    tested().reopen();

    EXPECT_TRUE(storage().isFolder(at(u"f")));
    EXPECT_EQ(names(), Names{u"f"});
}

TEST_P(ItemConformance, CreatingAFolderOnWhatExistsFails) {
    write(u"file", "old");
    makeFolder(u"folder");

    expectError(
        ErrorCode::AlreadyExists, [&] { storage().createFolder(at(u"file")); }, at(u"file"));
    expectError(
        ErrorCode::AlreadyExists, [&] { storage().createFolder(at(u"folder")); }, at(u"folder"));
    EXPECT_EQ(read(u"file"), "old");
}

TEST_P(ItemConformance, CreatingAFolderInAMissingFolderFails) {
    write(u"file", "");

    expectError(
        ErrorCode::NotFound, [&] { storage().createFolder(at(u"no/f")); }, at(u"no/f"));
    expectError(
        ErrorCode::NotFound, [&] { storage().createFolder(at(u"file/f")); }, at(u"file/f"));
}

TEST_P(ItemConformance, WhatIsMissingIsNeitherFileNorFolder) {
    for (const auto* path : {u"no", u"no/deeper/still"}) {
        EXPECT_FALSE(storage().isFile(at(path)));
        EXPECT_FALSE(storage().isFolder(at(path)));
        EXPECT_FALSE(storage().exists(at(path)));
        EXPECT_EQ(storage().existsExtended(at(path)), Existence::Nothing);
    }
}

TEST_P(ItemConformance, TheRootOfTheStorageIsAFolderWithAttributes) {
    const auto root = tested().root().withPath(u"/");

    EXPECT_TRUE(storage().isFolder(root));
    EXPECT_FALSE(storage().isFile(root));
    EXPECT_NO_THROW(storage().getFolderAttributes(root));
    EXPECT_EQ(storage().existsExtended(root), Existence::Folder);
}

TEST_P(ItemConformance, ExistenceTellsFilesAndFoldersApart) {
    write(u"file", "x");
    makeFolder(u"folder");

    EXPECT_TRUE(storage().exists(at(u"file")));
    EXPECT_TRUE(storage().exists(at(u"folder")));
    EXPECT_EQ(storage().existsExtended(at(u"file")), Existence::File);
    EXPECT_EQ(storage().existsExtended(at(u"folder")), Existence::Folder);
}

TEST_P(ItemConformance, ARemovedFileIsGone) {
    write(u"a", "1");
    write(u"b", "2");
    storage().removeFile(at(u"a"));

    EXPECT_FALSE(storage().exists(at(u"a")));
    expectError(ErrorCode::NotFound, [&] { storage().openReadStream(at(u"a")); });
    tested().reopen();
    EXPECT_EQ(names(), Names{u"b"});
    EXPECT_EQ(read(u"b"), "2");
}

TEST_P(ItemConformance, AFileMadeAfterARemovalHasNothingOfTheOldOne) {
    write(u"a", "old contents");
    storage().removeFile(at(u"a"));
    storage().createFile(at(u"a"));
    EXPECT_EQ(read(u"a"), "");
    tested().reopen();
    EXPECT_EQ(read(u"a"), "");
}

TEST_P(ItemConformance, RemovingAFileThatIsNotThereFails) {
    makeFolder(u"folder");

    expectError(
        ErrorCode::NotFound, [&] { storage().removeFile(at(u"a")); }, at(u"a"));
    expectError(
        ErrorCode::NotFound, [&] { storage().removeFile(at(u"no/a")); }, at(u"no/a"));
    expectError(
        ErrorCode::NotFound, [&] { storage().removeFile(at(u"folder")); }, at(u"folder"));
    EXPECT_TRUE(storage().isFolder(at(u"folder")));
}

TEST_P(ItemConformance, ARemovedFolderIsGone) {
    makeFolder(u"f");
    makeFolder(u"g");
    storage().removeFolder(at(u"f"));

    EXPECT_FALSE(storage().exists(at(u"f")));
    EXPECT_EQ(names(), Names{u"g"});
    expectError(ErrorCode::NotFound, [&] { storage().listAll(at(u"f")); });
}

TEST_P(ItemConformance, RemovingAFolderThatHoldsEntriesFailsAndChangesNothing) {
    makeFolder(u"f");
    makeFolder(u"g");
    write(u"f/a", "x");
    makeFolder(u"g/sub");

    expectError(
        ErrorCode::FolderNotEmpty, [&] { storage().removeFolder(at(u"f")); }, at(u"f"));
    expectError(
        ErrorCode::FolderNotEmpty, [&] { storage().removeFolder(at(u"g")); }, at(u"g"));
    EXPECT_EQ(read(u"f/a"), "x");
    EXPECT_TRUE(storage().isFolder(at(u"g/sub")));
}

TEST_P(ItemConformance, RemovingAFolderThatIsNotThereFails) {
    write(u"file", "x");

    expectError(
        ErrorCode::NotFound, [&] { storage().removeFolder(at(u"f")); }, at(u"f"));
    expectError(
        ErrorCode::NotFound, [&] { storage().removeFolder(at(u"no/f")); }, at(u"no/f"));
    expectError(
        ErrorCode::NotFound, [&] { storage().removeFolder(at(u"file")); }, at(u"file"));
    EXPECT_EQ(read(u"file"), "x");
}

TEST_P(ItemConformance, NamesOfAllKindsWork) {
    Names wanted{u" blank ",     u"#?&=+;", u"%41",         u"100% sure!", u"Größe",     u"a!b",
                 u"back\\slash", u"c:d",    u"ends with !", u"quote\"'`",  u"[set]*{}|", u"日本語",
                 u"😀",           u"#&=+;",  u"quote'`",     u"[set]{}"};
    const auto refused = tested().traits().notInNames;
    const auto impossible = std::stable_partition(wanted.begin(), wanted.end(), [&](const ustring& name) {
        return name.find_first_of(refused) == ustring::npos;
    });
    for (auto name = impossible; name != wanted.end(); ++name) {
        expectError(ErrorCode::InvalidArgument, [&] { makeFolder(*name); });
        expectError(ErrorCode::InvalidArgument, [&] { write(*name, "in it"); });
        EXPECT_FALSE(storage().isFolder(at(*name))) << at(*name);
        EXPECT_FALSE(storage().isFile(at(*name))) << at(*name);
    }
    wanted.erase(impossible, wanted.end());
    for (const auto& name : wanted) {
        makeFolder(name);
        write(name + u"/" + name, "in it");
    }
    tested().reopen();
    for (const auto& name : wanted) {
        EXPECT_TRUE(storage().isFolder(at(name))) << at(name);
        EXPECT_EQ(names(name), Names{name});
        EXPECT_EQ(read(name + u"/" + name), "in it");
    }
    EXPECT_EQ(names().size(), wanted.size());
}

TEST_P(ItemConformance, LetterCaseCountsAsTheProviderSays) {
    write(u"name", "small");
    if (storage().getFilenameSensitivity() == provider::FilenameSensitivity::CaseSensitive) {
        EXPECT_FALSE(storage().isFile(at(u"NAME")));
        write(u"NAME", "large");
        EXPECT_EQ(read(u"name"), "small");
        EXPECT_EQ(names(), (Names{u"NAME", u"name"}));
    } else {
        EXPECT_TRUE(storage().isFile(at(u"NAME")));
        EXPECT_EQ(read(u"NAME"), "small");
    }
}

} // namespace kx::test
