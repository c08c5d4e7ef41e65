#include "ProviderConformance.h"

#include <support/contents.h>

namespace kx::test {

TEST_P(ReadOnlyConformance, EveryChangeIsRefusedAndNothingChanges) {
    makeFolder(u"f");
    makeFolder(u"empty");
    write(u"f/a", "contents");
    write(u"b", "x");
    if (!tested().makeReadOnly()) {
        GTEST_SKIP() << "the storage cannot be made read-only";
    }
    const auto before = storage().listAllRecursiveNamesOnly(tested().root());
    auto& s = storage();
    const auto refuses = [this](const std::function<void()>& operation, const StorageIRI& location) {
        expectError(ErrorCode::NotWritable, operation, location);
    };

    refuses([&] { s.createFile(at(u"new")); }, at(u"new"));
    refuses([&] { s.createFolder(at(u"new")); }, at(u"new"));
    refuses([&] { s.removeFile(at(u"b")); }, at(u"b"));
    refuses([&] { s.removeFolder(at(u"empty")); }, at(u"empty"));
    refuses([&] { s.moveFile(at(u"b"), at(u"c"), MoveOption::FailIfExists); }, at(u"b"));
    refuses([&] { s.moveFolder(at(u"f"), at(u"g"), MoveOption::FailIfExists); }, at(u"f"));
    refuses([&] { s.openStream(at(u"b"), Options::overwrite()); }, at(u"b"));
    refuses([&] { s.openStream(at(u"new"), Options::append()); }, at(u"new"));
    const std::vector<std::function<void()>> builtOnThese{
        [&] { s.createFolderRecursive(at(u"new/deeper")); },
        [&] { s.removeFolderRecursively(at(u"f")); },
        [&] { s.copyFile(at(u"b"), at(u"c"), MoveOption::FailIfExists); },
        [&] { s.copyFileAtomic(at(u"b"), at(u"c"), MoveOption::FailIfExists); },
        [&] { s.truncateToSize(at(u"f/a"), 1); },
        [&] { s.truncateToSize(at(u"f/a"), 100); },
        [&] { s.openTransactionalStream(at(u"b"), Options::overwrite()); },
        [&] { s.openTransactionalStreamAtScratchLocation(at(u"b"), at(u"f"), Options::overwrite()); }};
    for (const auto& operation : builtOnThese) {
        expectError(ErrorCode::NotWritable, operation);
    }
    EXPECT_EQ(s.listAllRecursiveNamesOnly(tested().root()), before);
    EXPECT_EQ(read(u"f/a"), "contents");
    EXPECT_EQ(read(u"b"), "x");
}

TEST_P(ReadOnlyConformance, AttributesSayThatNothingIsWritable) {
    makeFolder(u"f");
    write(u"a", "contents");
    if (!tested().makeReadOnly()) {
        GTEST_SKIP() << "the storage cannot be made read-only";
    }
    EXPECT_FALSE(storage().getFileAttributes(at(u"a")).isWritable());
    EXPECT_FALSE(storage().getFolderAttributes(at(u"f")).isWritable());
    EXPECT_FALSE(storage().getExtendedAttributes(at(u"a")).writable);
    EXPECT_EQ(storage().getFileAttributes(at(u"a")).getSize(), 8U);
}

} // namespace kx::test
