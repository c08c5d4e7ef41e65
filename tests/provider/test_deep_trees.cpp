#include <foundation/storage/provider/Exception.h>
#include <support/InMemoryProvider.h>
#include <support/contents.h>

#include <gtest/gtest.h>

namespace kx::test {

namespace {

constexpr std::size_t depth = 30'000;

TEST(DeepTrees, ThirtyThousandFoldersInOneAnotherCanBeMadeListedAndRemoved) {
    InMemoryProvider memory;
    fl::i18n::ustring deepest;
    for (std::size_t level = 0; level < depth; ++level) {
        deepest += u"/d";
    }
    memory.createFolderRecursive(memory.at(deepest));
    ASSERT_TRUE(memory.isFolder(memory.at(deepest)));
    memory.createFile(memory.at(deepest + u"/leaf"));

    const auto listing = memory.listAllRecursive(memory.at(u"/"));
    std::size_t entries = 0;
    for (; listing->hasNext(); ++entries) {
        listing->next();
    }
    EXPECT_EQ(entries, depth + 1);
    EXPECT_TRUE(listing->current().getName() == deepest.substr(1) + u"/leaf");

    memory.removeFolderRecursively(memory.at(u"/d"));
    EXPECT_FALSE(memory.listAll(memory.at(u"/"))->hasNext());
}

TEST(DeepTrees, AFolderOfManyThousandEntriesIsListedAndRemoved) {
    InMemoryProvider memory;
    memory.createFolder(memory.at(u"/wide"));
    for (int number = 0; number < 20'000; ++number) {
        memory.createFile(
            memory.at(u"/wide/" + fl::i18n::ustring(1, static_cast<char16_t>(0x4E00 + number))));
    }
    EXPECT_EQ(memory.listAllRecursiveNamesOnly(memory.at(u"/")).size(), 20'001U);
    memory.removeFolderRecursively(memory.at(u"/wide"));
    EXPECT_FALSE(memory.exists(memory.at(u"/wide")));
}

} // namespace

} // namespace kx::test
