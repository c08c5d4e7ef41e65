#include "ReadArchive.h"

#include <storage/zipprovider/src/MiniZipException.h>

#include <foundation/core/except/IInternalException.h>
#include <support/archives/ArchiveBuilder.h>
#include <support/archives/ArchiveShapes.h>
#include <support/contents.h>

#include <boost/date_time/posix_time/posix_time.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <limits>
#include <ostream>
#include <streambuf>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace kx::test;
using namespace storage::zipprovider;

constexpr auto locateFailed = "Error while calling unzLocateFile in MiniZipEntrySerializer::doOpen";
constexpr auto openFailed = "Error while calling unzOpenCurrentFile in MiniZipEntrySerializer::doOpen";
constexpr auto readFailed = "Error on return of unzReadCurrentFile in MiniZipEntrySerializer::doRead";

/// What() of the MiniZipException that `work` throws; empty when it throws none.
template <typename Work>
std::string failureOf(Work work) {
    try {
        work();
    } catch (MiniZipException& error) {
        EXPECT_NE(dynamic_cast<foundation::core::except::IInternalException*>(&error), nullptr);
        return error.what();
    }
    return {};
}

std::string failureOfOpening(const std::string& archive, const std::u16string& name) {
    return failureOf([&] { EntrySource(openArchive(archive), ZipEntryPath(name)); });
}

std::string contents(const std::string& archive, const std::u16string& name) {
    EntrySource source(openArchive(archive), ZipEntryPath(name));
    return contentsOf(source);
}

/// An archive of one entry.
std::string archiveOf(ArchiveEntry entry) {
    return ArchiveBuilder().add(std::move(entry)).build();
}

// --- the read handle

TEST(ReadHandle, OpensAnArchiveThroughTheContainersStream) {
    const auto script = scriptOf(simpleArchive({{"a", "text"}}));
    const auto handle = openArchive(script);
    EXPECT_TRUE(handle->isOpen());
    EXPECT_EQ(script->alive, 1);
    EXPECT_EQ(script->closes, 0);
}

TEST(ReadHandle, ClosesTheContainersStreamWhenTheLastOfItsUsersGoes) {
    const auto script = scriptOf(simpleArchive({{"a", "text"}}));
    auto handle = openArchive(script);
    auto enumerator = std::make_unique<Enumerator>(handle);
    auto source = std::make_unique<EntrySource>(handle, ZipEntryPath(u"a"));
    handle.reset();
    EXPECT_TRUE(enumerator->next().has_value());
    enumerator.reset();
    EXPECT_EQ(contentsOf(*source), "text");
    EXPECT_EQ(script->closes, 0);
    source.reset();
    EXPECT_EQ(script->closes, 1);
    EXPECT_EQ(script->alive, 0);
}

TEST(ReadHandle, CanBeClosedExplicitlyAndClosedAgain) {
    const auto script = scriptOf(simpleArchive({{"a", "text"}}));
    const auto handle = openArchive(script);
    handle->close();
    EXPECT_FALSE(handle->isOpen());
    EXPECT_EQ(script->closes, 1);
    EXPECT_NO_THROW(handle->close());
    EXPECT_EQ(script->closes, 1);
}

TEST(ReadHandle, SwallowsAStreamThatCannotBeClosed) {
    const auto script = scriptOf(simpleArchive({{"a", "text"}}));
    script->failClose = true;
    EXPECT_NO_THROW(openArchive(script));
    EXPECT_EQ(script->alive, 0);
}

TEST(ReadHandle, OverNoArchiveStaysNullAndTheFirstUseFailsWithItsOwnMessage) {
    for (const std::string bytes : {"", "no archive", "PK\x05\x06"}) {
        const auto handle = openArchive(bytes);
        EXPECT_FALSE(handle->isOpen());
        EXPECT_EQ(failureOf([&] { Enumerator(handle).goToFirstFileEntry(); }),
                  "Error while calling unzGoToFirstFile in MiniZipEntryEnumerator::goToFirstFileEntry");
        EXPECT_EQ(
            failureOf([&] { Enumerator(handle).getCurrentEntryInfo(); }),
            "Error while calling unzGetCurrentFileInfo64 in MiniZipEntryEnumerator::getCurrentEntryInfo");
        EXPECT_EQ(failureOf([&] { EntrySource(handle, ZipEntryPath(u"a")); }), locateFailed);
        EXPECT_FALSE(Enumerator(handle).next().has_value());
        EXPECT_NO_THROW(handle->close());
    }
}

