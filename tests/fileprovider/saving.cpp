#include "LocalFilesTest.h"

#include <string>
#include <vector>

namespace kx::test {

namespace fs = std::filesystem;
using foundation::storage::provider::MoveOption;
using foundation::storage::provider::SeekOrigin;

class LocalFileSaving : public LocalFilesTest {};

TEST_F(LocalFileSaving, TheOldContentsStandUntilClose) {
    save("a", "old");
    const auto stream = files().openStream(iri("a"), {});
    writeAll(*stream, "new contents");
    EXPECT_EQ(slurp(file("a")), "old");
    stream->close();
    EXPECT_EQ(slurp(file("a")), "new contents");
    expectNothingLeft();
}

TEST_F(LocalFileSaving, AStreamDestroyedWithoutCloseChangesNothing) {
    save("a", "old");
    for (const auto& how : {ByteStreamOpenOptions::overwrite(), ByteStreamOpenOptions::append(),
                            ByteStreamOpenOptions::modify()}) {
        writeAll(*files().openStream(iri("a"), how), "new contents");
        EXPECT_EQ(slurp(file("a")), "old");
    }
    writeAll(*files().openStream(iri("new"), {}), "x");
    EXPECT_EQ(namesIn(folder()), std::vector<std::string>{"a"});
    expectNothingLeft();
}

TEST_F(LocalFileSaving, ANewFileAppearsWithClose) {
    const auto stream = files().openStream(iri("new"), {});
    writeAll(*stream, "x");
    EXPECT_FALSE(fs::exists(file("new")));
    EXPECT_FALSE(files().isFile(iri("new")));
    stream->close();
    EXPECT_EQ(slurp(file("new")), "x");
    expectNothingLeft();
}

TEST_F(LocalFileSaving, AFileMadeMeanwhileIsNotReplacedByWhatWasToBeAppended) {
    const auto stream = files().openStream(iri("new"), ByteStreamOpenOptions::append());
    writeAll(*stream, "mine");
    spit(file("new"), "theirs");
    expectError(ErrorCode::Busy, [&] { stream->close(); });
    EXPECT_EQ(slurp(file("new")), "theirs");
    expectNothingLeft();
}

TEST_F(LocalFileSaving, ContentsChangedMeanwhileAreNotOverwrittenByChangesOfTheOldOnes) {
    save("a", "0123456789");
    const auto stream = files().openStream(iri("a"), ByteStreamOpenOptions::modify());
    stream->seek(5, SeekOrigin::Begin);
    writeAll(*stream, "x");
    spit(file("a"), "something else");
    const auto text = expectError(ErrorCode::Busy, [&] { stream->close(); });
    EXPECT_NE(text.find("another program changed the file"), std::string::npos) << text;
    EXPECT_EQ(slurp(file("a")), "something else");
    expectNothingLeft();
}

TEST_F(LocalFileSaving, ACopyDoesNotReplaceAFileMadeMeanwhile) {
    save("a", "x");
    save("b", "y");
    expectError(ErrorCode::AlreadyExists,
                [&] { files().copyFile(iri("a"), iri("b"), MoveOption::FailIfExists); });
    EXPECT_EQ(slurp(file("b")), "y");
    expectNothingLeft();
}

TEST_F(LocalFileSaving, TheLastOfTwoStreamsToCloseWins) {
    const auto first = files().openStream(iri("a"), {});
    const auto second = files().openStream(iri("a"), {});
    writeAll(*first, "first");
    writeAll(*second, "second");
    second->close();
    EXPECT_EQ(slurp(file("a")), "second");
    first->close();
    EXPECT_EQ(slurp(file("a")), "first");
    expectNothingLeft();
}

TEST_F(LocalFileSaving, TruncatingAndAppendingAtOnceIsRefused) {
    ByteStreamOpenOptions how = ByteStreamOpenOptions::append();
    how.truncation = foundation::storage::provider::StreamTruncation::Truncate;
    expectError(ErrorCode::InvalidArgument, [&] { files().openStream(iri("a"), how); });
    expectNothingLeft();
}

TEST_F(LocalFileSaving, AReadOnlyFileIsRefusedAtOpening) {
    save("a", "old");
    files().setWritable(iri("a"), false);
    expectError(ErrorCode::NotWritable, [&] { files().openStream(iri("a"), {}); });
    expectError(ErrorCode::NotWritable, [&] { files().truncateToSize(iri("a"), 1); });
    EXPECT_EQ(slurp(file("a")), "old");
    expectNothingLeft();
}

TEST_F(LocalFileSaving, AFolderThatGoesTakesAnUnfinishedSaveAlong) {
    files().createFolder(iri("f"));
    const auto stream = files().openStream(iri("f").child(u"a"), {});
    writeAll(*stream, "x");
    files().removeFolder(iri("f"));
    expectError(ErrorCode::NotFound, [&] { stream->close(); });
    EXPECT_FALSE(fs::exists(file("f")));
}

} // namespace kx::test
