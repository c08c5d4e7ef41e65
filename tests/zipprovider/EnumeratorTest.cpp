#include "ReadFailures.h"

#include <support/archives/ArchiveShapes.h>

#include <boost/date_time/posix_time/posix_time.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace kx::test;
using namespace storage::zipprovider;

TEST(Enumerator, OfAnArchiveWithNoEntriesYieldsNothingAndNoError) {
    Enumerator enumerator(openArchive(ArchiveBuilder().build()));
    EXPECT_FALSE(enumerator.next().has_value());
    EXPECT_FALSE(enumerator.next().has_value());
}

TEST(Enumerator, YieldsTheEntriesInDirectoryOrderWithTheirOrdinals) {
    const auto entries = entriesOf(simpleArchive({{"z", "1"}, {"a/", ""}, {"m", "22"}}));
    ASSERT_EQ(entries.size(), 3u);
    EXPECT_EQ(entries[0].path, ZipEntryPath(u"z"));
    EXPECT_EQ(entries[1].path, ZipEntryPath(u"a"));
    EXPECT_EQ(entries[2].path, ZipEntryPath(u"m"));
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(entries[i].index, i);
    }
    EXPECT_EQ(entries[2].size, 2u);
    EXPECT_EQ(entries[1].size, 0u);
}

TEST(Enumerator, ANameThatEndsInASlashIsAFolderAndTheSameNameWithoutItAFile) {
    const auto entries = entriesOf(simpleArchive({{"docs/", ""}, {"docs", ""}}));
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].type, ZipEntryType::Folder);
    EXPECT_EQ(entries[1].type, ZipEntryType::File);
    EXPECT_EQ(entries[0].path, entries[1].path);
}

TEST(Enumerator, TellsAFolderByItsNameAloneWhateverItsSizeOrAttributes) {
    ArchiveEntry entry;
    entry.name = "odd/";
    entry.content = "a folder with bytes";
    const auto entries = entriesOf(archiveOf(entry));
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].type, ZipEntryType::Folder);
    EXPECT_EQ(entries[0].size, 19u);
    entry.name = "directory-by-attribute";
    entry.externalAttributes = 0x10;
    EXPECT_EQ(entriesOf(archiveOf(entry)).at(0).type, ZipEntryType::File);
}

TEST(Enumerator, TakesTheDosTimeAsItStands) {
    ArchiveEntry entry;
    entry.name = "a";
    entry.modified = DosTime::of(2021, 12, 31, 23, 59, 58);
    const boost::posix_time::ptime expected(boost::gregorian::date(2021, 12, 31),
                                            boost::posix_time::time_duration(23, 59, 58));
    EXPECT_EQ(entriesOf(archiveOf(entry)).at(0).lastModified, expected);
    entry.modified = DosTime::of(1980, 1, 1);
    EXPECT_EQ(entriesOf(archiveOf(entry)).at(0).lastModified,
              boost::posix_time::ptime(boost::gregorian::date(1980, 1, 1)));
    entry.modified = DosTime::of(2107, 2, 28, 1, 2, 4);
    EXPECT_EQ(entriesOf(archiveOf(entry)).at(0).lastModified.date(), boost::gregorian::date(2107, 2, 28));
}

TEST(Enumerator, AnEntryStampedWithDosDateZeroFailsTheEnumerationWithACalendarError) {
    ArchiveEntry entry;
    entry.name = "a";
    entry.modified = {0, 0};
    EXPECT_THROW(entriesOf(archiveOf(entry)), std::out_of_range);
}

TEST(Enumerator, EveryKindOfImpossibleDateIsItsOwnCalendarError) {
    const auto failure = [](std::uint16_t date) -> std::string {
        ArchiveEntry entry;
        entry.name = "a";
        entry.modified = {date, 0};
        try {
            entriesOf(archiveOf(entry));
        } catch (const std::out_of_range& error) {
            return error.what();
        }
        return {};
    };
    const auto date = [](unsigned year, unsigned month, unsigned day) {
        return static_cast<std::uint16_t>((year - 1980) << 9 | month << 5 | day);
    };
    EXPECT_THAT(failure(date(2020, 13, 1)), testing::HasSubstr("Month number is out of range 1..12"));
    EXPECT_THAT(failure(date(2020, 15, 1)), testing::HasSubstr("Month number is out of range 1..12"));
    EXPECT_THAT(failure(date(2020, 1, 0)), testing::HasSubstr("Day of month value is out of range 1..31"));
    EXPECT_THAT(failure(date(2021, 2, 29)), testing::HasSubstr("Day of month is not valid for year"));
    EXPECT_THAT(failure(date(2021, 4, 31)), testing::HasSubstr("Day of month is not valid for year"));
    EXPECT_EQ(failure(date(2020, 2, 29)), "");
}

TEST(Enumerator, ReleasesItsLockWhenAnEntryFailsAndGoesOnBehindIt) {
    ArchiveBuilder builder;
    builder.add("bad", "1");
    builder.last().modified = {0, 0};
    builder.add("good", "2");
    Enumerator enumerator(openArchive(builder.build()));
    EXPECT_THROW(enumerator.next(), std::out_of_range);
    const auto good = enumerator.next();
    ASSERT_TRUE(good.has_value());
    EXPECT_EQ(good->path, ZipEntryPath(u"good"));
    EXPECT_EQ(good->index, 1u);
    EXPECT_FALSE(enumerator.next().has_value());
}

