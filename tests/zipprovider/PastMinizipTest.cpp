#include "ReadFailures.h"

#include <storage/zipprovider/src/EntryName.h>

#include <support/archives/ArchiveShapes.h>
#include <support/contents.h>

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>

// Where the directory of an archive is known, ordinary entries are opened past minizip. Whatever the archive,
// that has to give the bytes that minizip gives, or fail, after which the entry is opened by minizip.

namespace kx::test {
namespace {

using namespace storage::zipprovider;

/// The contents of the entry, or nothing where it cannot be opened or read.
std::optional<std::string> read(const std::shared_ptr<ReadHandle>& archive, const StoredEntryName& stored) {
    std::optional<std::string> bytes;
    failureOf([&] {
        EntrySource source(archive, stored);
        bytes = contentsOf(source);
    });
    return bytes;
}

/// Compares every entry, and returns how many were read without minizip.
int expectSameContents(const std::string& bytes, const std::string& what) {
    const EntryInfos infos(openArchive(bytes));
    int past = 0;
    for (const auto& info : infos) {
        const auto plain = read(openArchive(bytes), info.stored);
        const auto script = scriptOf(bytes);
        const auto quick = read(
            std::make_shared<ReadHandle>(std::make_unique<ScriptedStream>(script), infos.directoryPlace()),
            info.stored);
        if (quick) {
            EXPECT_EQ(quick, plain) << what << ", entry " << info.index;
        }
        // minizip begins at the end of the archive.
        past += script->seeksFromEnd == 0 ? 1 : 0;
    }
    return past;
}

ArchiveBuilder ordinaryEntries() {
    ArchiveBuilder builder;
    builder.add("stored", "bytes as they are");
    builder.last().method = Method::Stored;
    builder.add("deflated", std::string(3000, 'd') + randomBytes(500, 1));
    builder.add("empty", "");
    builder.add("caf\xC3\xA9", "utf-8");
    builder.last().flags = flag::utf8Name;
    builder.add("with an extra field", "x");
    builder.last().centralExtra = std::string("\x55\x54\x05\x00\x03\x01\x02\x03\x04", 9);
    return builder;
}

TEST(EntryPastMinizip, HasTheContentsThatMinizipGives) {
    EXPECT_EQ(expectSameContents(ordinaryEntries().build(), "ordinary"), 5);
    EXPECT_EQ(expectSameContents(std::string(1000, 's') + ordinaryEntries().build(), "behind a stub"), 5);
    EXPECT_EQ(expectSameContents(simpleArchive({{"a", randomBytes(300'000, 2)}}), "more than a piece"), 1);
}

TEST(EntryPastMinizip, HasTheContentsThatMinizipGivesOfAnArchiveWithZip64Records) {
    auto builder = ordinaryEntries();
    builder.end().zip64 = true;
    EXPECT_EQ(expectSameContents(builder.build(), "Zip64 records"), 5);
    // The locator counts from the beginning of the file, where minizip looks for what it names.
    EXPECT_EQ(expectSameContents(std::string(1000, 's') + builder.build(), "Zip64 records behind a stub"), 0);
    builder.end().comment = "a comment";
    EXPECT_EQ(expectSameContents(builder.build(), "Zip64 records and a comment"), 5);
    builder.end().zip64Entries = 4;
    EXPECT_EQ(expectSameContents(builder.build(), "Zip64 records that count wrong"), 0);
}

TEST(EntryPastMinizip, IsLeftToMinizipWhereItIsOutOfTheOrdinary) {
    ArchiveBuilder builder;
    builder.add("big", "y");
    builder.last().zip64 = true;
    builder.add("descriptor", "with a data descriptor");
    builder.last().descriptor = DataDescriptor::WithSignature;
    builder.add("encrypted", "z");
    builder.last().flags = flag::encrypted;
    EXPECT_EQ(expectSameContents(builder.build(), "out of the ordinary"), 0);
    EXPECT_EQ(contents(builder.build(), u"descriptor"), "with a data descriptor");
}

TEST(EntryPastMinizip, HasTheContentsThatMinizipGivesWhereACommentHoldsALocator) {
    auto archive = ordinaryEntries();
    archive.end().zip64 = true;
    ArchiveLayout layout;
    const auto whole = archive.build(&layout);
    const auto records = whole.substr(layout.zip64EndRecord);
    auto builder = ordinaryEntries();
    builder.end().comment = records.substr(56, 20);
    expectSameContents(builder.build(), "a comment with a locator that leads nowhere");
    // minizip follows it to records in the comment, which say that something stands before the archive.
    builder.end().comment = records;
    expectSameContents(builder.build(), "a comment with all Zip64 records");
    expectSameContents(whole + std::string(2000, 'x') + records, "records behind the archive");
}

class EntryPastMinizipOfABrokenArchive : public testing::TestWithParam<bool> {};

TEST_P(EntryPastMinizipOfABrokenArchive, HasTheContentsThatMinizipGives) {
    auto builder = ordinaryEntries();
    builder.end().zip64 = GetParam();
    const auto whole = builder.build();
    std::mt19937 random(7);
    for (std::size_t at = 0; at < whole.size(); ++at) {
        auto broken = whole;
        broken[at] = static_cast<char>(static_cast<unsigned char>(broken[at]) ^ (1U << random() % 8));
        try {
            expectSameContents(broken, "byte " + std::to_string(at));
        } catch (const MiniZipException&) {
            // The archive cannot be listed, and neither can
        } catch (const std::out_of_range&) {
            // one with a date that the calendar does not have.
        }
    }
}

INSTANTIATE_TEST_SUITE_P(With, EntryPastMinizipOfABrokenArchive, testing::Bool(),
                         [](const auto& tested) { return tested.param ? "Zip64Records" : "PlainRecords"; });

TEST(EntryPastMinizip, CostsAHandfulOfSeeks) {
    const auto bytes = wideArchive(20, 100);
    const EntryInfos infos(openArchive(bytes));
    ASSERT_TRUE(infos.directoryPlace());
    const auto script = scriptOf(bytes);
    const auto archive =
        std::make_shared<ReadHandle>(std::make_unique<ScriptedStream>(script), infos.directoryPlace());
    for (const auto& info : infos) {
        const int before = script->seeks;
        EXPECT_EQ(read(archive, info.stored), encodeEntryName(info.stored.name));
        ASSERT_LE(script->seeks - before, 6);
    }
}

} // namespace
} // namespace kx::test
