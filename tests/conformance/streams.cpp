#include "ProviderConformance.h"

#include <foundation/storage/provider/ByteStreamDevice.h>
#include <support/contents.h>

#include <boost/iostreams/stream.hpp>

#include <algorithm>

namespace kx::test {

using provider::SeekOrigin;
using provider::StreamAccess;
using provider::StreamDisposition;
using provider::StreamPositioning;
using provider::StreamTruncation;

namespace {

constexpr provider::ByteStreamOpenOptions keepAndPosition{
    StreamAccess::Write, StreamDisposition::OpenOrCreate, StreamTruncation::Keep,
    StreamPositioning::Position};

} // namespace

TEST_P(StreamConformance, WhatIsWrittenIsReadBack) {
    const auto bytes = randomBytes(tested().traits().largeFile, 1);
    write(u"small", "hello");
    write(u"large", bytes);

    EXPECT_EQ(read(u"small"), "hello");
    EXPECT_TRUE(read(u"large") == bytes);
    tested().reopen();
    EXPECT_EQ(read(u"small"), "hello");
    EXPECT_TRUE(read(u"large") == bytes);
    EXPECT_EQ(storage().getFileAttributes(at(u"large")).getSize(), bytes.size());
}

TEST_P(StreamConformance, OverwritingLeavesNothingOfTheOldContents) {
    write(u"a", "a long text that was there before");
    write(u"a", "short");
    EXPECT_EQ(read(u"a"), "short");
    tested().reopen();
    EXPECT_EQ(read(u"a"), "short");
}

TEST_P(StreamConformance, ClosingAnUnwrittenTruncatingStreamEmptiesTheFile) {
    write(u"a", "old");
    storage().openStream(at(u"a"), Options::overwrite())->close();
    EXPECT_EQ(read(u"a"), "");
}

TEST_P(StreamConformance, AppendingWritesBehindTheContentsWhereverThePositionIs) {
    write(u"a", "one");
    const auto stream = storage().openStream(at(u"a"), Options::append());
    writeAll(*stream, " two");
    stream->seek(0, SeekOrigin::Begin);
    writeAll(*stream, " three");
    stream->close();

    EXPECT_EQ(read(u"a"), "one two three");
    tested().reopen();
    EXPECT_EQ(read(u"a"), "one two three");
}

TEST_P(StreamConformance, AppendingToAMissingFileCreatesIt) {
    write(u"a", "text", Options::append());
    EXPECT_EQ(read(u"a"), "text");
}

TEST_P(StreamConformance, KeepingContentsChangesOnlyWhatIsWritten) {
    write(u"a", "0123456789");
    write(u"a", "abc", keepAndPosition);
    EXPECT_EQ(read(u"a"), "abc3456789");

    const auto stream = storage().openStream(at(u"a"), keepAndPosition);
    EXPECT_EQ(stream->seek(-2, SeekOrigin::End), 8);
    writeAll(*stream, "XYZ");
    stream->close();
    tested().reopen();
    EXPECT_EQ(read(u"a"), "abc34567XYZ");
}

TEST_P(StreamConformance, AStreamForReadingAndWritingDoesBoth) {
    write(u"a", "0123456789");
    const auto stream = storage().openStream(at(u"a"), Options::modify());
    std::string head(4, '\0');
    ASSERT_EQ(stream->read(head.data(), 4), 4);
    EXPECT_EQ(head, "0123");
    stream->seek(2, SeekOrigin::Begin);
    writeAll(*stream, "ab");
    stream->seek(0, SeekOrigin::Begin);
    EXPECT_EQ(readAll(*stream), "01ab456789");
    stream->close();
    EXPECT_EQ(read(u"a"), "01ab456789");
}

TEST_P(StreamConformance, AWriteBeyondTheEndFillsTheGapWithZeros) {
    const auto stream = storage().openStream(at(u"a"), Options::overwrite());
    writeAll(*stream, "ab");
    EXPECT_EQ(stream->seek(5, SeekOrigin::Begin), 5);
    writeAll(*stream, "c");
    stream->close();
    EXPECT_EQ(read(u"a"), (std::string{'a', 'b', '\0', '\0', '\0', 'c'}));
}

TEST_P(StreamConformance, SeekingAloneChangesNothing) {
    write(u"a", "ab");
    const auto stream = storage().openStream(at(u"a"), keepAndPosition);
    stream->seek(100, SeekOrigin::Begin);
    stream->close();
    EXPECT_EQ(read(u"a"), "ab");
}

TEST_P(StreamConformance, ReadingGoesOnWhereASeekLeads) {
    write(u"a", "0123456789");
    const auto stream = storage().openReadStream(at(u"a"));
    std::string two(2, '\0');
    const auto readTwo = [&] {
        EXPECT_EQ(stream->read(two.data(), 2), 2);
        return two;
    };
    EXPECT_EQ(readTwo(), "01");
    EXPECT_EQ(stream->seek(3, SeekOrigin::Current), 5);
    EXPECT_EQ(readTwo(), "56");
    EXPECT_EQ(stream->seek(-3, SeekOrigin::End), 7);
    EXPECT_EQ(readTwo(), "78");
    EXPECT_EQ(stream->seek(-8, SeekOrigin::Current), 1);
    EXPECT_EQ(readTwo(), "12");
    EXPECT_EQ(stream->seek(0, SeekOrigin::Begin), 0);
    EXPECT_EQ(readAll(*stream), "0123456789");
}

TEST_P(StreamConformance, ReadingAtOrBeyondTheEndGivesNoBytes) {
    write(u"a", "abc");
    write(u"empty", "");
    const auto stream = storage().openReadStream(at(u"a"));
    char byte = 0;
    stream->seek(0, SeekOrigin::End);
    EXPECT_EQ(stream->read(&byte, 1), 0);
    stream->seek(1000, SeekOrigin::Begin);
    EXPECT_EQ(stream->read(&byte, 1), 0);
    stream->seek(2, SeekOrigin::Begin);
    EXPECT_EQ(stream->read(&byte, 1), 1);
    EXPECT_EQ(byte, 'c');
    EXPECT_EQ(storage().openReadStream(at(u"empty"))->read(&byte, 1), 0);
}

TEST_P(StreamConformance, SeekingBeforeTheBeginFails) {
    write(u"a", "abc");
    for (const auto origin : {SeekOrigin::Begin, SeekOrigin::Current}) {
        EXPECT_ANY_THROW(storage().openReadStream(at(u"a"))->seek(-1, origin));
    }
    EXPECT_ANY_THROW(storage().openReadStream(at(u"a"))->seek(-4, SeekOrigin::End));
}

TEST_P(StreamConformance, NegativeCountsAreRefused) {
    const auto stream = storage().openStream(at(u"a"), {StreamAccess::ReadWrite});
    char byte = 0;
    EXPECT_THROW(stream->read(&byte, -1), std::invalid_argument);
    EXPECT_THROW(stream->write(&byte, -1), std::invalid_argument);
    EXPECT_THROW(stream->seek(0, static_cast<SeekOrigin>(3)), std::invalid_argument);
    stream->close();
}

TEST_P(StreamConformance, ReadingAndWritingNoBytesDoesNothing) {
    write(u"a", "abc");
    const auto stream = storage().openStream(at(u"a"), Options::modify());
    char byte = 'x';
    EXPECT_EQ(stream->read(&byte, 0), 0);
    EXPECT_EQ(stream->write(&byte, 0), 0);
    stream->close();
    EXPECT_EQ(read(u"a"), "abc");
}

TEST_P(StreamConformance, ClosingTwiceIsNoError) {
    const auto out = storage().openStream(at(u"a"), Options::overwrite());
    writeAll(*out, "abc");
    out->close();
    EXPECT_NO_THROW(out->close());
    const auto in = storage().openReadStream(at(u"a"));
    in->close();
    EXPECT_NO_THROW(in->close());
    EXPECT_EQ(read(u"a"), "abc");
}

TEST_P(StreamConformance, AStreamDestroyedWithoutCloseLeavesTheOldContents) {
    if (!tested().traits().keepsOldContentsOnDiscard) {
        GTEST_SKIP() << "the provider delivers what was written without close, too";
    }
    write(u"a", "old");
    writeAll(*storage().openStream(at(u"a"), Options::overwrite()), "new");
    EXPECT_EQ(read(u"a"), "old");
    writeAll(*storage().openStream(at(u"a"), Options::append()), "more");
    EXPECT_EQ(read(u"a"), "old");
    tested().reopen();
    EXPECT_EQ(read(u"a"), "old");
}

TEST_P(StreamConformance, TwoReadersOfOneFileAreIndependent) {
    write(u"a", "0123456789");
    const auto first = storage().openReadStream(at(u"a"));
    const auto second = storage().openReadStream(at(u"a"));
    first->seek(5, SeekOrigin::Begin);
    EXPECT_EQ(readAll(*second), "0123456789");
    second->close();
    EXPECT_EQ(readAll(*first), "56789");
}

TEST_P(StreamConformance, AReaderOutlivesTheFile) {
    const auto bytes = randomBytes(300'000, 3);
    write(u"a", bytes);
    const auto stream = storage().openReadStream(at(u"a"));
    std::string head(10, '\0');
    stream->read(head.data(), 10);
    storage().removeFile(at(u"a"));
    EXPECT_TRUE(head + readAll(*stream) == bytes);
}

TEST_P(StreamConformance, OpeningForReadingWhatIsNoFileFails) {
    write(u"file", "x");
    makeFolder(u"folder");
    for (const auto* path : {u"no", u"no/file", u"folder", u"folder/", u"file/", u"file/a"}) {
        expectError(
            ErrorCode::NotFound, [&] { storage().openReadStream(at(path)); }, at(path));
    }
}

TEST_P(StreamConformance, OpeningForWritingInAMissingFolderFails) {
    for (const auto& options : {Options::overwrite(), Options::append(), Options::modify()}) {
        expectError(
            ErrorCode::NotFound, [&] { storage().openStream(at(u"no/a"), options); }, at(u"no/a"));
    }
    EXPECT_EQ(names(), Names{});
}

TEST_P(StreamConformance, OpeningAMissingFileThatMustExistFails) {
    expectError(
        ErrorCode::NotFound, [&] { storage().openStream(at(u"a"), Options::modify()); }, at(u"a"));
    EXPECT_FALSE(storage().exists(at(u"a")));
}

TEST_P(StreamConformance, OpeningAFolderForWritingFails) {
    makeFolder(u"f");
    for (const auto& options : {Options::overwrite(), Options::append()}) {
        expectError(
            ErrorCode::AlreadyExists, [&] { storage().openStream(at(u"f"), options); }, at(u"f"));
    }
    EXPECT_TRUE(storage().isFolder(at(u"f")));
}

TEST_P(StreamConformance, TruncatingAndAppendingAtOnceIsRefused) {
    write(u"a", "kept");
    auto options = Options::append();
    options.truncation = StreamTruncation::Truncate;
    EXPECT_ANY_THROW(storage().openStream(at(u"a"), options));
    EXPECT_EQ(read(u"a"), "kept");
}

TEST_P(StreamConformance, ABoostStreamWorksOverAFile) {
    using Stream = boost::iostreams::stream<provider::ByteStreamDevice>;
    Stream out(provider::ByteStreamDevice(storage().openStream(at(u"a"), {StreamAccess::ReadWrite})));
    out << "first line\nsecond line\n";
    out.seekp(6);
    out << "LINE";
    out.close();

    Stream in(provider::ByteStreamDevice(storage().openReadStream(at(u"a"))));
    std::string line;
    std::getline(in, line);
    EXPECT_EQ(line, "first LINE");
    EXPECT_EQ(in.tellg(), std::streampos(11));
    in.seekg(-5, std::ios_base::end);
    std::getline(in, line);
    EXPECT_EQ(line, "line");
    EXPECT_FALSE(std::getline(in, line));
}

} // namespace kx::test
