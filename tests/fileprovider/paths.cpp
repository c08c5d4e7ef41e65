#include "LocalFilesTest.h"

namespace kx::test {

namespace fs = std::filesystem;
using foundation::storage::provider::MoveOption;

class LocalFilePaths : public LocalFilesTest {};

TEST_F(LocalFilePaths, OtherSchemesHostsAndRelativePathsAreRefused) {
    for (const auto* text : {"mem:///a", "file://server/share/a", "zip:file:///a.zip!/b"}) {
        expectError(ErrorCode::InvalidArgument,
                    [&] { files().isFile(StorageIRI::parse(std::string_view(text))); });
    }
    EXPECT_FALSE(files().isFile(StorageIRI::parse(std::string_view("file://localhost/no such file"))));
    expectError(ErrorCode::InvalidArgument, [&] { files().openReadStream(StorageIRI()); });
}

TEST_F(LocalFilePaths, ANulInANameNeverReachesTheSystem) {
    save("a", "x");
    const auto withNul =
        iri("").parent().child(folder().filename().u16string()).child(std::u16string(u"a\0b", 3));
    expectError(ErrorCode::InvalidArgument, [&] { files().removeFile(withNul); });
    EXPECT_TRUE(fs::exists(file("a")));
}

TEST_F(LocalFilePaths, TheCanonicalLocationHasNoLinksAndNoDots) {
    fs::create_directories(file("f") / "g");
    spit(file("f") / "g" / "a", "x");
    fs::create_directory_symlink("f/g", file("link"));
    fs::create_symlink("f/new", file("to new"));
    const auto base = fs::canonical(folder()).u16string();
    const auto canonical = [&](std::u16string_view path) {
        const auto location = StorageIRI::fromLocalPath(folder().u16string() + std::u16string(path));
        return files().getCanonicalLocation(location).getResolvedPath();
    };
    EXPECT_EQ(canonical(u"/link/a"), base + u"/f/g/a");
    EXPECT_EQ(canonical(u"//link//../g/./a"), base + u"/f/g/a");
    EXPECT_EQ(canonical(u"/f/g/"), base + u"/f/g");
    EXPECT_EQ(canonical(u"/link/new"), base + u"/f/g/new");
    EXPECT_EQ(canonical(u"/link/no/../such/x"), base + u"/f/g/such/x");
    EXPECT_EQ(canonical(u"/to new"), base + u"/f/new");
    EXPECT_EQ(files().getCanonicalLocation(StorageIRI::fromLocalPath(u"/")).getResolvedPath(), u"/");
    EXPECT_EQ(files().getCanonicalLocation(StorageIRI::fromLocalPath(u"/..//.")).getResolvedPath(), u"/");
}

TEST_F(LocalFilePaths, LinksInACircleAreAnError) {
    fs::create_symlink("b", file("a"));
    fs::create_symlink("a", file("b"));
    expectError(ErrorCode::NotFound, [&] { files().openReadStream(iri("a")); });
    expectError(ErrorCode::NotFound, [&] { save("a", "x"); });
    EXPECT_TRUE(fs::is_symlink(file("a")));
}

TEST_F(LocalFilePaths, MovingAndRemovingWorkOnTheLinkItself) {
    spit(file("a"), "x");
    fs::create_symlink("a", file("link"));
    files().moveFile(iri("link"), iri("moved"), MoveOption::FailIfExists);
    EXPECT_TRUE(fs::is_symlink(file("moved")));
    files().removeFile(iri("moved"));
    EXPECT_EQ(namesIn(folder()), std::vector<std::string>{"a"});
}

TEST_F(LocalFilePaths, MovingAFileOntoAnotherLinkOfItLeavesTheDestination) {
    spit(file("a"), "x");
    fs::create_hard_link(file("a"), file("b"));
    files().moveFile(iri("a"), iri("a"), MoveOption::ReplaceExisting);
    EXPECT_EQ(slurp(file("a")), "x");
    files().moveFile(iri("a"), iri("b"), MoveOption::ReplaceExisting);
    EXPECT_EQ(namesIn(folder()), std::vector<std::string>{"b"});
    EXPECT_EQ(slurp(file("b")), "x");
}

TEST_F(LocalFilePaths, AFolderReplacesAFileOfItsNewName) {
    fs::create_directory(file("f"));
    spit(file("f") / "x", "inside");
    spit(file("a"), "x");
    expectError(ErrorCode::AlreadyExists,
                [&] { files().moveFolder(iri("f"), iri("a"), MoveOption::FailIfExists); });
    files().moveFolder(iri("f"), iri("a"), MoveOption::ReplaceExisting);
    EXPECT_EQ(namesIn(folder()), std::vector<std::string>{"a"});
    EXPECT_EQ(slurp(file("a") / "x"), "inside");
}

TEST_F(LocalFilePaths, AMoveToAnotherFileSystemCopiesWhenAllowed) {
    const fs::path elsewhere = "/dev/shm";
    if (!fs::is_directory(elsewhere) || statusOf(elsewhere).st_dev == statusOf(folder()).st_dev) {
        GTEST_SKIP() << "no second file system at /dev/shm";
    }
    const auto name = "kx-" + folder().filename().string();
    const auto destination =
        StorageIRI::fromLocalPath(elsewhere.u16string()).child(fs::path(name).u16string());
    const auto bytes = randomBytes(100'000, 1);
    spit(file("a"), bytes);
    expectError(ErrorCode::LocalFileSystem,
                [&] { files().moveFile(iri("a"), destination, MoveOption::FailIfExists); });
    EXPECT_EQ(slurp(file("a")), bytes);
    files().moveFile(iri("a"), destination, MoveOption::AllowCopy);
    EXPECT_FALSE(fs::exists(file("a")));
    EXPECT_EQ(slurp(elsewhere / name), bytes);
    fs::remove(elsewhere / name);
}

TEST_F(LocalFilePaths, ALongPathIsResolvedToItsEnd) {
    std::string path = folder().string();
    for (int i = 0; i < 12; ++i) {
        path += "/" + std::string(250, 'd');
        fs::create_directory(path);
    }
    const auto location = StorageIRI::fromLocalPath(fs::path(path).u16string()).child(u"a");
    writeFile(files(), location, "deep");
    EXPECT_EQ(readFile(files(), location), "deep");
    EXPECT_EQ(namesIn(path), std::vector<std::string>{"a"});
}

} // namespace kx::test
