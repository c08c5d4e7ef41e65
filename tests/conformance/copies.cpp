#include "ProviderConformance.h"

#include <support/contents.h>

#include <limits>

namespace kx::test {

namespace {

using Copier = void (provider::IProvider::*)(const provider::StorageIRI&, const provider::StorageIRI&,
                                             provider::MoveOption);
constexpr Copier copiers[] = {&provider::IProvider::copyFile, &provider::IProvider::copyFileAtomic};

} // namespace

TEST_P(CopyConformance, ACopyHasTheBytesAndTheSourceStays) {
    const auto bytes = randomBytes(200'000, 5);
    write(u"a", bytes);
    write(u"empty", "");
    makeFolder(u"f");
    ustring name = u"f/copy";
    for (const auto copy : copiers) {
        name += u"1";
        (storage().*copy)(at(u"a"), at(name), MoveOption::FailIfExists);
        (storage().*copy)(at(u"empty"), at(name + u"empty"), MoveOption::FailIfExists);
        EXPECT_TRUE(read(name) == bytes);
        EXPECT_EQ(read(name + u"empty"), "");
    }
    tested().reopen();
    EXPECT_TRUE(read(u"a") == bytes);
    EXPECT_TRUE(read(u"f/copy1") == bytes);
    EXPECT_EQ(names(u"f"), (Names{u"copy1", u"copy11", u"copy11empty", u"copy1empty"}));
}

TEST_P(CopyConformance, CopyingOntoAFileFailsUnlessItReplaces) {
    for (const auto copy : copiers) {
        write(u"a", "source");
        write(u"b", "destination, longer than the source");
        for (const auto option : {MoveOption::FailIfExists, MoveOption::AllowCopy}) {
            expectError(
                ErrorCode::AlreadyExists, [&] { (storage().*copy)(at(u"a"), at(u"b"), option); }, at(u"b"));
        }
        EXPECT_EQ(read(u"b"), "destination, longer than the source");
        (storage().*copy)(at(u"a"), at(u"b"), MoveOption::ReplaceExisting);
        EXPECT_EQ(read(u"b"), "source");
        EXPECT_EQ(names(), (Names{u"a", u"b"}));
    }
}

TEST_P(CopyConformance, CopyingOntoAFolderFails) {
    write(u"a", "source");
    makeFolder(u"f");
    for (const auto copy : copiers) {
        for (const auto option : {MoveOption::FailIfExists, MoveOption::ReplaceExisting}) {
            expectError(
                ErrorCode::AlreadyExists, [&] { (storage().*copy)(at(u"a"), at(u"f"), option); }, at(u"f"));
        }
    }
    EXPECT_EQ(names(), (Names{u"a", u"f"}));
}

TEST_P(CopyConformance, CopyingWhatIsNoFileFails) {
    makeFolder(u"f");
    for (const auto copy : copiers) {
        for (const auto* source : {u"no", u"no/a", u"f"}) {
            expectError(
                ErrorCode::NotFound,
                [&] { (storage().*copy)(at(source), at(u"b"), MoveOption::FailIfExists); }, at(source));
        }
    }
    EXPECT_EQ(names(), Names{u"f"});
}

TEST_P(CopyConformance, CopyingIntoAMissingFolderFails) {
    write(u"a", "source");
    for (const auto copy : copiers) {
        expectError(ErrorCode::NotFound,
                    [&] { (storage().*copy)(at(u"a"), at(u"no/b"), MoveOption::FailIfExists); });
    }
    EXPECT_EQ(names(), Names{u"a"});
}

TEST_P(CopyConformance, CopyingAFileOntoItselfLosesNothing) {
    makeFolder(u"f");
    write(u"f/a", "contents");
    for (const auto copy : copiers) {
        (storage().*copy)(at(u"f/a"), at(u"f/a"), MoveOption::ReplaceExisting);
        (storage().*copy)(at(u"f/a"), at(u"f//a"), MoveOption::ReplaceExisting);
        EXPECT_EQ(read(u"f/a"), "contents");
        expectError(
            ErrorCode::AlreadyExists,
            [&] { (storage().*copy)(at(u"f/a"), at(u"f/a"), MoveOption::FailIfExists); }, at(u"f/a"));
    }
    EXPECT_EQ(names(u"f"), Names{u"a"});
}

TEST_P(CopyConformance, TruncatingCutsAFile) {
    write(u"a", "0123456789");
    storage().truncateToSize(at(u"a"), 4);
    EXPECT_EQ(read(u"a"), "0123");
    storage().truncateToSize(at(u"a"), 4);
    EXPECT_EQ(read(u"a"), "0123");
    storage().truncateToSize(at(u"a"), 0);
    EXPECT_EQ(read(u"a"), "");
    tested().reopen();
    EXPECT_EQ(storage().getFileAttributes(at(u"a")).getSize(), 0U);
}

TEST_P(CopyConformance, TruncatingBeyondTheEndAddsZeros) {
    write(u"a", "ab");
    storage().truncateToSize(at(u"a"), 5);
    EXPECT_EQ(read(u"a"), (std::string{'a', 'b', '\0', '\0', '\0'}));
    storage().truncateToSize(at(u"a"), 300'000);
    tested().reopen();
    EXPECT_TRUE(read(u"a") == "ab" + std::string(299'998, '\0'));
}

TEST_P(CopyConformance, TruncatingALargeFileKeepsItsHead) {
    const auto bytes = randomBytes(tested().traits().largeFile, 9);
    const auto size = bytes.size() / 2 + 1;
    write(u"a", bytes);
    storage().truncateToSize(at(u"a"), size);
    EXPECT_TRUE(read(u"a") == bytes.substr(0, size));
}

TEST_P(CopyConformance, TruncatingWhatIsNoFileFails) {
    makeFolder(u"f");
    for (const auto* path : {u"no", u"no/a", u"f"}) {
        expectError(
            ErrorCode::NotFound, [&] { storage().truncateToSize(at(path), 1); }, at(path));
    }
    EXPECT_EQ(names(), Names{u"f"});
}

TEST_P(CopyConformance, TruncatingToASizeThatNoFileHasFails) {
    write(u"a", "ab");
    expectError(ErrorCode::InvalidArgument,
                [&] { storage().truncateToSize(at(u"a"), std::numeric_limits<std::uint64_t>::max()); });
    EXPECT_EQ(read(u"a"), "ab");
}

} // namespace kx::test
