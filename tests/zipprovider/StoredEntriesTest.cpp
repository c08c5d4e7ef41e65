#include "FileSizeLimit.h"
#include "ReadFailures.h"
#include "ScopedTimeZone.h"

#include <storage/zipprovider/src/MiniZipWriteHandle.h>
#include <storage/zipprovider/src/StoredArchiveWriter.h>
#include <storage/zipprovider/src/StoredEntryCopy.h>
#include <storage/zipprovider/src/ZipEntrySink.h>

#include <support/TemporaryFolder.h>
#include <support/archives/IndependentReaders.h>
#include <support/archives/WrittenArchives.h>
#include <support/contents.h>

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <ostream>
#include <string>
#include <vector>

namespace {

using namespace kx::test;
using namespace storage::zipprovider;

std::string writtenTo(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios_base::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

/// The archive, of which nothing can be read from `end` on.
ReadArchiveUpTo readerOf(const std::string& archive,
                         std::uint64_t end = std::numeric_limits<std::uint64_t>::max()) {
    return [&archive, end](std::uint64_t position, char* buffer, std::uint32_t count) {
        const auto readable = std::min<std::uint64_t>(archive.size(), end);
        if (position >= readable) {
            return std::uint32_t{0};
        }
        const auto got = std::min<std::uint64_t>(count, readable - position);
        std::copy_n(archive.data() + position, got, buffer);
        return static_cast<std::uint32_t>(got);
    };
}

EntryDescription described(const ZipEntryInfo& info) {
    return {info.type, info.path, info.size, info.lastModified, info.index};
}

/// An entry as this system's writer makes it.
ArchiveEntry ownEntry(const std::string& name, const std::string& content) {
    ArchiveEntry entry;
    entry.name = name;
    entry.content = content;
    entry.versionMadeBy = 0;
    return entry;
}

/// Entries that are copied from archive to archive without being inflated: one by one into an archive that
/// minizip writes, or the first ones of a new archive in large pieces.
class StoredEntries : public testing::Test {
protected:
    void TearDown() override {
        m_archives.addFolder(m_folder.path());
        EXPECT_EQ(m_archives.problems(), "");
    }

    std::filesystem::path path() const { return m_folder.file("archive.zip"); }

    /// How many of the archive's entries the writer of large pieces takes over, one after the other.
    std::size_t takenOver(const std::string& archive, const ReadArchiveUpTo& reader) {
        std::size_t count = 0;
        StoredArchiveWriter writer(reader, path());
        for (const auto& info : entriesOf(archive)) {
            count += writer.add(info.stored, described(info)) ? 1 : 0;
        }
        writer.finish();
        return count;
    }

    TemporaryFolder m_folder;
    const ScopedTimeZone m_zone{"UTC0"};
    WrittenArchives m_archives;
};

/// A change of an entry that this system wrote, after which it is another writer's.
struct ForeignMark {
    const char* name;
    void (*make)(ArchiveEntry& entry);
};

std::ostream& operator<<(std::ostream& out, const ForeignMark& mark) {
    return out << mark.name;
}

class ForeignMarks : public StoredEntries, public testing::WithParamInterface<ForeignMark> {};

} // namespace

TEST_F(StoredEntries, WhatThisWriterMadeIsTheSameAgainWhetherItLooksLikeTextOrNot) {
    const auto old = m_folder.file("old.zip");
    {
        MiniZipWriteHandle archive(old);
        const auto put = [&](ZipEntryType type, const std::u16string& name, const std::string& contents) {
            ZipEntrySink sink(archive, {type, ZipEntryPath(name), 0,
                                        boost::posix_time::ptime(boost::gregorian::date(2021, 7, 15)), 0});
            sink.write(contents.data(), static_cast<std::int64_t>(contents.size()));
        };
        put(ZipEntryType::File, u"text", std::string(50'000, 't'));
        put(ZipEntryType::File, u"noise", randomBytes(200'000, 9));
        put(ZipEntryType::File, u"empty", "");
        put(ZipEntryType::Folder, u"folder", "");
    }
    const auto bytes = writtenTo(old);
    const auto source = openArchive(bytes);
    MiniZipWriteHandle archive(path());
    for (const auto& info : entriesOf(bytes)) {
        EXPECT_TRUE(copyStoredEntry(source->get(), info.stored, archive, described(info))) << info.path;
    }
    archive.close();
    EXPECT_EQ(writtenTo(path()), bytes);
    EXPECT_EQ(verifyArchive(path()).problems(), "");
    std::filesystem::remove(path());
    EXPECT_EQ(takenOver(bytes, readerOf(bytes)), 4u);
    EXPECT_EQ(writtenTo(path()), bytes);
}

TEST_P(ForeignMarks, AreNotLost) {
    auto entry = ownEntry("a", std::string(5'000, 'x'));
    const auto own = archiveOf(entry);
    ASSERT_EQ(takenOver(own, readerOf(own)), 1u);
    std::filesystem::remove(path());

    GetParam().make(entry);
    const auto bytes = archiveOf(entry);
    const auto info = entriesOf(bytes).at(0);
    EXPECT_EQ(takenOver(bytes, readerOf(bytes)), 0u);
    EXPECT_FALSE(std::filesystem::exists(path()));
    MiniZipWriteHandle archive(path());
    EXPECT_FALSE(copyStoredEntry(openArchive(bytes)->get(), info.stored, archive, described(info)));
    archive.close();
    EXPECT_FALSE(openArchive(writtenTo(path()))->isOpen()) << "written though refused";
}

INSTANTIATE_TEST_SUITE_P(
    Of, ForeignMarks,
    testing::ValuesIn(std::vector<ForeignMark>{
        {"Attributes", [](auto& entry) { entry.internalAttributes = 2; }},
        {"ExternalAttributes", [](auto& entry) { entry.externalAttributes = 0x20; }},
        {"MadeBy", [](auto& entry) { entry.versionMadeBy = 20; }},
        {"Needed", [](auto& entry) { entry.versionNeeded = 10; }},
        {"Method", [](auto& entry) { entry.method = Method::Stored; }},
        {"Flags", [](auto& entry) { entry.flags = flag::utf8Name; }},
        {"FlagsOfTheDirectoryAlone", [](auto& entry) { entry.central.flags = std::uint16_t{2}; }},
        {"Descriptor", [](auto& entry) { entry.descriptor = DataDescriptor::WithSignature; }},
        {"Comment", [](auto& entry) { entry.comment = "c"; }},
        {"CentralExtra", [](auto& entry) { entry.centralExtra = timestampField(1); }},
        {"LocalExtra", [](auto& entry) { entry.localExtra = timestampField(1); }},
        {"Zip64", [](auto& entry) { entry.zip64 = true; }},
        {"LocalChecksum", [](auto& entry) { entry.local.crc32 = 1; }},
        {"LocalSize", [](auto& entry) { entry.local.uncompressedSize = 1; }},
        {"LocalSignature", [](auto& entry) { entry.local.signature = 1; }},
    }),
    testing::PrintToStringParamName());

TEST_F(StoredEntries, TheAttributeOfTextIsThisWritersOwn) {
    auto entry = ownEntry("a", "text");
    entry.internalAttributes = 1;
    const auto bytes = archiveOf(entry);
    EXPECT_EQ(takenOver(bytes, readerOf(bytes)), 1u);
    EXPECT_EQ(writtenTo(path()), bytes);
}

TEST_F(StoredEntries, OneThatCannotBeReadToItsEndIsLeftOutWhole) {
    const auto large = ownEntry("large", randomBytes(200'000, 1));
    const auto first = archiveOf(ownEntry("small", "1"));
    ArchiveLayout layout;
    const auto bytes = ArchiveBuilder().add(ownEntry("small", "1")).add(large).build(&layout);
    const auto directory = layout.centralDirectory;
    // The directory stands behind what cannot be read.
    const auto gap = directory - 50'000;
    const auto reader = [&](std::uint64_t position, char* buffer, std::uint32_t count) {
        return position < directory ? readerOf(bytes, gap)(position, buffer, count)
                                    : readerOf(bytes)(position, buffer, count);
    };
    EXPECT_EQ(takenOver(bytes, reader), 1u);
    EXPECT_EQ(writtenTo(path()), first);
}

TEST_F(StoredEntries, AFullDiskIsReportedWhereverItIsMet) {
    const auto bytes = archiveOf(ownEntry("a", randomBytes(5'000, 1)));
    const auto cause = "ZipEntrySink: Problem writing entry data: File too large";
    for (const std::size_t room : {std::size_t{4'500}, bytes.size() - 100, bytes.size() - 1}) {
        const FileSizeLimit full(room);
        EXPECT_EQ(failureOf([&] { takenOver(bytes, readerOf(bytes)); }), cause) << room;
        std::filesystem::remove(path());
    }
    EXPECT_EQ(takenOver(bytes, readerOf(bytes)), 1u);
    EXPECT_EQ(writtenTo(path()), bytes);
}

TEST_F(StoredEntries, AnArchiveOfNoneIsNotMade) {
    const std::string nothing;
    StoredArchiveWriter writer(readerOf(nothing), path());
    writer.finish();
    EXPECT_FALSE(std::filesystem::exists(path()));
}

TEST_F(StoredEntries, AnArchiveThatCannotBeMadeIsLeftToMinizip) {
    const auto bytes = archiveOf(ownEntry("a", "1"));
    const auto info = entriesOf(bytes).at(0);
    StoredArchiveWriter writer(readerOf(bytes), m_folder.file("missing") / "archive.zip");
    EXPECT_FALSE(writer.add(info.stored, described(info)));
    EXPECT_NO_THROW(writer.finish());
}
