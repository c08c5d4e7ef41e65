#include <algorithm>
#include <string>

#include <gtest/gtest.h>

#include <corpus/LocalArchive.h>
#include <support/archives/ArchiveShapes.h>

namespace {

using namespace kx::test;

constexpr std::uint64_t aboveFourGiB = (4ULL << 30) + (64ULL << 20);

TEST(LargeArchives, AHundredThousandEntriesInAThousandFoldersOpenAndList) {
    LocalArchive archive(wideArchive(1000, 100));
    EXPECT_EQ(archive.provider().listFoldersNamesOnly(archive.at("")).size(), 1000u);
    EXPECT_EQ(archive.provider().listFilesNamesOnly(archive.at("")).size(), 0u);

    std::uint64_t files = 0;
    for (auto entries = archive.provider().listAllRecursive(archive.at("")); entries->hasNext();) {
        entries->next();
        files += entries->current().isFolder() ? 0 : 1;
    }
    EXPECT_EQ(files, 100000u);
    EXPECT_EQ(archive.read(wideArchiveFile(0, 0)), wideArchiveFile(0, 0));
    EXPECT_EQ(archive.read(wideArchiveFile(999, 99)), wideArchiveFile(999, 99));
}

TEST(LargeArchives, AZip64ArchiveOfSeventyThousandEntriesListsAndReads) {
    LocalArchive archive(wideArchive(700, 100));
    EXPECT_EQ(archive.provider().listAllRecursiveNamesOnly(archive.at("")).size(), 70700u);
    for (unsigned folder = 0; folder < 700; folder += 7) {
        const std::string file = wideArchiveFile(folder, folder % 100);
        ASSERT_EQ(archive.read(file), file);
        ASSERT_EQ(archive.provider().getFileAttributes(archive.at(file)).getSize(), file.size());
    }
}

TEST(LargeArchives, AnEntryAboveFourGiBIsListedWithItsSizeAndItsNeighboursCanBeRead) {
    ArchiveBuilder builder;
    builder.add("before.txt", "before");
    builder.add(repeatedEntry("big.bin", std::string(1 << 20, '\0'), aboveFourGiB >> 20));
    builder.add("behind.txt", "behind");
    LocalArchive archive(builder);
    EXPECT_EQ(archive.provider().getFileAttributes(archive.at("big.bin")).getSize(), aboveFourGiB);
    EXPECT_EQ(archive.read("before.txt"), "before");
    EXPECT_EQ(archive.read("behind.txt"), "behind");
}

TEST(LargeArchives, EntriesBehindTheFirstFourGiBOfTheFileAreFound) {
    ArchiveBuilder builder;
    builder.add(sparseEntry("hole.bin", aboveFourGiB)).add("docs/behind.txt", "behind");
    LocalArchive archive(builder);
    ASSERT_GT(std::filesystem::file_size(archive.file()), aboveFourGiB);
    EXPECT_EQ(archive.provider().getFileAttributes(archive.at("hole.bin")).getSize(), aboveFourGiB);
    EXPECT_EQ(archive.read("docs/behind.txt"), "behind");
}

TEST(LargeArchives, AFileBelowAThousandFoldersIsFound) {
    LocalArchive archive(deepArchive(1000));
    std::string path;
    for (int level = 0; level != 1000; ++level)
        path += "n/";
    EXPECT_EQ(archive.read(path + "leaf.txt"), "deep");
    EXPECT_EQ(archive.provider().listAllRecursiveNamesOnly(archive.at("")).size(), 1001u);
}

TEST(LargeArchives, AFolderOfFiftyThousandEntriesListsInOrder) {
    LocalArchive archive(wideArchive(1, 50000));
    const auto names = archive.provider().listFilesNamesOnly(archive.at("d0000"));
    EXPECT_EQ(names.size(), 50000u);
    EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
}

} // namespace
