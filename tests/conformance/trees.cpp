#include "ProviderConformance.h"

namespace kx::test {

TEST_P(TreeConformance, CreatingRecursivelyMakesEveryMissingFolder) {
    storage().createFolderRecursive(at(u"a/b/c"));
    storage().createFolderRecursive(at(u"a/b/d/"));

    EXPECT_TRUE(storage().isFolder(at(u"a/b/c")));
    EXPECT_EQ(names(u"a/b"), (Names{u"c", u"d"}));
}

TEST_P(TreeConformance, CreatingRecursivelyWhatExistsIsNoError) {
    makeFolder(u"a");
    write(u"a/file", "x");

    EXPECT_NO_THROW(storage().createFolderRecursive(at(u"a")));
    EXPECT_NO_THROW(storage().createFolderRecursive(tested().root()));
    EXPECT_NO_THROW(storage().createFolderRecursive(tested().root().withPath(u"/")));
    EXPECT_EQ(read(u"a/file"), "x");
}

TEST_P(TreeConformance, CreatingRecursivelyThroughAFileFails) {
    write(u"file", "x");

    expectError(
        ErrorCode::AlreadyExists, [&] { storage().createFolderRecursive(at(u"file")); }, at(u"file"));
    expectError(
        ErrorCode::AlreadyExists, [&] { storage().createFolderRecursive(at(u"file/a/b")); }, at(u"file"));
    EXPECT_EQ(read(u"file"), "x");
}

TEST_P(TreeConformance, RemovingRecursivelyTakesAllBelowAndNothingBeside) {
    storage().createFolderRecursive(at(u"doomed/a/b"));
    storage().createFolderRecursive(at(u"doomed/empty"));
    storage().createFolderRecursive(at(u"doomed2"));
    write(u"doomed/file", "1");
    write(u"doomed/a/file", "2");
    write(u"doomed/a/b/file", "3");
    write(u"doomed2/file", "kept");
    storage().removeFolderRecursively(at(u"doomed"));

    EXPECT_FALSE(storage().exists(at(u"doomed")));
    tested().reopen();
    EXPECT_EQ(names(), Names{u"doomed2"});
    EXPECT_EQ(read(u"doomed2/file"), "kept");
}

TEST_P(TreeConformance, RemovingRecursivelyAnEmptyFolderRemovesIt) {
    makeFolder(u"f");
    storage().removeFolderRecursively(at(u"f"));
    EXPECT_EQ(names(), Names{});
}

TEST_P(TreeConformance, RemovingRecursivelyWhatIsNoFolderFails) {
    write(u"file", "x");

    expectError(
        ErrorCode::NotFound, [&] { storage().removeFolderRecursively(at(u"no")); }, at(u"no"));
    expectError(
        ErrorCode::NotFound, [&] { storage().removeFolderRecursively(at(u"file")); }, at(u"file"));
    EXPECT_EQ(read(u"file"), "x");
}

TEST_P(TreeConformance, FoldersMayStandDeepInOneAnother) {
    const auto depth = tested().traits().deepestFolder;
    ustring path = u"f";
    for (std::size_t level = 1; level < depth; ++level) {
        path += u"/f";
    }
    storage().createFolderRecursive(at(path));
    ASSERT_TRUE(storage().isFolder(at(path)));

    const auto below = storage().listAllRecursive(tested().root());
    std::size_t count = 0;
    for (; below->hasNext(); ++count) {
        below->next();
    }
    EXPECT_EQ(count, depth);
    EXPECT_EQ(below->current().getName(), path);

    storage().removeFolderRecursively(at(u"f"));
    EXPECT_EQ(names(), Names{});
}

} // namespace kx::test