TEST(ReadHandle, OverAStreamThatThrowsStaysNull) {
    const auto script = scriptOf(simpleArchive({{"a", "text"}}));
    script->failReads = true;
    EXPECT_FALSE(openArchive(script)->isOpen());
    script->failReads = false;
    script->failSeeks = true;
    EXPECT_FALSE(openArchive(script)->isOpen());
    EXPECT_EQ(script->alive, 0);
}

TEST(ReadHandle, WorksOverAStreamThatReadsByteByByte) {
    const auto script = scriptOf(simpleArchive({{"a", "text"}, {"b", std::string(9000, 'b')}}));
    script->longestRead = 1;
    const auto handle = openArchive(script);
    EXPECT_EQ(EntryInfos(handle).size(), 2u);
    EntrySource source(handle, ZipEntryPath(u"b"));
    EXPECT_EQ(contentsOf(source), std::string(9000, 'b'));
}

// --- the enumerator

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
    const std::string shortBlocks[] = {"", std::string("\x01\0\x18\0", 4), std::string("\x01\0\x04\0zzzz", 8),
                                       "\x01", "\xFF\xFF\xFF\xFF"};
    for (const auto& block : shortBlocks) {
        entry.centralExtra = block;
        EXPECT_EQ(entriesOf(archiveOf(entry)).at(0).size, 0xFFFFFFFFu);
    }
    entry.centralExtra = extraField(0x0001, std::string("\x05\0\0\0\x01\0\0\0", 8));
    EXPECT_EQ(entriesOf(archiveOf(entry)).at(0).size, 0x100000005u);
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

// --- the list of all entries

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

// --- the source of one entry's bytes

TEST(EntrySource, DeliversTheUncompressedBytesOfAnEntryAndThenZero) {
    EntrySource source(openArchive(simpleArchive({{"a", "text"}})), ZipEntryPath(u"a"));
    char buffer[16] = {};
    EXPECT_EQ(source.read(buffer, 3), 3);
    EXPECT_EQ(std::string(buffer, 3), "tex");
    EXPECT_EQ(source.read(buffer, 16), 1);
    EXPECT_EQ(buffer[0], 't');
    EXPECT_EQ(source.read(buffer, 16), 0);
    EXPECT_EQ(source.read(buffer, 16), 0);
}

