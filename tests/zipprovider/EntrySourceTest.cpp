#include "ReadFailures.h"

#include <support/archives/ArchiveShapes.h>
#include <support/contents.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <ostream>
#include <sstream>
#include <streambuf>
#include <string>

namespace {

using namespace kx::test;
using namespace storage::zipprovider;

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

TEST(EntrySource, IsFoundByItsNameWhereItsPlaceHoldsAnother) {
    // One that the system reads by itself, and one that minizip reads.
    for (const auto descriptor : {DataDescriptor::None, DataDescriptor::WithSignature}) {
        ArchiveBuilder builder;
        builder.add("a", "of a").last().descriptor = descriptor;
        builder.add("b", "of b").last().descriptor = descriptor;
        const auto archive = builder.build();
        EntrySource source(openArchive(archive), {u"b", entriesOf(archive).at(0).stored.position});
        EXPECT_EQ(contentsOf(source), "of b");
    }
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
