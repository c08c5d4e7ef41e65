#include "ReadFailures.h"

#include <support/archives/ArchiveShapes.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>

namespace {

using namespace kx::test;
using namespace storage::zipprovider;

// Archives with sizes, places or a number of entries in Zip64 records, for each of the classes that read
// them.

TEST(Enumerator, ReadsSizesBeyondFourGigabytes) {
    ArchiveEntry entry;
    entry.name = "big";
    entry.zip64 = true;
    entry.rawData = "";
    entry.crc32 = 0;
    entry.uncompressedSize = std::uint64_t{5} << 32;
    EXPECT_EQ(entriesOf(archiveOf(entry)).at(0).size, std::uint64_t{5} << 32);
}

TEST(Enumerator, TakesSizesFromAZip64FieldOnlyWhereTheHeaderHasNone) {
    ArchiveEntry entry;
    entry.name = "a";
    entry.content = "text";
    entry.centralExtra = extraField(0x0001, std::string(24, '\x11'));
    EXPECT_EQ(entriesOf(archiveOf(entry)).at(0).size, 4u);
    entry.centralExtra.clear();
    entry.central.uncompressedSize = 0xFFFFFFFF;
    EXPECT_EQ(entriesOf(archiveOf(entry)).at(0).size, 0xFFFFFFFFu);
    entry.centralExtra = extraField(0x0001, std::string("\x05\0\0\0\x01\0\0\0", 8));
    EXPECT_EQ(entriesOf(archiveOf(entry)).at(0).size, 0x100000005u);
}

TEST(Enumerator, TakesNoSizeFromAZip64FieldThatIsTooShort) {
    ArchiveEntry entry;
    entry.name = "a";
    entry.content = "text";
    entry.central.uncompressedSize = 0xFFFFFFFF;
    const std::string shortBlocks[] = {"", std::string("\x01\0\x18\0", 4), std::string("\x01\0\x04\0zzzz", 8),
                                       "\x01", "\xFF\xFF\xFF\xFF"};
    for (const auto& block : shortBlocks) {
        entry.centralExtra = block;
        EXPECT_EQ(entriesOf(archiveOf(entry)).at(0).size, 0xFFFFFFFFu);
    }
}

TEST(EntryInfos, NoticeACountThatHasWrappedAround) {
    ArchiveBuilder builder;
    for (int i = 0; i < 65'539; ++i) {
        builder.add(std::to_string(i));
        builder.last().method = Method::Stored;
    }
    builder.end().entries = 3;
    builder.end().entriesOnDisk = 3;
    // As a writer that knows nothing of Zip64 has it.
    builder.end().directorySize = 0;
    builder.end().directoryOffset = 0;
    ArchiveLayout layout;
    builder.build(&layout);
    builder.end().directorySize = static_cast<std::uint32_t>(layout.zip64EndRecord - layout.centralDirectory);
    builder.end().directoryOffset = static_cast<std::uint32_t>(layout.centralDirectory);
    auto archive = builder.build();
    archive.erase(layout.zip64EndRecord, layout.endRecord - layout.zip64EndRecord);
    const EntryInfos infos(openArchive(std::move(archive)));
    EXPECT_EQ(infos.size(), 3u);
    EXPECT_TRUE(infos.hasUndeclaredEntries());
    EXPECT_FALSE(infos.isComplete());
}

TEST(EntryInfos, ReadMoreThan65535EntriesOfAZip64Archive) {
    const EntryInfos infos(openArchive(wideArchive(70, 1000)));
    EXPECT_EQ(infos.size(), 70'000u);
    EXPECT_TRUE(infos.isComplete());
}

/// An archive whose entries have sizes and places in Zip64 extra fields.
ArchiveBuilder zip64Archive() {
    ArchiveBuilder builder;
    builder.add("deflated", std::string(100'000, 'd'));
    builder.add("stored", "stored bytes");
    builder.last().method = Method::Stored;
    builder.add("empty", "");
    builder.add("descriptor", "with a data descriptor");
    builder.last().descriptor = DataDescriptor::WithSignature;
    builder.add("other fields", "with extra fields of other kinds");
    builder.last().centralExtra = timestampField(1) + extraField(0x4711, "abc");
    builder.last().localExtra = extraField(0x4711, "abcdef");
    for (std::size_t i = 0; i < 5; ++i) {
        builder.entry(i).zip64 = true;
    }
    builder.add("plain", "without Zip64");
    return builder;
}

TEST(EntrySource, DeliversEntriesWhoseSizesAndPlacesAreInZip64Fields) {
    for (const bool withStub : {false, true}) {
        auto builder = zip64Archive();
        if (withStub) {
            builder.leading("a stub that the places count", true);
        }
        const auto archive = builder.build();
        EXPECT_EQ(contents(archive, u"deflated"), std::string(100'000, 'd'));
        EXPECT_EQ(contents(archive, u"stored"), "stored bytes");
        EXPECT_EQ(contents(archive, u"empty"), "");
        EXPECT_EQ(contents(archive, u"descriptor"), "with a data descriptor");
        EXPECT_EQ(contents(archive, u"other fields"), "with extra fields of other kinds");
        EXPECT_EQ(contents(archive, u"plain"), "without Zip64");
    }
}

TEST(EntrySource, OfAZip64EntryBehindAStubThatThePlacesDoNotCountFailsToOpen) {
    const auto archive = zip64Archive().leading("stub").build();
    EXPECT_EQ(failureOfOpening(archive, u"deflated"), openFailed);
    EXPECT_EQ(contents(archive, u"plain"), "without Zip64");
}

TEST(EntrySource, OfADamagedZip64EntryFailsToOpenOrToRead) {
    const auto damaged = [](auto damage) {
        ArchiveEntry entry;
        entry.name = "a";
        entry.content = std::string(1000, 'x') + "end";
        entry.zip64 = true;
        damage(entry);
        return archiveOf(entry);
    };
    // The first block of that kind counts.
    const auto withBlock = [&](std::string_view block) {
        return damaged([&](ArchiveEntry& entry) { entry.centralExtra = extraField(0x0001, block); });
    };
    EXPECT_EQ(failureOfOpening(withBlock(""), u"a"), openFailed);
    EXPECT_EQ(failureOfOpening(withBlock(std::string(16, '\1')), u"a"), openFailed);
    EXPECT_EQ(failureOfOpening(withBlock(std::string(24, '\xFF')), u"a"), openFailed);
    EXPECT_EQ(failureOfOpening(withBlock(std::string(24, '\x7F')), u"a"), openFailed);
    EXPECT_EQ(failureOfOpening(damaged([](auto& entry) { entry.local.signature = 1; }), u"a"), openFailed);
    EXPECT_EQ(failureOfOpening(damaged([](auto& entry) { entry.local.method = 0; }), u"a"), openFailed);
    const auto unreadable = [](const std::string& archive) {
        EntrySource source(openArchive(archive), ZipEntryPath(u"a"));
        return failureOf([&] { contentsOf(source); });
    };
    EXPECT_EQ(unreadable(damaged([](auto& entry) { entry.rawData = std::string(50, '\xFF'); })), readFailed);
    EXPECT_EQ(unreadable(damaged([](auto& entry) { entry.rawData = rawDeflate("short"); })), readFailed);
    EXPECT_EQ(unreadable(damaged([](auto& entry) { entry.rawData = ""; })), readFailed);
}

} // namespace
