#include "ZipProviderTest.h"

#include <foundation/storage/provider/FileAttributes.h>
#include <foundation/storage/provider/IFlushable.h>
#include <storage/zipprovider/src/instantiations.h>
#include <support/archives/ArchiveBuilder.h>

namespace kx::test {

namespace {

using foundation::storage::provider::SeekOrigin;
using foundation::storage::provider::StreamAccess;
using foundation::storage::provider::StreamDisposition;
using foundation::storage::provider::StreamPositioning;
using foundation::storage::provider::StreamTruncation;

class ZipProviderWriting : public ZipProviderTest {
protected:
    using FileSystem =
        storage::zipprovider::ZipFileSystem<storage::zipprovider::HostItem, storage::zipprovider::HostDevice>;

    /// How often the container was opened for writing, which every rebuild does once.
    std::uint64_t rebuilds() const { return memory->callCount(ProviderOperation::OpenStream) - m_before; }
    void forgetRebuilds() { m_before = memory->callCount(ProviderOperation::OpenStream); }

    void mountSample() {
        mount({{"docs/a.txt", "alpha"}, {"docs/b.txt", "beta"}, {"empty/", ""}});
        forgetRebuilds();
    }

private:
    std::uint64_t m_before = 0;
};

TEST_F(ZipProviderWriting, AnEmptyFileIsAnArchiveThatCanBeWritten) {
    zip.write("/a.txt", "first");
    expectArchive({{"a.txt", "first"}});
    EXPECT_TRUE(temporaryFiles().empty());
}

TEST_F(ZipProviderWriting, AnEntryIsWrittenReplacedAppendedToAndReadBack) {
    mountSample();
    zip.write("/docs/new.txt", "new");
    zip.write("/docs/a.txt", "replaced");
    zip.append("/docs/b.txt", " and more");
    zip.append("/c.txt", "made by appending");
    expectArchive({{"docs/a.txt", "replaced"},
                   {"docs/b.txt", "beta and more"},
                   {"docs/new.txt", "new"},
                   {"c.txt", "made by appending"},
                   {"empty/", ""}});
    EXPECT_EQ(rebuilds(), 4u);
    EXPECT_TRUE(temporaryFiles().empty());
    EXPECT_EQ(memory->openStreamCount(), 0u);
}

TEST_F(ZipProviderWriting, AStreamForReadingAndWritingChangesAFileInPlace) {
    mountSample();
    const auto stream = zip.writer("/docs/a.txt", ByteStreamOpenOptions::modify());
    EXPECT_EQ(readAll(*stream), "alpha");
    EXPECT_EQ(stream->seek(1, SeekOrigin::Begin), 1);
    writeAll(*stream, "LP");
    EXPECT_EQ(stream->seek(0, SeekOrigin::Begin), 0);
    EXPECT_EQ(readAll(*stream), "aLPha");
    stream->close();
    expectArchive({{"docs/a.txt", "aLPha"}, {"docs/b.txt", "beta"}, {"empty/", ""}});
}

TEST_F(ZipProviderWriting, WritingBehindTheEndLeavesZerosBetween) {
    const auto stream = zip.writer("/holes");
    EXPECT_EQ(stream->seek(5, SeekOrigin::Begin), 5);
    writeAll(*stream, "x");
    stream->close();
    expectArchive({{"holes", std::string(5, '\0') + "x"}});
}

TEST_F(ZipProviderWriting, AFileIsCreatedEmpty) {
    mountSample();
    zip.createFile("/docs/new.txt");
    EXPECT_EQ(rebuilds(), 1u);
    EXPECT_EQ(zip.size("/docs/new.txt"), 0u);
    expectArchive({{"docs/a.txt", "alpha"}, {"docs/b.txt", "beta"}, {"docs/new.txt", ""}, {"empty/", ""}});
}

TEST_F(ZipProviderWriting, AFileCreatedWhileAStreamIsOpenIsSavedWithIt) {
    const auto stream = zip.writer("/a");
    zip.createFile("/b");
    EXPECT_EQ(rebuilds(), 0u);
    EXPECT_TRUE(zip.isFile("/b"));
    stream->close();
    EXPECT_EQ(rebuilds(), 1u);
    expectArchive({{"a", ""}, {"b", ""}});
}

TEST_F(ZipProviderWriting, ARequiredFileIsOpenedWhenItIsThere) {
    mountSample();
    const auto stream = zip.writer("/docs/a.txt", {StreamAccess::Write, StreamDisposition::OpenExisting,
                                                   StreamTruncation::Truncate, StreamPositioning::Position});
    writeAll(*stream, "A");
    stream->close();
    EXPECT_EQ(MountedZip(container).read("/docs/a.txt"), "A");
}

TEST_F(ZipProviderWriting, KeptContentsAreOverwrittenFromTheBegin) {
    mountSample();
    const auto stream = zip.writer("/docs/a.txt", {StreamAccess::Write, StreamDisposition::OpenOrCreate,
                                                   StreamTruncation::Keep, StreamPositioning::Position});
    writeAll(*stream, "AL");
    stream->close();
    EXPECT_EQ(MountedZip(container).read("/docs/a.txt"), "ALpha");
}

TEST_F(ZipProviderWriting, ManyBytesComeBackAsTheyWere) {
    const auto random = randomBytes(3'000'000, 7);
    const std::string zeros(5'000'000, '\0');
    const auto stream = zip.writer("/random");
    for (std::size_t at = 0; at < random.size(); at += 4567) {
        writeAll(*stream, std::string_view(random).substr(at, 4567));
    }
    zip.write("/zeros", zeros);
    stream->close();
    expectArchive({{"random", random}, {"zeros", zeros}});
    EXPECT_LT(archive().size(), random.size() + 100'000);
}

TEST_F(ZipProviderWriting, NamesOutsideAsciiAreStoredInUtf8) {
    zip.createFolder("/grüße");
    zip.write("/grüße/日本\xF0\x9F\x98\x80.txt", "text");
    expectArchive({{"grüße/", ""}, {"grüße/日本\xF0\x9F\x98\x80.txt", "text"}});
}

TEST_F(ZipProviderWriting, StreamsThatAreOpenTogetherShareOneWorkingFile) {
    mountSample();
    const auto early = zip.reader("/docs/a.txt");
    const auto writer = zip.writer("/docs/a.txt", ByteStreamOpenOptions::append());
    const auto other = zip.writer("/docs/a.txt", ByteStreamOpenOptions::modify());
    const auto late = zip.reader("/docs/a.txt");
    EXPECT_EQ(temporaryFiles().size(), 1u);
    writeAll(*writer, "+");
    EXPECT_EQ(readAll(*early), "alpha+");
    EXPECT_EQ(readAll(*late), "alpha+");
    writeAll(*other, "A");
    early->seek(0, SeekOrigin::Begin);
    EXPECT_EQ(readAll(*early), "Alpha+");
    EXPECT_EQ(zip.read("/docs/a.txt"), "Alpha+");
    writer->close();
    other->close();
    EXPECT_EQ(MountedZip(container).read("/docs/a.txt"), "Alpha+");
}

TEST_F(ZipProviderWriting, TheSizeOfAFileGrowsWhileItIsWrittenAndIsTheStoredOneAfterwards) {
    mountSample();
    const auto stream = zip.writer("/docs/new.txt");
    EXPECT_EQ(zip.size("/docs/new.txt"), 0u);
    writeAll(*stream, "1234");
    EXPECT_EQ(zip.size("/docs/new.txt"), 4u);
    writeAll(*stream, "5678");
    EXPECT_EQ(zip.size("/docs/new.txt"), 8u);
    stream->close();
    EXPECT_EQ(zip.size("/docs/new.txt"), 8u);
    EXPECT_EQ(MountedZip(container).size("/docs/new.txt"), 8u);
}

TEST_F(ZipProviderWriting, ATruncatedFileHasNoBytesFromTheMomentItIsOpened) {
    mountSample();
    const auto stream = zip.writer("/docs/a.txt");
    EXPECT_EQ(zip.size("/docs/a.txt"), 0u);
    EXPECT_EQ(zip.read("/docs/a.txt"), "");
    stream->close();
    EXPECT_EQ(MountedZip(container).size("/docs/a.txt"), 0u);
}

TEST_F(ZipProviderWriting, OfTwoWritableStreamsTheLastToCloseSavesOnce) {
    mountSample();
    const auto before = archive();
    const auto one = zip.writer("/one");
    const auto two = zip.writer("/two");
    writeAll(*one, "1");
    writeAll(*two, "2");
    one->close();
    EXPECT_EQ(rebuilds(), 0u);
    EXPECT_EQ(archive(), before);
    two->close();
    EXPECT_EQ(rebuilds(), 1u);
    expectArchive(
        {{"docs/a.txt", "alpha"}, {"docs/b.txt", "beta"}, {"empty/", ""}, {"one", "1"}, {"two", "2"}});
}

TEST_F(ZipProviderWriting, ClosingTwiceCountsOnce) {
    mountSample();
    const auto one = zip.writer("/one");
    const auto two = zip.writer("/two");
    one->close();
    one->close();
    EXPECT_EQ(rebuilds(), 0u);
    two->close();
    EXPECT_EQ(rebuilds(), 1u);
    two->close();
    EXPECT_EQ(rebuilds(), 1u);
    zip.createFolder("/three");
    EXPECT_EQ(rebuilds(), 2u);
}

TEST_F(ZipProviderWriting, ClosingAReadStreamNeverSaves) {
    mountSample();
    const auto writer = zip.writer("/one");
    zip.reader("/docs/a.txt")->close();
    zip.reader("/one")->close();
    EXPECT_EQ(rebuilds(), 0u);
    writer->close();
    zip.reader("/docs/a.txt")->close();
    EXPECT_EQ(rebuilds(), 1u);
}

TEST_F(ZipProviderWriting, OpeningForWritingAndClosingWithoutAWordStillSaves) {
    mountSample();
    zip.writer("/docs/a.txt", ByteStreamOpenOptions::modify())->close();
    EXPECT_EQ(rebuilds(), 1u);
    expectArchive({{"docs/a.txt", "alpha"}, {"docs/b.txt", "beta"}, {"empty/", ""}});
    // Written from its working file, the entry stands behind those that were carried over.
    EXPECT_EQ(storedNames(archive()), (std::vector<std::string>{"docs/b.txt", "empty/", "docs/a.txt"}));
}

TEST_F(ZipProviderWriting, AfterTheSaveANewStreamReadsTheSavedContents) {
    mountSample();
    zip.write("/docs/a.txt", "changed");
    EXPECT_TRUE(temporaryFiles().empty());
    EXPECT_EQ(zip.read("/docs/a.txt"), "changed");
}

TEST_F(ZipProviderWriting, AReaderKeepsItsWorkingFileOverTheSave) {
    mountSample();
    auto reader = zip.reader("/docs/a.txt");
    zip.write("/docs/a.txt", "changed");
    EXPECT_EQ(temporaryFiles().size(), 1u);
    EXPECT_EQ(readAll(*reader), "changed");
    zip.write("/docs/a.txt", "changed again");
    EXPECT_EQ(zip.read("/docs/a.txt"), "changed again");
    reader.reset();
    EXPECT_TRUE(temporaryFiles().empty());
}

TEST_F(ZipProviderWriting, EntriesAreCarriedOverThenWrittenThenMadeEachInPathOrder) {
    mount({{"z", "1"}, {"b/y", "2"}, {"b.txt", "3"}, {"a", "4"}});
    const auto hold = zip.writer("/hold");
    zip.createFolder("/m");
    zip.createFolder("/b/f");
    zip.write("/c", "5");
    zip.write("/b/x", "6");
    hold->close();
    EXPECT_EQ(storedNames(archive()),
              (std::vector<std::string>{"a", "b.txt", "b/y", "z", "b/x", "c", "hold", "b/f/", "m/"}));
}

TEST_F(ZipProviderWriting, EveryEntryIsDeflatedWhateverItWas) {
    ArchiveBuilder builder;
    builder.add("stored", "bytes as they stand");
    builder.last().method = Method::Stored;
    builder.add("described", "with a data descriptor");
    builder.last().descriptor = DataDescriptor::WithSignature;
    mount(builder.build());
    zip.createFolder("/folder");
    expectArchive(
        {{"stored", "bytes as they stand"}, {"described", "with a data descriptor"}, {"folder/", ""}});
    for (const auto& entry : seenEntries(archive())) {
        EXPECT_EQ(entry.method, 8) << entry.name;
        EXPECT_EQ(entry.flags & (flag::encrypted | flag::utf8Name | flag::dataDescriptor), 0) << entry.name;
    }
}

TEST_F(ZipProviderWriting, AStoredNameThatBeginsWithASlashKeepsIt) {
    mount({{"/absolute/f", "1"}, {"relative", "2"}});
    zip.createFolder("/new");
    EXPECT_EQ(storedNames(archive()), (std::vector<std::string>{"/absolute/f", "relative", "new/"}));
    zip.append("/absolute/f", "+");
    EXPECT_EQ(storedNames(archive()), (std::vector<std::string>{"new/", "relative", "absolute/f"}));
    EXPECT_EQ(zip.read("/absolute/f"), "1+");
}

TEST_F(ZipProviderWriting, OfTwoEntriesOfOneNameTheFirstIsKept) {
    mount({{"twice", "first"}, {"twice", "second, longer"}, {"a//b", "3"}, {"a/b", "4"}});
    EXPECT_EQ(zip.read("/twice"), "first");
    EXPECT_EQ(zip.read("/a/b"), "3");
    zip.createFolder("/new");
    expectArchive({{"twice", "first"}, {"a/b", "3"}, {"new/", ""}});
}

TEST_F(ZipProviderWriting, AnExplicitFlushWithoutAChangeWritesNothing) {
    mountSample();
    const auto before = archive();
    const auto files = std::make_shared<const FileSystem>(container);
    files->flushContents();
    EXPECT_EQ(rebuilds(), 0u);
    EXPECT_EQ(archive(), before);
    files->createFolder(storage::zipprovider::ZipEntryPath(u"/new"));
    EXPECT_EQ(rebuilds(), 1u);
    files->flushContents();
    EXPECT_EQ(rebuilds(), 1u);
}

TEST_F(ZipProviderWriting, AnExplicitFlushWhileAStreamIsOpenLosesNothingThatIsWrittenLater) {
    const auto files = std::make_shared<const FileSystem>(container);
    const storage::zipprovider::ZipEntryPath path(u"/a");
    auto stream = files->checkOutEntry(path, ByteStreamOpenOptions{});
    writeAll(*stream, "before");
    files->flushContents();
    EXPECT_EQ(MountedZip(container).read("/a"), "before");
    writeAll(*stream, " after");
    EXPECT_EQ(readAll(*files->checkOutEntry(path)), "before after");
    stream->close();
    EXPECT_EQ(MountedZip(container).read("/a"), "before after");
    stream.reset();
    EXPECT_TRUE(temporaryFiles().empty());
}

TEST_F(ZipProviderWriting, AnExplicitFlushBetweenOpeningAndMovingFollowsTheStream) {
    const auto files = std::make_shared<const FileSystem>(container);
    const storage::zipprovider::ZipEntryPath a(u"/a");
    const storage::zipprovider::ZipEntryPath b(u"/b");
    const auto stream = files->checkOutEntry(a, ByteStreamOpenOptions{});
    writeAll(*stream, "1");
    files->flushContents();
    files->moveFile(a, b, MoveOption::FailIfExists);
    writeAll(*stream, "2");
    stream->close();
    EXPECT_EQ(MountedZip(container).tree(), (Contents{{"b", "12"}}));
}

TEST_F(ZipProviderWriting, AProviderThatIsDestroyedSavesWhatIsWrittenAndItsStreamsGoOn) {
    mountSample();
    auto stream = zip.writer("/late");
    writeAll(*stream, "early");
    zip.createFolder("/made");
    zip.unmount();
    EXPECT_EQ(archiveProblems(archive(), {{"docs/a.txt", "alpha"},
                                          {"docs/b.txt", "beta"},
                                          {"empty/", ""},
                                          {"late", "early"},
                                          {"made/", ""}}),
              "");
    writeAll(*stream, " and late");
    stream->close();
    stream.reset();
    zip.remount();
    expectArchive({{"docs/a.txt", "alpha"},
                   {"docs/b.txt", "beta"},
                   {"empty/", ""},
                   {"late", "early and late"},
                   {"made/", ""}});
    EXPECT_TRUE(temporaryFiles().empty());
}

TEST_F(ZipProviderWriting, DestroyingAProviderWithoutChangesWritesNothing) {
    mountSample();
    zip.read("/docs/a.txt");
    zip.unmount();
    EXPECT_EQ(rebuilds(), 0u);
}

TEST_F(ZipProviderWriting, AProviderIsFlushedByAHostThatWantsToKnowWhetherItWorks) {
    mountSample();
    const auto flush = [&] {
        auto* flushable = dynamic_cast<foundation::storage::provider::IFlushable*>(&zip.provider());
        ASSERT_NE(flushable, nullptr);
        flushable->flush();
    };
    const auto calls = memory->callCount(ProviderOperation::OpenReadStream);
    flush();
    EXPECT_EQ(memory->callCount(ProviderOperation::OpenReadStream), calls);
    zip.list();
    flush();
    EXPECT_EQ(rebuilds(), 0u);
    const auto stream = zip.writer("/late");
    writeAll(*stream, "early");
    flush();
    EXPECT_EQ(rebuilds(), 1u);
    EXPECT_EQ(MountedZip(container).read("/late"), "early");
    writeAll(*stream, " and late");
    {
        const ScopedVariable nowhere("TMPDIR", "/proc");
        EXPECT_ANY_THROW(stream->close());
        EXPECT_ANY_THROW(flush());
    }
    flush();
    EXPECT_EQ(MountedZip(container).read("/late"), "early and late");
}

TEST_F(ZipProviderWriting, WorkingFilesAndArchivesAreNamedAfterTheProvider) {
    mountSample();
    const auto reader = zip.reader("/docs/a.txt");
    const auto name = temporaryFiles().at(0);
    EXPECT_TRUE(name.starts_with("zipProvider-") && name.ends_with(".cache")) << name;
}

} // namespace

} // namespace kx::test
