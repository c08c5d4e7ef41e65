#include "ProviderConformance.h"

namespace kx::test {

namespace {

constexpr auto everyOption = {provider::MoveOption::FailIfExists, provider::MoveOption::ReplaceExisting,
                              provider::MoveOption::AllowCopy,
                              provider::MoveOption::ReplaceExistingAllowCopy};

} // namespace

TEST_P(MoveConformance, AMovedFileHasItsBytesAndTimeUnderTheNewNameOnly) {
    makeFolder(u"f");
    write(u"a", "contents");
    const auto time = storage().getFileAttributes(at(u"a")).getLastModified();
    storage().moveFile(at(u"a"), at(u"f/b"), MoveOption::FailIfExists);

    EXPECT_FALSE(storage().exists(at(u"a")));
    EXPECT_EQ(read(u"f/b"), "contents");
    EXPECT_EQ(storage().getFileAttributes(at(u"f/b")).getLastModified(), time);
    tested().reopen();
    EXPECT_EQ(names(), Names{u"f"});
    EXPECT_EQ(names(u"f"), Names{u"b"});
    EXPECT_EQ(read(u"f/b"), "contents");
}

TEST_P(MoveConformance, MovingAFileToAndFroKeepsIt) {
    write(u"a", "contents");
    storage().moveFile(at(u"a"), at(u"b"), MoveOption::FailIfExists);
    storage().moveFile(at(u"b"), at(u"c"), MoveOption::FailIfExists);
    storage().moveFile(at(u"c"), at(u"a"), MoveOption::FailIfExists);
    tested().reopen();

    EXPECT_EQ(names(), Names{u"a"});
    EXPECT_EQ(read(u"a"), "contents");
}

TEST_P(MoveConformance, MovingAFileOntoAFileFailsUnlessItReplaces) {
    write(u"a", "source");
    write(u"b", "destination");
    for (const auto option : {MoveOption::FailIfExists, MoveOption::AllowCopy}) {
        expectError(
            ErrorCode::AlreadyExists, [&] { storage().moveFile(at(u"a"), at(u"b"), option); }, at(u"b"));
    }
    EXPECT_EQ(read(u"a"), "source");
    EXPECT_EQ(read(u"b"), "destination");

    storage().moveFile(at(u"a"), at(u"b"), MoveOption::ReplaceExisting);
    tested().reopen();
    EXPECT_EQ(names(), Names{u"b"});
    EXPECT_EQ(read(u"b"), "source");
}

TEST_P(MoveConformance, MovingAFileOntoAFolderFails) {
    write(u"a", "source");
    makeFolder(u"f");
    for (const auto option : everyOption) {
        expectError(
            ErrorCode::AlreadyExists, [&] { storage().moveFile(at(u"a"), at(u"f"), option); }, at(u"f"));
    }
    EXPECT_EQ(read(u"a"), "source");
    EXPECT_TRUE(storage().isFolder(at(u"f")));
}

TEST_P(MoveConformance, MovingAFileThatIsNotThereFails) {
    makeFolder(u"f");
    write(u"b", "kept");
    for (const auto* source : {u"a", u"f", u"no/a"}) {
        expectError(ErrorCode::NotFound,
                    [&] { storage().moveFile(at(source), at(u"b"), MoveOption::ReplaceExisting); });
    }
    EXPECT_EQ(read(u"b"), "kept");
}

TEST_P(MoveConformance, MovingAFileIntoAMissingFolderFails) {
    write(u"a", "source");
    write(u"file", "x");
    for (const auto* destination : {u"no/a", u"file/a"}) {
        expectError(ErrorCode::NotFound,
                    [&] { storage().moveFile(at(u"a"), at(destination), MoveOption::FailIfExists); });
    }
    EXPECT_EQ(read(u"a"), "source");
}

TEST_P(MoveConformance, MovingAFileOntoItselfLosesNothing) {
    write(u"a", "contents");
    expectError(
        ErrorCode::AlreadyExists, [&] { storage().moveFile(at(u"a"), at(u"a"), MoveOption::FailIfExists); },
        at(u"a"));
    EXPECT_NO_THROW(storage().moveFile(at(u"a"), at(u"a"), MoveOption::ReplaceExisting));
    tested().reopen();
    EXPECT_EQ(read(u"a"), "contents");
}

TEST_P(MoveConformance, AMovedFolderTakesAllBelowAlong) {
    storage().createFolderRecursive(at(u"from/sub/empty"));
    makeFolder(u"to");
    write(u"from/a", "1");
    write(u"from/sub/b", "2");
    write(u"fromage", "cheese");
    storage().moveFolder(at(u"from"), at(u"to/there"), MoveOption::FailIfExists);

    EXPECT_FALSE(storage().exists(at(u"from")));
    EXPECT_FALSE(storage().exists(at(u"from/a")));
    tested().reopen();
    EXPECT_EQ(storage().listAllRecursiveNamesOnly(tested().root()),
              (Names{u"fromage", u"to", u"to/there", u"to/there/a", u"to/there/sub", u"to/there/sub/b",
                     u"to/there/sub/empty"}));
    EXPECT_EQ(read(u"to/there/a"), "1");
    EXPECT_EQ(read(u"to/there/sub/b"), "2");
    EXPECT_EQ(read(u"fromage"), "cheese");
}

TEST_P(MoveConformance, MovingAFolderOntoWhatExistsFails) {
    makeFolder(u"f");
    write(u"f/a", "1");
    makeFolder(u"g");
    write(u"g/b", "2");
    write(u"file", "3");
    for (const auto option : everyOption) {
        expectError(
            ErrorCode::AlreadyExists, [&] { storage().moveFolder(at(u"f"), at(u"g"), option); }, at(u"g"));
    }
    expectError(
        ErrorCode::AlreadyExists,
        [&] { storage().moveFolder(at(u"f"), at(u"file"), MoveOption::FailIfExists); }, at(u"file"));
    EXPECT_EQ(read(u"f/a"), "1");
    EXPECT_EQ(read(u"g/b"), "2");
    EXPECT_EQ(read(u"file"), "3");
}

TEST_P(MoveConformance, MovingAFolderThatIsNotThereFails) {
    write(u"file", "x");
    for (const auto* source : {u"f", u"file", u"no/f"}) {
        expectError(ErrorCode::NotFound,
                    [&] { storage().moveFolder(at(source), at(u"g"), MoveOption::FailIfExists); });
    }
    EXPECT_EQ(names(), Names{u"file"});
}

TEST_P(MoveConformance, MovingAFolderIntoAMissingFolderFails) {
    makeFolder(u"f");
    write(u"f/a", "1");
    expectError(ErrorCode::NotFound,
                [&] { storage().moveFolder(at(u"f"), at(u"no/f"), MoveOption::FailIfExists); });
    EXPECT_EQ(read(u"f/a"), "1");
}

TEST_P(MoveConformance, MovingAFolderBelowItselfFails) {
    storage().createFolderRecursive(at(u"f/sub"));
    write(u"f/a", "1");
    for (const auto* destination : {u"f/new", u"f/sub/new"}) {
        expectError(ErrorCode::NotFound,
                    [&] { storage().moveFolder(at(u"f"), at(destination), MoveOption::FailIfExists); });
    }
    EXPECT_EQ(read(u"f/a"), "1");
    EXPECT_EQ(names(u"f"), (Names{u"a", u"sub"}));
}

TEST_P(MoveConformance, MovingAFolderOntoItselfLosesNothing) {
    makeFolder(u"f");
    write(u"f/a", "1");
    expectError(
        ErrorCode::AlreadyExists, [&] { storage().moveFolder(at(u"f"), at(u"f"), MoveOption::FailIfExists); },
        at(u"f"));
    EXPECT_NO_THROW(storage().moveFolder(at(u"f"), at(u"f"), MoveOption::ReplaceExisting));
    tested().reopen();
    EXPECT_EQ(read(u"f/a"), "1");
}

} // namespace kx::test
