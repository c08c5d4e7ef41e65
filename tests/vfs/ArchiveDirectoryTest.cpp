#include "Fixture.h"

#include <storage/vfs/ArchiveDirectory.h>
#include <support/InMemoryProvider.h>
#include <support/archives/ArchiveShapes.h>

#include <vector>

using namespace kx::test;
using namespace storage::vfs;

namespace {

struct Looked {
    ArchiveSummary summary;
    std::vector<ArchiveEntryRecord> entries;
};

Looked look(const std::string& bytes) {
    InMemoryProvider memory;
    const auto file = memory.at(u"/a.zip");
    writeFile(memory, file, bytes);
    Looked looked;
    looked.summary =
        readArchiveDirectory(*memory.openReadStream(file),
                             [&](const ArchiveEntryRecord& record) { looked.entries.push_back(record); });
    return looked;
}

ArchiveBuilder twoEntries() {
    ArchiveBuilder builder;
    builder.add("docs/").add("docs/a.txt", "text");
    return builder;
}

void expectDamaged(const ArchiveBuilder& builder, const std::string& part) {
    const auto looked = look(builder.build());
    EXPECT_EQ(looked.summary.condition, ArchiveCondition::Damaged);
    EXPECT_NE(looked.summary.cause.find(part), std::string::npos) << looked.summary.cause;
}

} // namespace

TEST(ArchiveDirectory, AFileWithoutBytesIsAnEmptyArchive) {
    const auto looked = look("");
    EXPECT_EQ(looked.summary.condition, ArchiveCondition::Empty);
    EXPECT_EQ(looked.summary.declaredEntries, 0U);
}

TEST(ArchiveDirectory, AnEndRecordAloneIsASoundArchiveWithoutEntries) {
    const auto looked = look(ArchiveBuilder().build());
    EXPECT_EQ(looked.summary.condition, ArchiveCondition::Sound);
    EXPECT_EQ(looked.summary.entries, 0U);
}

TEST(ArchiveDirectory, HeadersComeInTheirOrderWithTheirFields) {
    auto builder = twoEntries();
    builder.last().modified = DosTime::of(2021, 3, 4, 5, 6, 8);
    const auto looked = look(builder.build());
    EXPECT_EQ(looked.summary.condition, ArchiveCondition::Sound) << looked.summary.cause;
    EXPECT_EQ(looked.summary.declaredEntries, 2U);
    ASSERT_EQ(looked.entries.size(), 2U);
    EXPECT_EQ(looked.entries[0].name, "docs/");
    EXPECT_TRUE(looked.entries[0].isFolder());
    const auto& file = looked.entries[1];
    EXPECT_EQ(file.path(), u"/docs/a.txt");
    EXPECT_EQ(file.size, 4U);
    EXPECT_EQ(file.method, 8);
    EXPECT_EQ(file.crc32, crc32Of("text"));
    EXPECT_EQ((DosTime{file.dosDate, file.dosTime}), DosTime::of(2021, 3, 4, 5, 6, 8));
    EXPECT_TRUE(file.hasValidDate());
}

TEST(ArchiveDirectory, HeadersTellWhereTheirEntriesBegin) {
    ArchiveBuilder builder;
    builder.add("docs/").add("docs/a.txt", "text").add("docs/b.txt", "more");
    builder.last().zip64 = true;
    builder.leading("junk");
    ArchiveLayout layout;
    const auto bytes = builder.build(&layout);
    const auto looked = look(bytes);
    ASSERT_EQ(looked.entries.size(), 3U);
    EXPECT_EQ(looked.summary.leadingBytes, 4U);
    for (std::size_t i = 0; i < 3; ++i)
        EXPECT_EQ(looked.entries[i].localHeader + 4, layout.localHeaders[i]) << i;
}

