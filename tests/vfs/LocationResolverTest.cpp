#include "Fixture.h"

#include <storage/vfs/LocationResolver.h>

#include <filesystem>

using namespace kx::test;
using namespace storage::vfs;

namespace {

class LocationResolverTest : public InFolder {
protected:
    void SetUp() override {
        const auto inner = simpleArchive({{"deep/x.txt", "x"}, {"odd!/y", "y"}});
        save("plans.zip",
             simpleArchive({{"docs/a.txt", "text"}, {"docs/in.zip", inner}, {"50% of!/z", "z"}}));
        save("notes.txt", "hello");
        std::filesystem::create_directories(folder.file("dir"));
    }

    std::string resolved(const std::string& text, FileMeaning meaning = FileMeaning::File) {
        return resolver.resolve(folder.file(text).string(), meaning).iri.toUtf8();
    }

    std::string local(const std::string& path) const { return folder.iri(path).toUtf8(); }
    std::string inside(const std::string& path) const { return "zip:" + local("plans.zip") + "!/" + path; }

    Vfs vfs;
    LocationResolver resolver{vfs};
};

} // namespace

TEST_F(LocationResolverTest, APathToALocalFileIsThatFile) {
    EXPECT_EQ(resolved("notes.txt"), local("notes.txt"));
}

TEST_F(LocationResolverTest, APathThroughAFileGoesOnInsideIt) {
    EXPECT_EQ(resolved("plans.zip/docs/a.txt"), inside("docs/a.txt"));
    EXPECT_EQ(resolved("plans.zip//docs///a.txt"), inside("docs/a.txt"));
}

TEST_F(LocationResolverTest, ArchivesNest) {
    EXPECT_EQ(resolved("plans.zip/docs/in.zip/deep/x.txt"), "zip:" + inside("docs/in.zip") + "!/deep/x.txt");
}

TEST_F(LocationResolverTest, AnExclamationMarkBehindTheArchiveIsUnderstood) {
    EXPECT_EQ(resolved("plans.zip!/docs/a.txt"), inside("docs/a.txt"));
    EXPECT_EQ(resolved("plans.zip!"), inside(""));
    EXPECT_EQ(resolved("plans.zip!/docs/in.zip!/deep/x.txt"),
              "zip:" + inside("docs/in.zip") + "!/deep/x.txt");
}

TEST_F(LocationResolverTest, AnExclamationMarkInANameBelongsToTheName) {
    EXPECT_EQ(resolved("plans.zip/docs/in.zip/odd!/y"), "zip:" + inside("docs/in.zip") + "!/odd%21/y");
    save("bang!/f", "1");
    EXPECT_EQ(resolved("bang!/f"), local("bang!/f"));
}

TEST_F(LocationResolverTest, AnArchiveAloneIsTheFileOrItsRoot) {
    EXPECT_EQ(resolved("plans.zip", FileMeaning::File), local("plans.zip"));
    EXPECT_EQ(resolved("plans.zip", FileMeaning::Folder), inside(""));
    EXPECT_EQ(resolved("plans.zip", FileMeaning::FolderIfArchive), inside(""));
    EXPECT_EQ(resolved("plans.zip/", FileMeaning::File), inside(""));
}

TEST_F(LocationResolverTest, AFileThatIsNoArchiveStaysAFileWhereThatIsAllowed) {
    EXPECT_EQ(resolved("notes.txt", FileMeaning::FolderIfArchive), local("notes.txt"));
    EXPECT_EQ(resolved("notes.txt", FileMeaning::Folder), "zip:" + local("notes.txt") + "!/");
    EXPECT_EQ(resolved("plans.zip/docs/a.txt", FileMeaning::Folder), inside("docs/a.txt"));
    EXPECT_EQ(resolved("plans.zip/docs/in.zip", FileMeaning::Folder), "zip:" + inside("docs/in.zip") + "!/");
}

TEST_F(LocationResolverTest, WhatDoesNotExistIsKept) {
    EXPECT_EQ(resolved("new/folder/x"), local("new/folder/x"));
    EXPECT_EQ(resolved("plans.zip/new/x!/y"), inside("new/x%21/y"));
}

