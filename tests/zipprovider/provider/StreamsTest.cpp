#include "ZipProviderTest.h"

#include <storage/zipprovider/src/instantiations.h>

#include <algorithm>
#include <filesystem>

namespace kx::test {

namespace {

using foundation::storage::provider::SeekOrigin;
using storage::zipprovider::ZipEntryPath;

/// Streams that are destroyed without close(), and streams on what was moved or removed.
class ZipProviderStreams : public ZipProviderTest {
protected:
    ZipProviderStreams() {
        mount({{"docs/a.txt", "alpha"}, {"docs/b.txt", "beta"}});
        m_before = memory->callCount(ProviderOperation::OpenStream);
    }

    std::uint64_t rebuilds() const { return memory->callCount(ProviderOperation::OpenStream) - m_before; }

    const Contents m_old{{"docs/a.txt", "alpha"}, {"docs/b.txt", "beta"}};

private:
    std::uint64_t m_before = 0;
};

TEST_F(ZipProviderStreams, AnAbandonedStreamLeavesTheEntryAsItWas) {
    for (const auto& options : {ByteStreamOpenOptions::overwrite(), ByteStreamOpenOptions::append(),
                                ByteStreamOpenOptions::modify()}) {
        auto stream = zip.writer("/docs/a.txt", options);
        writeAll(*stream, "half of it");
        stream.reset();
        EXPECT_EQ(zip.read("/docs/a.txt"), "alpha");
        EXPECT_EQ(zip.size("/docs/a.txt"), 5u);
    }
    EXPECT_EQ(rebuilds(), 0u);
    EXPECT_TRUE(temporaryFiles().empty());
    zip.unmount();
    EXPECT_EQ(rebuilds(), 0u);
    zip.remount();
    expectArchive(m_old);
}

TEST_F(ZipProviderStreams, AnAbandonedStreamOnANewEntryLeavesNothing) {
    auto stream = zip.writer("/docs/new.txt");
    writeAll(*stream, "half of it");
    EXPECT_TRUE(zip.isFile("/docs/new.txt"));
    stream.reset();
    EXPECT_FALSE(zip.isFile("/docs/new.txt"));
    EXPECT_EQ(zip.list("/docs"), (std::vector<std::string>{"a.txt", "b.txt"}));
    EXPECT_EQ(rebuilds(), 0u);
    zip.createFolder("/docs/new.txt");
    EXPECT_TRUE(MountedZip(container).isFolder("/docs/new.txt"));
}

TEST_F(ZipProviderStreams, AnAbandonedStreamKeepsItsTimeAndPlaceToo) {
    const auto time = zip.provider().getFileAttributes(zip.at("/docs/a.txt")).getLastModified();
    auto stream = zip.writer("/docs/a.txt");
    writeAll(*stream, "x");
    EXPECT_NE(zip.provider().getFileAttributes(zip.at("/docs/a.txt")).getLastModified(), time);
    stream.reset();
    EXPECT_EQ(zip.provider().getFileAttributes(zip.at("/docs/a.txt")).getLastModified(), time);
    zip.createFolder("/f");
    EXPECT_EQ(storedNames(archive()), (std::vector<std::string>{"docs/a.txt", "docs/b.txt", "f/"}));
}

TEST_F(ZipProviderStreams, OtherChangesAreSavedWhenTheLastStreamIsAbandoned) {
    auto stream = zip.writer("/docs/a.txt");
    writeAll(*stream, "x");
    zip.createFolder("/f");
    zip.write("/c", "3");
    EXPECT_EQ(rebuilds(), 0u);
    stream.reset();
    EXPECT_EQ(rebuilds(), 1u);
    expectArchive({{"docs/a.txt", "alpha"}, {"docs/b.txt", "beta"}, {"f/", ""}, {"c", "3"}});
}

TEST_F(ZipProviderStreams, AReaderThatSharedTheAbandonedFileDoesNotPassItOn) {
    auto reader = zip.reader("/docs/a.txt");
    auto writer = zip.writer("/docs/a.txt");
    writeAll(*writer, "half");
    writer.reset();
    EXPECT_EQ(zip.read("/docs/a.txt"), "alpha");
    zip.append("/docs/a.txt", "+");
    EXPECT_EQ(zip.read("/docs/a.txt"), "alpha+");
    reader.reset();
    expectArchive({{"docs/a.txt", "alpha+"}, {"docs/b.txt", "beta"}});
    EXPECT_TRUE(temporaryFiles().empty());
}

TEST_F(ZipProviderStreams, WhatOneStreamHasClosedIsNotLostWithAnotherThatIsAbandoned) {
    auto abandoned = zip.writer("/docs/a.txt", ByteStreamOpenOptions::modify());
    zip.append("/docs/a.txt", "+");
    EXPECT_EQ(rebuilds(), 0u);
    abandoned.reset();
    EXPECT_EQ(rebuilds(), 1u);
    expectArchive({{"docs/a.txt", "alpha+"}, {"docs/b.txt", "beta"}});
}

TEST_F(ZipProviderStreams, WhatWasClosedBeforeAnAbandonedStreamWasOpenedStays) {
    auto hold = zip.writer("/hold");
    for (const auto& options : {ByteStreamOpenOptions::overwrite(), ByteStreamOpenOptions::append(),
                                ByteStreamOpenOptions::modify()}) {
        for (const char* path : {"/docs/a.txt", "/new"}) {
            SCOPED_TRACE(path);
            zip.write(path, "closed");
            const auto attributes = zip.provider().getFileAttributes(zip.at(path));
            const auto reader = zip.reader(path);
            auto abandoned = zip.writer(path, options);
            auto another = zip.writer(path, ByteStreamOpenOptions::append());
            writeAll(*abandoned, "not closed");
            writeAll(*another, "+");
            // As long as it is open all streams share one working file.
            EXPECT_EQ(zip.read(path), readAll(*reader));
            EXPECT_NE(zip.read(path), "closed");
            abandoned.reset();
            EXPECT_NE(zip.read(path), "closed");
            another.reset();
            EXPECT_EQ(zip.read(path), "closed");
            EXPECT_EQ(zip.provider().getFileAttributes(zip.at(path)).getSize(), attributes.getSize());
            EXPECT_EQ(zip.provider().getFileAttributes(zip.at(path)).getLastModified(),
                      attributes.getLastModified());
        }
    }
    zip.append("/new", " again");
    EXPECT_EQ(rebuilds(), 0u);
    hold->close();
    hold.reset();
    expectArchive({{"docs/a.txt", "closed"}, {"docs/b.txt", "beta"}, {"new", "closed again"}, {"hold", ""}});
    EXPECT_TRUE(temporaryFiles().empty());
}

TEST_F(ZipProviderStreams, WhatWasClosedStaysAlsoUnderANewName) {
    const auto hold = zip.writer("/hold");
    zip.write("/docs/a.txt", "closed");
    auto abandoned = zip.writer("/docs/a.txt");
    zip.moveFile("/docs/a.txt", "/docs/moved");
    zip.moveFolder("/docs", "/papers");
    writeAll(*abandoned, "not closed");
    abandoned.reset();
    EXPECT_EQ(zip.read("/papers/moved"), "closed");
    hold->close();
    expectArchive({{"papers/moved", "closed"}, {"papers/b.txt", "beta"}, {"hold", ""}});
}

TEST_F(ZipProviderStreams, WhatAnotherStreamClosesLaterIsNotLostEither) {
    auto abandoned = zip.writer("/docs/a.txt", ByteStreamOpenOptions::modify());
    const auto kept = zip.writer("/docs/a.txt", ByteStreamOpenOptions::append());
    abandoned.reset();
    writeAll(*kept, "+");
    kept->close();
    expectArchive({{"docs/a.txt", "alpha+"}, {"docs/b.txt", "beta"}});
}

TEST_F(ZipProviderStreams, WhenAllStreamsOnAnEntryAreAbandonedItIsAsItWas) {
    auto one = zip.writer("/docs/a.txt");
    auto two = zip.writer("/docs/a.txt", ByteStreamOpenOptions::append());
    auto three = zip.writer("/new");
    auto four = zip.writer("/new");
    writeAll(*one, "1");
    writeAll(*two, "2");
    one.reset();
    three.reset();
    two.reset();
    four.reset();
    EXPECT_EQ(rebuilds(), 0u);
    zip.createFolder("/f");
    auto expected = m_old;
    expected["f/"];
    expectArchive(expected);
}

TEST_F(ZipProviderStreams, AnAbandonedStreamOnAMovedEntryLeavesItsBytesUnderTheNewName) {
    auto old = zip.writer("/docs/a.txt");
    auto made = zip.writer("/docs/new.txt");
    writeAll(*old, "half");
    writeAll(*made, "half");
    zip.moveFile("/docs/a.txt", "/docs/c.txt");
    zip.moveFolder("/docs", "/papers");
    EXPECT_EQ(zip.size("/papers/c.txt"), 4u);
    old.reset();
    made.reset();
    expectArchive({{"papers/b.txt", "beta"}, {"papers/c.txt", "alpha"}});
}

TEST_F(ZipProviderStreams, AFlushInBetweenIsWhatAnAbandonedStreamGoesBackTo) {
    using FileSystem =
        storage::zipprovider::ZipFileSystem<storage::zipprovider::HostItem, storage::zipprovider::HostDevice>;
    const auto files = std::make_shared<const FileSystem>(container);
    const ZipEntryPath path(u"/docs/a.txt");
    auto stream = files->checkOutEntry(path, ByteStreamOpenOptions{});
    writeAll(*stream, "flushed");
    files->flushContents();
    writeAll(*stream, " and more");
    auto second = files->checkOutEntry(path, ByteStreamOpenOptions::append());
    stream.reset();
    second.reset();
    EXPECT_EQ(readAll(*files->checkOutEntry(path)), "flushed");
    files->createFolder(ZipEntryPath(u"/f"));
    EXPECT_EQ(MountedZip(container).read("/docs/a.txt"), "flushed");
}

TEST_F(ZipProviderStreams, RemovingAFileThatIsBeingWrittenDropsItAndTheCloseSavesTheRest) {
    const auto stream = zip.writer("/docs/a.txt");
    writeAll(*stream, "goes nowhere");
    zip.removeFile("/docs/a.txt");
    EXPECT_FALSE(zip.isFile("/docs/a.txt"));
    EXPECT_EQ(zip.list("/docs"), (std::vector<std::string>{"b.txt"}));
    EXPECT_EQ(rebuilds(), 0u);
    writeAll(*stream, ", still");
    stream->close();
    EXPECT_EQ(rebuilds(), 1u);
    expectArchive({{"docs/b.txt", "beta"}});
}

TEST_F(ZipProviderStreams, RemovingAFileThatIsReadLeavesTheReaderItsBytes) {
    auto stream = zip.reader("/docs/a.txt");
    zip.removeFile("/docs/a.txt");
    EXPECT_EQ(readAll(*stream), "alpha");
    zip.write("/docs/a.txt", "another");
    stream->seek(0, SeekOrigin::Begin);
    EXPECT_EQ(readAll(*stream), "alpha");
    EXPECT_EQ(zip.read("/docs/a.txt"), "another");
}

TEST_F(ZipProviderStreams, AFileMadeAnewWhileTheRemovedOneIsWrittenIsAnotherFile) {
    const auto removed = zip.writer("/docs/a.txt");
    zip.removeFile("/docs/a.txt");
    const auto made = zip.writer("/docs/a.txt");
    writeAll(*removed, "goes nowhere");
    writeAll(*made, "stays");
    EXPECT_EQ(zip.read("/docs/a.txt"), "stays");
    made->close();
    removed->close();
    expectArchive({{"docs/a.txt", "stays"}, {"docs/b.txt", "beta"}});
}

TEST_F(ZipProviderStreams, AnAbandonedStreamOnARemovedFileDoesNotBringItBack) {
    auto stream = zip.writer("/docs/a.txt");
    zip.removeFile("/docs/a.txt");
    stream.reset();
    expectArchive({{"docs/b.txt", "beta"}});
}

TEST_F(ZipProviderStreams, AFileThatIsMovedWhileItIsWrittenIsSavedUnderTheNewNameOnly) {
    const auto stream = zip.writer("/docs/a.txt", ByteStreamOpenOptions::append());
    writeAll(*stream, " 1");
    zip.moveFile("/docs/a.txt", "/moved.txt");
    writeAll(*stream, " 2");
    EXPECT_EQ(zip.size("/moved.txt"), 9u);
    EXPECT_EQ(zip.read("/moved.txt"), "alpha 1 2");
    zip.moveFile("/moved.txt", "/docs/again.txt");
    writeAll(*stream, " 3");
    EXPECT_EQ(rebuilds(), 0u);
    stream->close();
    EXPECT_EQ(rebuilds(), 1u);
    expectArchive({{"docs/again.txt", "alpha 1 2 3"}, {"docs/b.txt", "beta"}});
}

TEST_F(ZipProviderStreams, StreamsBelowAMovedFolderGoWithIt) {
    zip.createFolder("/docs/sub");
    zip.write("/docs/sub/c.txt", "gamma");
    const auto writer = zip.writer("/docs/sub/c.txt", ByteStreamOpenOptions::append());
    const auto made = zip.writer("/docs/sub/new.txt");
    const auto reader = zip.reader("/docs/a.txt");
    zip.moveFolder("/docs", "/papers");
    writeAll(*writer, "+");
    writeAll(*made, "new");
    EXPECT_EQ(readAll(*reader), "alpha");
    EXPECT_EQ(zip.read("/papers/sub/c.txt"), "gamma+");
    writer->close();
    made->close();
    expectArchive({{"papers/a.txt", "alpha"},
                   {"papers/b.txt", "beta"},
                   {"papers/sub/", ""},
                   {"papers/sub/c.txt", "gamma+"},
                   {"papers/sub/new.txt", "new"}});
}

TEST_F(ZipProviderStreams, BelowAMovedFileStayWhereTheyAre) {
    mount({{"x", "file"}, {"x/y", "below"}, {"x/z", "below too"}});
    auto abandoned = zip.writer("/x/y");
    const auto closed = zip.writer("/x/z");
    writeAll(*abandoned, "half");
    writeAll(*closed, "whole");
    zip.moveFile("/x", "/moved");
    EXPECT_EQ(zip.read("/x/y"), "half");
    abandoned.reset();
    EXPECT_EQ(zip.read("/x/y"), "below");
    closed->close();
    expectArchive({{"x/y", "below"}, {"x/z", "whole"}, {"moved", "file"}});
}

TEST_F(ZipProviderStreams, AFileThatIsReplacedWhileItIsWrittenLeavesTheStreamWithoutEffect) {
    const auto replaced = zip.writer("/docs/b.txt");
    zip.moveFile("/docs/a.txt", "/docs/b.txt", MoveOption::ReplaceExisting);
    writeAll(*replaced, "goes nowhere");
    EXPECT_EQ(zip.read("/docs/b.txt"), "alpha");
    replaced->close();
    expectArchive({{"docs/b.txt", "alpha"}});
}

TEST_F(ZipProviderStreams, AFolderMovedToWhereAGivenUpFileStoodIsWhole) {
    zip.createFolder("/from");
    zip.createFolder("/to");
    auto given = zip.writer("/to/x");
    const auto kept = zip.writer("/from/x");
    writeAll(*kept, "kept");
    given.reset();
    zip.removeFolder("/to");
    zip.moveFolder("/from", "/to");
    EXPECT_EQ(zip.read("/to/x"), "kept");
    zip.append("/to/x", "+");
    kept->close();
    EXPECT_EQ(MountedZip(container).read("/to/x"), "kept+");
}

TEST_F(ZipProviderStreams, AGivenUpOneWhoseEarlierContentsAreGoneBlocksNothing) {
    const auto hold = zip.writer("/hold");
    zip.write("/docs/a.txt", "closed");
    const auto before = temporaryFiles();
    auto given = zip.writer("/docs/a.txt");
    int removed = 0;
    for (const auto& file : temporaryFiles()) {
        if (std::ranges::find(before, file) == before.end()) {
            removed += std::filesystem::remove(temporary.path() / file) ? 1 : 0;
        }
    }
    ASSERT_EQ(removed, 1);
    given.reset();
    EXPECT_EQ(zip.read("/docs/b.txt"), "beta");
    zip.removeFile("/docs/a.txt");
    hold->close();
    expectArchive({{"docs/b.txt", "beta"}, {"hold", ""}});
}

TEST_F(ZipProviderStreams, AStreamThatIsClosedAndThenDestroyedIsNotAbandoned) {
    auto stream = zip.writer("/docs/a.txt");
    writeAll(*stream, "new");
    stream->close();
    stream.reset();
    EXPECT_EQ(rebuilds(), 1u);
    EXPECT_EQ(zip.read("/docs/a.txt"), "new");
}

TEST_F(ZipProviderStreams, ThousandsOfStreamsOneAfterTheOtherLeaveNothingBehind) {
    for (int i = 0; i < 2000; ++i) {
        EXPECT_EQ(zip.read(i % 2 == 0 ? "/docs/a.txt" : "/docs/b.txt"), i % 2 == 0 ? "alpha" : "beta");
    }
    EXPECT_TRUE(temporaryFiles().empty());
    EXPECT_EQ(memory->openStreamCount(), 0u);
}

} // namespace

} // namespace kx::test