TEST(Enumerator, DecodesANameWithTheUtf8FlagAsUtf8) {
    ArchiveEntry entry;
    entry.name = "gr\xC3\xBC\xC3\x9F/\xF0\x9F\x98\x80.txt";
    entry.flags = flag::utf8Name;
    EXPECT_EQ(entriesOf(archiveOf(entry)).at(0).path, ZipEntryPath(u"gr\u00FC\u00DF/\U0001F600.txt"));
}

TEST(Enumerator, ReplacesWhatIsNoUtf8InANameThatSaysSo) {
    ArchiveEntry entry;
    entry.name = "caf\xE9.txt";
    entry.flags = flag::utf8Name;
    EXPECT_EQ(entriesOf(archiveOf(entry)).at(0).path, ZipEntryPath(u"caf\uFFFD.txt"));
}

TEST(Enumerator, TestsTheSlashOnTheRawBytesNotOnTheDecodedName) {
    // The last byte of the second name belongs to a sequence that was cut off.
    ArchiveEntry entry;
    entry.name = "d/";
    entry.flags = flag::utf8Name;
    EXPECT_EQ(entriesOf(archiveOf(entry)).at(0).type, ZipEntryType::Folder);
    entry.name = "d/\xC3";
    EXPECT_EQ(entriesOf(archiveOf(entry)).at(0).type, ZipEntryType::File);
}

TEST(Enumerator, ReadsLongNamesAndNamesWithANulWhole) {
    const std::string longName(60'000, 'n');
    const std::string nulName("a\0b", 3);
    const auto entries = entriesOf(simpleArchive({{longName, ""}, {nulName, ""}}));
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].path.fileName().size(), longName.size());
    EXPECT_EQ(entries[1].path.fileName(), std::u16string(u"a\0b", 3));
}

TEST(Enumerator, EndsSilentlyWhereTheDirectoryIsBroken) {
    ArchiveBuilder builder;
    builder.add("a", "1").add("b", "2").add("c", "3");
    builder.entry(1).central.signature = 0x12345678;
    const auto handle = openArchive(builder.build());
    const EntryInfos infos(handle);
    EXPECT_EQ(infos.size(), 1u);
    EXPECT_EQ(infos.declaredCount(), 3u);
    EXPECT_FALSE(infos.isComplete());
}

TEST(Enumerator, GivesEachEntryToExactlyOneOfSeveralThreads) {
    Enumerator enumerator(openArchive(wideArchive(10, 100)));
    std::vector<std::vector<std::uint64_t>> seen(3);
    std::vector<std::thread> threads;
    for (auto& mine : seen) {
        threads.emplace_back([&] {
            while (const auto info = enumerator.next()) {
                mine.push_back(info->index);
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    std::vector<bool> found(1000);
    for (const auto& mine : seen) {
        for (const auto index : mine) {
            ASSERT_LT(index, found.size());
            EXPECT_FALSE(found[index]);
            found[index] = true;
        }
    }
    EXPECT_EQ(std::count(found.begin(), found.end(), true), 1000);
}

TEST(EntryInfos, HoldEveryEntryOfTheDirectory) {
    const EntryInfos infos(openArchive(simpleArchive({{"a", "1"}, {"b/", ""}})));
    EXPECT_EQ(infos.size(), 2u);
    EXPECT_EQ(infos.declaredCount(), 2u);
    EXPECT_TRUE(infos.isComplete());
    EXPECT_FALSE(infos.hasUndeclaredEntries());
}

TEST(EntryInfos, OfAnEmptyArchiveAreEmptyAndComplete) {
    const EntryInfos infos(openArchive(ArchiveBuilder().build()));
    EXPECT_EQ(infos.size(), 0u);
    EXPECT_TRUE(infos.isComplete());
}

TEST(EntryInfos, RefuseAnEntryWithoutANameAndAreIncompleteThen) {
    const EntryInfos infos(openArchive(simpleArchive({{"a", "1"}, {"", "nameless"}, {"b", "2"}})));
    ASSERT_EQ(infos.size(), 2u);
    EXPECT_EQ(infos.begin()->path, ZipEntryPath(u"a"));
    EXPECT_EQ(std::next(infos.begin())->path, ZipEntryPath(u"b"));
    EXPECT_EQ(std::next(infos.begin())->index, 2u);
    EXPECT_FALSE(infos.isComplete());
}

TEST(EntryInfos, NoticeThatMoreEntriesFollowThanTheEndRecordDeclares) {
    ArchiveBuilder builder;
    builder.add("a", "1").add("b", "2").add("c", "3");
    builder.entry(1).centralExtra = extraField(0x5455, "x");
    builder.entry(1).comment = "of the last one that is declared";
    builder.end().entries = 2;
    builder.end().entriesOnDisk = 2;
    const EntryInfos infos(openArchive(builder.build()));
    EXPECT_EQ(infos.size(), 2u);
    EXPECT_EQ(infos.declaredCount(), 2u);
    EXPECT_TRUE(infos.hasUndeclaredEntries());
    EXPECT_FALSE(infos.isComplete());
}

} // namespace