TEST_F(LocationResolverTest, ASlashAtTheEndIsRemembered) {
    EXPECT_TRUE(resolver.resolve(folder.file("dir").string() + "/", FileMeaning::File).folderMeant);
    EXPECT_FALSE(resolver.resolve(folder.file("dir").string(), FileMeaning::File).folderMeant);
}

TEST_F(LocationResolverTest, RelativePathsStartAtTheCurrentFolder) {
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(folder.path());
    const auto location = resolver.resolve("plans.zip/docs/a.txt", FileMeaning::File);
    std::filesystem::current_path(before);
    EXPECT_EQ(location.iri.toUtf8(), inside("docs/a.txt"));
    EXPECT_EQ(location.typed, "plans.zip/docs/a.txt");
}

TEST_F(LocationResolverTest, FullIrisAreTakenAsTheyStand) {
    for (const auto& iri :
         {inside("docs/a.txt"), local("notes.txt"), "zip:" + inside("docs/in.zip") + "!/deep"})
        EXPECT_EQ(resolver.resolve(iri, FileMeaning::File).iri.toUtf8(), iri);
    EXPECT_EQ(resolver.resolve("zip:" + local("plans.zip") + "!", FileMeaning::File).iri.toUtf8(),
              inside(""));
}

TEST_F(LocationResolverTest, AMalformedIriIsRefused) {
    const auto failure =
        exceptionOf([&] { resolver.resolve("zip:" + local("plans.zip"), FileMeaning::File); });
    EXPECT_EQ(failure.getErrorCode(), ErrorCode::InvalidArgument);
    EXPECT_EQ(exceptionOf([&] { resolver.resolve("", FileMeaning::File); }).getCause(), "the path is empty");
}

TEST_F(LocationResolverTest, AFileInTheWayThatIsNoArchiveIsNamed) {
    const auto failure = exceptionOf([&] { resolved("notes.txt/x"); });
    EXPECT_EQ(failure.getIRI(), folder.iri("notes.txt"));
    EXPECT_EQ(failure.getCause().find("not a ZIP archive"), 0U);
}

TEST_F(LocationResolverTest, InnerPathsAreTakenLiterally) {
    const auto at = [&](const std::string& path) {
        return resolver.resolveInside(folder.file("plans.zip").string(), path).iri.toUtf8();
    };
    EXPECT_EQ(at("docs/in.zip/deep"), inside("docs/in.zip/deep"));
    EXPECT_EQ(at("50% of!/z"), inside("50%25%20of%21/z"));
    EXPECT_EQ(at("/"), inside(""));
    EXPECT_EQ(at("zip:x"), inside("zip:x"));
}

TEST_F(LocationResolverTest, InnerPathsNeedAnArchive) {
    const auto refusal = [&](const std::string& archive) {
        return exceptionOf([&] { resolver.resolveInside(folder.file(archive).string(), "x"); }).getCause();
    };
    EXPECT_EQ(refusal("none.zip"), "there is no such archive");
    EXPECT_EQ(refusal("dir"), "is a folder, not an archive");
    EXPECT_EQ(refusal("plans.zip/docs"), "is a folder, not an archive");
    EXPECT_EQ(refusal("plans.zip/none"), "there is no such archive");
    EXPECT_EQ(refusal("plans.zip/docs/a.txt"), "not a ZIP archive");
    EXPECT_EQ(refusal("notes.txt").find("not a ZIP archive"), 0U);
}

TEST_F(LocationResolverTest, TheLocalFileThatAPathLeadsIntoIsFoundWithoutOpeningIt) {
    const auto into = [&](const std::string& path, bool finalFile) {
        return resolver.localContainer(folder.file(path).string(), finalFile);
    };
    save("broken.zip", "no archive");
    EXPECT_EQ(into("broken.zip/docs/x/y", false), folder.iri("broken.zip"));
    EXPECT_EQ(into("broken.zip/", false), folder.iri("broken.zip"));
    EXPECT_EQ(into("broken.zip!", false), folder.iri("broken.zip"));
    EXPECT_EQ(into("broken.zip", false), std::nullopt);
    EXPECT_EQ(into("broken.zip", true), folder.iri("broken.zip"));
    EXPECT_EQ(into("dir/new", true), std::nullopt);
    EXPECT_EQ(resolver.localContainer("zip:" + inside("docs/in.zip") + "!/x", false),
              folder.iri("plans.zip"));
}