TEST(ArchiveDirectory, FilesThatAreSomethingElseAreNoArchives) {
    EXPECT_EQ(look("hello").summary.condition, ArchiveCondition::NotAnArchive);
    EXPECT_EQ(look("PK").summary.condition, ArchiveCondition::NotAnArchive);
    EXPECT_EQ(look(randomBytes(100'000, 1)).summary.condition, ArchiveCondition::NotAnArchive);
}

TEST(ArchiveDirectory, AnArchiveWhoseEndIsMissingIsNoArchive) {
    auto builder = twoEntries();
    builder.end().omitEnd = true;
    EXPECT_EQ(look(builder.build()).summary.condition, ArchiveCondition::NotAnArchive);
}

TEST(ArchiveDirectory, AnEndRecordThatIsCutOffIsDamage) {
    const auto bytes = twoEntries().build();
    for (std::size_t kept = 4; kept < 22; ++kept) {
        const auto looked = look(bytes.substr(0, bytes.size() - 22 + kept));
        EXPECT_EQ(looked.summary.condition, ArchiveCondition::Damaged) << kept;
        EXPECT_NE(looked.summary.cause.find("cut off"), std::string::npos) << looked.summary.cause;
    }
}

TEST(ArchiveDirectory, MoreDeclaredThanStoredEntriesAreDamage) {
    auto builder = twoEntries();
    builder.end().entries = 3;
    builder.end().entriesOnDisk = 3;
    expectDamaged(builder, "declares 3 entries, the central directory holds 2");
}

TEST(ArchiveDirectory, FewerDeclaredThanStoredEntriesAreDamage) {
    auto builder = twoEntries();
    builder.end().entries = 1;
    builder.end().entriesOnDisk = 1;
    const auto looked = look(builder.build());
    EXPECT_EQ(looked.summary.condition, ArchiveCondition::Damaged);
    EXPECT_EQ(looked.summary.cause, "the end record declares 1 entries, the central directory holds more");
    EXPECT_EQ(looked.entries.size(), 1U);
}

TEST(ArchiveDirectory, AZip64LocatorOfSeveralDisksIsDamage) {
    for (const std::size_t place : {4U, 16U}) {
        auto builder = twoEntries();
        builder.end().zip64 = true;
        auto bytes = builder.build();
        ++bytes[bytes.size() - 42 + place];
        EXPECT_EQ(look(bytes).summary.condition, ArchiveCondition::Damaged) << place;
    }
}

TEST(ArchiveDirectory, WhatPrecedesABrokenHeaderIsStillRead) {
    auto builder = twoEntries();
    builder.add("b.txt", "b");
    builder.entry(1).central.signature = 0;
    const auto looked = look(builder.build());
    EXPECT_EQ(looked.summary.condition, ArchiveCondition::Damaged);
    ASSERT_EQ(looked.entries.size(), 1U);
    EXPECT_EQ(looked.entries[0].name, "docs/");
}

TEST(ArchiveDirectory, NamesThatReachBeyondTheEndRecordAreDamage) {
    auto builder = twoEntries();
    builder.entry(1).central.nameLength = 0xffff;
    expectDamaged(builder, "declares 2 entries, the central directory holds 1");
}

TEST(ArchiveDirectory, ADirectoryBeyondTheEndRecordIsDamage) {
    auto builder = twoEntries();
    builder.end().directoryOffset = 0x7fffffff;
    expectDamaged(builder, "beyond itself");
}

TEST(ArchiveDirectory, ADirectoryWithoutDeclaredEntriesIsDamage) {
    auto builder = twoEntries();
    builder.end().entries = 0;
    builder.end().entriesOnDisk = 0;
    expectDamaged(builder, "declares no entries");
}

TEST(ArchiveDirectory, OnePartOfSeveralIsDamage) {
    auto builder = twoEntries();
    builder.end().diskNumber = 1;
    expectDamaged(builder, "several parts");
}

TEST(ArchiveDirectory, BytesInFrontAndACommentBehindAreNoDamage) {
    auto builder = twoEntries();
    builder.leading("#!/bin/sh\nexit 0\n");
    builder.end().comment = std::string(60'000, 'c');
    const auto looked = look(builder.build());
    EXPECT_EQ(looked.summary.condition, ArchiveCondition::Sound) << looked.summary.cause;
    EXPECT_EQ(looked.summary.leadingBytes, 17U);
    EXPECT_EQ(looked.entries.size(), 2U);
}

TEST(ArchiveDirectory, Zip64RecordsAndSizesAreRead) {
    auto builder = twoEntries();
    builder.last().zip64 = true;
    builder.end().zip64 = true;
    const auto looked = look(builder.build());
    EXPECT_EQ(looked.summary.condition, ArchiveCondition::Sound) << looked.summary.cause;
    ASSERT_EQ(looked.entries.size(), 2U);
    EXPECT_EQ(looked.entries[1].size, 4U);
}

TEST(ArchiveDirectory, ManyEntriesAreCounted) {
    const auto looked = look(wideArchive(100, 700));
    EXPECT_EQ(looked.summary.condition, ArchiveCondition::Sound) << looked.summary.cause;
    EXPECT_EQ(looked.summary.entries, 70'000U);
}

TEST(ArchiveDirectory, ImpossibleDatesAreTold) {
    auto builder = twoEntries();
    builder.entry(0).modified = DosTime{0, 0};
    builder.entry(1).modified = DosTime{static_cast<std::uint16_t>((41 << 9) | (2 << 5) | 30), 0};
    const auto looked = look(builder.build());
    ASSERT_EQ(looked.entries.size(), 2U);
    EXPECT_FALSE(looked.entries[0].hasValidDate());
    EXPECT_FALSE(looked.entries[1].hasValidDate()) << "a 30th of February";
}

TEST(ArchiveDirectory, PathsAreNormalisedAndDecoded) {
    ArchiveBuilder builder;
    builder.add("/abs//x", "1").add("\xc3\xbc", "2").add("//", "3");
    const auto looked = look(builder.build());
    ASSERT_EQ(looked.entries.size(), 3U);
    EXPECT_EQ(looked.entries[0].path(), u"/abs/x");
    EXPECT_EQ(looked.entries[1].path(), u"/ü");
    EXPECT_EQ(looked.entries[2].path(), u"");
}

TEST(ArchiveDirectory, NoSingleWrongByteInTheRecordsBreaksTheReader) {
    const auto bytes = twoEntries().build();
    for (std::size_t at = 0; at < bytes.size(); ++at)
        for (const char value : {'\0', '\xff', '\x7f'}) {
            auto broken = bytes;
            broken[at] = value;
            const auto looked = look(broken);
            EXPECT_LE(looked.entries.size(), looked.summary.declaredEntries);
        }
}