TEST(EntrySource, DeliversStoredDeflatedAndEmptyEntriesBehindAStub) {
    ArchiveBuilder builder;
    builder.add("stored", "stored bytes");
    builder.last().method = Method::Stored;
    builder.add("deflated", std::string(100'000, 'd'));
    builder.add("empty", "");
    builder.add("descriptor", "with a data descriptor");
    builder.last().descriptor = DataDescriptor::WithSignature;
    builder.leading("#!/bin/sh\n");
    const auto archive = builder.build();
    EXPECT_EQ(contents(archive, u"stored"), "stored bytes");
    EXPECT_EQ(contents(archive, u"deflated"), std::string(100'000, 'd'));
    EXPECT_EQ(contents(archive, u"empty"), "");
    EXPECT_EQ(contents(archive, u"descriptor"), "with a data descriptor");
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

TEST(EntrySource, CopiesTheRestOfTheEntryAndTellsHowMuch) {
    const std::string text(20'000, 'x');
    EntrySource source(openArchive(simpleArchive({{"a", "head" + text}})), ZipEntryPath(u"a"));
    char head[4];
    ASSERT_EQ(source.read(head, 4), 4);
    std::ostringstream out;
    EXPECT_EQ(source.doWrite(out), 20'000u);
    EXPECT_EQ(out.str(), text);
    EXPECT_EQ(source.doWrite(out), 0u);
}

TEST(EntrySource, UnderANameOfOtherLetterCaseFailsWithTheUnzLocateFileMessage) {
    const auto archive = simpleArchive({{"Docs/a.txt", "text"}});
    EXPECT_EQ(failureOfOpening(archive, u"docs/a.txt"), locateFailed);
    EXPECT_EQ(failureOfOpening(archive, u"Docs/a.TXT"), locateFailed);
    EXPECT_EQ(contents(archive, u"Docs/a.txt"), "text");
}

TEST(EntrySource, IsFoundUnderTheTextOfItsPathAlone) {
    const auto archive = simpleArchive({{"/abs/f", "1"}, {"a//b", "2"}});
    EXPECT_EQ(contents(archive, u"/abs/f"), "1");
    EXPECT_EQ(failureOfOpening(archive, u"abs/f"), locateFailed);
    EXPECT_EQ(failureOfOpening(archive, u"a//b"), locateFailed);
}

TEST(EntrySource, LooksANameUpInUtf8WhateverItsFlag) {
    for (const std::uint16_t flags : {std::uint16_t{0}, flag::utf8Name}) {
        ArchiveEntry entry;
        entry.name = "gr\xC3\xBC\xC3\x9F";
        entry.content = "text";
        entry.flags = flags;
        EXPECT_EQ(contents(archiveOf(entry), u"gr\u00FC\u00DF"), "text");
    }
    ArchiveEntry latin;
    latin.name = "gr\xFC\xDF";
    EXPECT_EQ(failureOfOpening(archiveOf(latin), u"gr\u00FC\u00DF"), locateFailed);
}

TEST(EntrySource, DeliversTheSameBytesByItsRememberedPlaceAsByItsName) {
    ArchiveBuilder builder;
    for (int i = 0; i < 50; ++i) {
        builder.add("entry" + std::to_string(i), "contents " + std::to_string(i));
        builder.last().method = i % 2 == 0 ? Method::Stored : Method::Deflated;
    }
    builder.leading("self-extracting stub", true);
    const auto archive = builder.build();
    for (const auto& info : entriesOf(archive)) {
        EntrySource byPlace(openArchive(archive), info.stored);
        EXPECT_EQ(contentsOf(byPlace), contents(archive, info.path.toString()));
    }
}

TEST(EntrySource, DoesNotWalkOverTheOtherEntriesWhenItsPlaceIsRemembered) {
    const auto archive = wideArchive(20, 100);
    const auto last = entriesOf(archive).back();
    const auto readsBy = [&](auto open) {
        const auto script = scriptOf(archive);
        const auto handle = openArchive(script);
        const int before = script->seeks;
        open(handle);
        return script->seeks - before;
    };
    const int byPlace = readsBy([&](const auto& handle) { EntrySource(handle, last.stored); });
    const int byName = readsBy([&](const auto& handle) { EntrySource(handle, last.path); });
    EXPECT_LT(byPlace, 50);
    EXPECT_GT(byName, 10 * byPlace);
}

TEST(EntrySource, IsLookedUpByNameWhenAnotherEntryStandsAtTheRememberedPlace) {
    const auto before = simpleArchive({{"aa", "1"}, {"bb", "2"}});
    const auto after = simpleArchive({{"bb", "moved"}, {"aa", "1"}});
    const auto stored = entriesOf(before).at(1).stored;
    EntrySource source(openArchive(after), stored);
    EXPECT_EQ(contentsOf(source), "moved");
    const auto shorter = simpleArchive({{"bb", "alone"}});
    EntrySource moved(openArchive(shorter), stored);
    EXPECT_EQ(contentsOf(moved), "alone");
    EXPECT_EQ(failureOf([&] {
                  EntrySource(openArchive(simpleArchive({{"cc", ""}})), stored);
              }),
              locateFailed);
}

TEST(EntrySource, WithANameOf256BytesAndMoreIsFoundByItsPlace) {
    for (const std::size_t length : {255u, 256u, 257u, 5000u, 65'535u}) {
        const auto archive = simpleArchive({{"other", ""}, {std::string(length, 'n'), "long"}});
        EntrySource source(openArchive(archive), entriesOf(archive).at(1).stored);
        EXPECT_EQ(contentsOf(source), "long") << length;
    }
}

TEST(EntrySource, WithANulInItsNameIsNeverMistakenForTheEntryUpToTheNul) {
    const std::string nulName("a\0b", 3);
    const auto archive = simpleArchive({{"a", "plain"}, {nulName, "with nul"}});
    const auto stored = entriesOf(archive).at(1).stored;
    EntrySource source(openArchive(archive), stored);
    EXPECT_EQ(contentsOf(source), "with nul");
    const auto without = simpleArchive({{"a", "plain"}});
    EXPECT_EQ(failureOf([&] { EntrySource(openArchive(without), stored); }), locateFailed);
    EXPECT_EQ(failureOfOpening(without, std::u16string(u"a\0b", 3)), locateFailed);
}

TEST(EntrySource, OfAnEncryptedEntryFailsToOpen) {
    ArchiveEntry entry;
    entry.name = "secret";
    entry.rawData = "twelve bytes of header and then ciphertext";
    entry.uncompressedSize = 30;
    entry.crc32 = 1;
    for (const Method method : {Method::Stored, Method::Deflated}) {
        entry.method = method;
        entry.flags = flag::encrypted;
        EXPECT_EQ(failureOfOpening(archiveOf(entry), u"secret"), openFailed);
        entry.flags = flag::encrypted | flag::strongEncryption;
        EXPECT_EQ(failureOfOpening(archiveOf(entry), u"secret"), openFailed);
    }
}

TEST(EntrySource, OfAMethodOtherThanStoredAndDeflatedFailsToOpen) {
    for (const Method method : {Method::Shrunk, Method::Deflate64, Method::Bzip2, Method::Lzma}) {
        ArchiveEntry entry;
        entry.name = "a";
        entry.method = method;
        entry.rawData = "BZh91AY&SY";
        entry.uncompressedSize = 10;
        entry.crc32 = crc32Of("BZh91AY&SY");
        EXPECT_EQ(failureOfOpening(archiveOf(entry), u"a"), openFailed) << static_cast<int>(method);
    }
}

TEST(EntrySource, WhoseLocalHeaderContradictsTheDirectoryFailsToOpen) {
    ArchiveBuilder builder;
    builder.add("a", "text");
    builder.last().local.signature = 0x12345678;
    EXPECT_EQ(failureOfOpening(builder.build(), u"a"), openFailed);
    builder.last().local.signature.reset();
    builder.last().local.method = 0;
    EXPECT_EQ(failureOfOpening(builder.build(), u"a"), openFailed);
    builder.last().local.method.reset();
    builder.last().central.localOffset = 0x7FFFFFFF;
    EXPECT_EQ(failureOfOpening(builder.build(), u"a"), openFailed);
}

TEST(EntrySource, OfACorruptStreamThrowsTheUnzReadCurrentFileMessage) {
    ArchiveEntry entry;
    entry.name = "a";
    entry.rawData = std::string(100, '\xFF');
    entry.uncompressedSize = 1000;
    entry.crc32 = 0;
    EntrySource source(openArchive(archiveOf(entry)), ZipEntryPath(u"a"));
    char buffer[100];
    EXPECT_EQ(failureOf([&] { source.read(buffer, 100); }), readFailed);
}

TEST(EntrySource, OfAStreamThatTurnsCorruptStopsACopyHavingWrittenWhatItHad) {
    // Stored blocks of 65535 bytes at most: the third one's lengths contradict each other.
    const std::string content(150'000, 'x');
    std::string data = rawDeflate(content, 0);
    const std::size_t thirdBlock = 2 * (5 + 65'535);
    ASSERT_GT(data.size(), thirdBlock + 5);
    data[thirdBlock + 1] = static_cast<char>(~data[thirdBlock + 1]);
    ArchiveEntry entry;
    entry.name = "a";
    entry.rawData = data;
    entry.uncompressedSize = content.size();
    entry.crc32 = crc32Of(content);
    EntrySource source(openArchive(archiveOf(entry)), ZipEntryPath(u"a"));
    std::ostringstream out;
    EXPECT_EQ(failureOf([&] { source.doWrite(out); }), readFailed);
    EXPECT_GE(out.str().size(), 8192u);
    EXPECT_LE(out.str().size(), 2u * 65'535);
    EXPECT_EQ(out.str(), std::string(out.str().size(), 'x'));
}

TEST(EntrySource, OfDataThatEndsTooEarlyThrowsTheUnzReadCurrentFileMessage) {
    const auto script = scriptOf(simpleArchive({{"a", randomBytes(200'000, 1)}}));
    EntrySource source(openArchive(script), ZipEntryPath(u"a"));
    script->unreadableFrom = 100'000;
    std::ostringstream out;
    EXPECT_EQ(failureOf([&] { source.doWrite(out); }), readFailed);
    EXPECT_LT(out.str().size(), 120'000u);
}

TEST(EntrySource, DoesNotReportAWrongChecksum) {
    ArchiveBuilder builder;
    builder.add("a", "text");
    builder.last().central.crc32 = 1;
    builder.last().local.crc32 = 1;
    builder.last().method = Method::Stored;
    EXPECT_EQ(contents(builder.build(), u"a"), "text");
}

TEST(EntrySource, LeavesItsHandleToTheNextSource) {
    const auto handle = openArchive(simpleArchive({{"a", "1"}, {"b", "2"}}));
    for (const auto* name : {u"a", u"b", u"a"}) {
        EntrySource source(handle, ZipEntryPath(name));
        EXPECT_EQ(contentsOf(source), std::u16string(name) == u"a" ? "1" : "2");
    }
    EXPECT_EQ(failureOf([&] { EntrySource(handle, ZipEntryPath(u"missing")); }), locateFailed);
    EntrySource source(handle, ZipEntryPath(u"b"));
    EXPECT_EQ(contentsOf(source), "2");
}

/// Takes some bytes, then fails as a full disk does.
class FillingBuffer : public std::streambuf {
public:
    explicit FillingBuffer(std::streamsize room) : m_room(room) {}
    std::streamsize taken() const { return m_taken; }

protected:
    std::streamsize xsputn(const char*, std::streamsize count) override {
        const auto accepted = std::min(count, m_room - m_taken);
        m_taken += accepted;
        return accepted;
    }
    int_type overflow(int_type) override { return traits_type::eof(); }

private:
    const std::streamsize m_room;
    std::streamsize m_taken = 0;
};

TEST(EntrySource, StopsACopyIntoAStreamThatIsBadBeforeAWrite) {
    EntrySource source(openArchive(simpleArchive({{"a", std::string(100'000, 'x')}})), ZipEntryPath(u"a"));
    FillingBuffer full(10'000);
    std::ostream out(&full);
    EXPECT_EQ(failureOf([&] { source.doWrite(out); }),
              "Error; output stream has bad state in MiniZipEntrySerializer::doWrite");
    EXPECT_EQ(full.taken(), 10'000);
}

TEST(EntrySource, DoesNotTestTheStreamAfterTheLastWriteNorForFail) {
    EntrySource last(openArchive(simpleArchive({{"a", "text"}})), ZipEntryPath(u"a"));
    FillingBuffer full(0);
    std::ostream out(&full);
    EXPECT_EQ(last.doWrite(out), 4u);
    EXPECT_TRUE(out.bad());
    EntrySource failing(openArchive(simpleArchive({{"a", std::string(20'000, 'x')}})), ZipEntryPath(u"a"));
    std::ostringstream failed;
    failed.setstate(std::ios_base::failbit);
    EXPECT_EQ(failing.doWrite(failed), 20'000u);
    EXPECT_EQ(failed.str(), "");
}

TEST(EntrySource, WithNothingToCopyIsContentWithABadStream) {
    EntrySource source(openArchive(simpleArchive({{"a", ""}})), ZipEntryPath(u"a"));
    std::ostringstream bad;
    bad.setstate(std::ios_base::badbit);
    EXPECT_EQ(source.doWrite(bad), 0u);
}

} // namespace
