#include "FileSizeLimit.h"
#include "ReadFailures.h"
#include "ScopedTimeZone.h"
#include "WorkingFolder.h"

#include <storage/zipprovider/src/LocalFileFunctions.h>
#include <storage/zipprovider/src/MiniZipWriteHandle.h>
#include <storage/zipprovider/src/WorkingFileEntry.h>
#include <storage/zipprovider/src/ZipConstants.h>
#include <storage/zipprovider/src/ZipEntryAppender.h>
#include <storage/zipprovider/src/ZipEntrySink.h>

#include <foundation/log/control.h>
#include <support/TemporaryFolder.h>
#include <support/archives/IndependentReaders.h>
#include <support/archives/WrittenArchives.h>
#include <support/contents.h>

#include <boost/date_time/posix_time/posix_time.hpp>
#include <boost/iostreams/copy.hpp>
#include <boost/iostreams/stream.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <streambuf>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using namespace kx::test;
using namespace storage::zipprovider;
using boost::gregorian::date;
using boost::posix_time::ptime;
using boost::posix_time::time_duration;
using testing::ElementsAre;

const ptime someTime(date(2021, 7, 15), time_duration(12, 30, 10));

EntryDescription file(const std::u16string& path, const ptime& time = someTime) {
    return {ZipEntryType::File, ZipEntryPath(path), 0, time, 0};
}

EntryDescription folder(const std::u16string& path) {
    return {ZipEntryType::Folder, ZipEntryPath(path), 0, someTime, 0};
}

void put(MiniZipWriteHandle& archive, const EntryDescription& entry, const std::string& contents) {
    ZipEntrySink sink(archive, entry);
    EXPECT_EQ(sink.write(contents.data(), static_cast<std::int64_t>(contents.size())),
              static_cast<std::int64_t>(contents.size()));
}

std::string bytesOf(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios_base::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

class WritingArchives : public testing::Test {
protected:
    void TearDown() override {
        m_archives.addFolder(m_folder.path());
        EXPECT_EQ(m_archives.problems(), "");
    }

    std::filesystem::path path() const { return m_folder.file("archive.zip"); }
    /// For an archive that other programs cannot read, with good reason.
    void leaveUnjudged() { m_archives.remember(bytesOf(path())); }
    void place(const std::string& bytes) {
        m_archives.remember(bytes);
        std::ofstream(path(), std::ios_base::binary) << bytes;
    }
    ArchiveVerdict verdict() const { return verifyArchive(path()); }

    TemporaryFolder m_folder;

private:
    WrittenArchives m_archives;
};

// --- opening for writing

TEST_F(WritingArchives, APathThatDoesNotExistIsCreatedForItsOwnerAlone) {
    MiniZipWriteHandle archive(path());
    archive.close();
    EXPECT_EQ(bytesOf(path()), ArchiveBuilder().build());
    using std::filesystem::perms;
    EXPECT_EQ(std::filesystem::status(path()).permissions() & (perms::group_all | perms::others_all),
              perms::none);
}

TEST_F(WritingArchives, APathThatAlreadyHoldsAZipFileIsAddedToRatherThanTruncated) {
    place(simpleArchive({{"old", "old text"}}));
    MiniZipWriteHandle archive(path());
    put(archive, file(u"new"), "new text");
    archive.close();
    const auto seen = verdict();
    EXPECT_EQ(seen.problems(), "");
    EXPECT_THAT(seen.names(), ElementsAre("old", "new"));
    EXPECT_EQ(seen.find("old")->crc32, crc32Of("old text"));
}

TEST_F(WritingArchives, AnArchiveThatIsToBeAddedToAndIsGoneIsRefusedAndNotMade) {
    EXPECT_NE(failureOf([&] { MiniZipWriteHandle::addingTo(path()); }), "");
    EXPECT_FALSE(std::filesystem::exists(path()));
}

TEST_F(WritingArchives, APathThatHoldsNoZipFileIsRefusedByNameAndLeftAsItIs) {
    place("no archive");
    EXPECT_EQ(failureOf([&] { MiniZipWriteHandle archive(path()); }),
              "Error while calling zipOpen in MiniZipWriteHandle::MiniZipWriteHandle for " + path().string());
    EXPECT_EQ(bytesOf(path()), "no archive");
}

TEST_F(WritingArchives, APathInAMissingFolderIsRefusedByName) {
    const auto missing = m_folder.file("missing") / "gr\xC3\xBC\xC3\x9F.zip";
    EXPECT_EQ(failureOf([&] { MiniZipWriteHandle archive(missing); }),
              "Error while calling zipOpen in MiniZipWriteHandle::MiniZipWriteHandle for " +
                  missing.string());
}

TEST_F(WritingArchives, ADanglingSymbolicLinkIsNotFollowed) {
    std::filesystem::create_symlink(m_folder.file("elsewhere"), path());
    EXPECT_NE(failureOf([&] { MiniZipWriteHandle archive(path()); }), "");
    EXPECT_FALSE(std::filesystem::exists(m_folder.file("elsewhere")));
}

TEST(OpeningForWriting, IsTriedExactlyThreeTimesAndYieldsANullHandleThen) {
    std::vector<int> modes;
    const auto refuse = [&](const std::filesystem::path&, int mode) -> zipFile {
        modes.push_back(mode);
        return nullptr;
    };
    EXPECT_EQ(detail::openForWriting("x", false, refuse), nullptr);
    EXPECT_THAT(modes, ElementsAre(APPEND_STATUS_CREATE, APPEND_STATUS_CREATE, APPEND_STATUS_CREATE));
    modes.clear();
    EXPECT_EQ(detail::openForWriting("x", true, refuse), nullptr);
    EXPECT_THAT(modes, ElementsAre(APPEND_STATUS_ADDINZIP, APPEND_STATUS_ADDINZIP, APPEND_STATUS_ADDINZIP));
}

TEST(OpeningForWriting, EndsWithTheFirstAttemptThatSucceeds) {
    int archive = 0;
    int calls = 0;
    const auto second = [&](const std::filesystem::path& path, int) -> zipFile {
        EXPECT_EQ(path, "x");
        return ++calls == 2 ? &archive : nullptr;
    };
    EXPECT_EQ(detail::openForWriting("x", false, second), &archive);
    EXPECT_EQ(calls, 2);
}

TEST(OpeningForWriting, UsesTheNumbersThatTheLibraryGivesItsModes) {
    EXPECT_EQ(APPEND_STATUS_CREATE, 0);
    EXPECT_EQ(APPEND_STATUS_ADDINZIP, 2);
}

// --- the write handle

TEST_F(WritingArchives, AnArchiveIsCompleteOnlyOnceItIsClosed) {
    MiniZipWriteHandle archive(path());
    put(archive, file(u"a"), "text");
    EXPECT_FALSE(openArchive(bytesOf(path()))->isOpen());
    archive.close();
    EXPECT_TRUE(openArchive(bytesOf(path()))->isOpen());
}

TEST_F(WritingArchives, AHandleThatWasClosedIsNotClosedASecondTime) {
    MiniZipWriteHandle archive(path());
    put(archive, file(u"a"), "text");
    archive.close();
    EXPECT_EQ(archive.get(), nullptr);
    EXPECT_NO_THROW(archive.close());
    EXPECT_EQ(verdict().problems(), "");
}

TEST_F(WritingArchives, AHandleThatIsDestroyedCompletesTheArchive) {
    {
        MiniZipWriteHandle archive(path());
        put(archive, file(u"a"), "text");
    }
    const auto seen = verdict();
    EXPECT_EQ(seen.problems(), "");
    EXPECT_THAT(seen.names(), ElementsAre("a"));
}

TEST_F(WritingArchives, AClosedHandleTakesNoEntries) {
    MiniZipWriteHandle archive(path());
    archive.close();
    EXPECT_EQ(failureOf([&] { ZipEntrySink(archive, file(u"a")); }),
              "ZipEntrySink: Problem opening zip file for writing");
}

TEST_F(WritingArchives, AFullDiskIsReportedByTheWriteOrTheCloseAndNotByADestructor) {
    const auto noise = randomBytes(300'000, 1);
    const FileSizeLimit limit(100'000);
    {
        MiniZipWriteHandle archive(path());
        ZipEntrySink sink(archive, file(u"a"));
        EXPECT_EQ(failureOf([&] { sink.write(noise.data(), static_cast<std::int64_t>(noise.size())); }),
                  "ZipEntrySink: Problem writing entry data");
    }
    std::filesystem::remove(path());
    {
        MiniZipWriteHandle archive(path());
        put(archive, file(u"a"), noise.substr(0, 99'900));
        EXPECT_EQ(failureOf([&] { archive.close(); }), "MiniZipWriteHandle: Problem closing zip file");
        EXPECT_NO_THROW(archive.close());
    }
    leaveUnjudged();
}

// --- entries

TEST_F(WritingArchives, EveryEntryIsDeflatedAndMarkedAsNothingElse) {
    MiniZipWriteHandle archive(path());
    put(archive, file(u"a.txt"), std::string(50'000, 'a'));
    { ZipEntrySink sink(archive, file(u"empty")); }
    { ZipEntrySink sink(archive, folder(u"docs")); }
    put(archive, file(u"gr\u00FC\u00DF"), "named in UTF-8");
    archive.close();
    const auto seen = verdict();
    EXPECT_EQ(seen.problems(), "");
    ASSERT_EQ(seen.entries.size(), 4u);
    EXPECT_THAT(seen.names().at(2), "docs/");

    const auto bytes = bytesOf(path());
    std::size_t header = bytes.find("PK\x01\x02");
    for (int i = 0; i < 4; ++i) {
        const std::string_view fields(bytes.data() + header, centralHeaderSize);
        const auto field = [&](std::size_t position, std::size_t size) {
            return littleEndian(fields.substr(position, size));
        };
        ASSERT_EQ(field(0, 4), centralHeaderSignature);
        EXPECT_EQ(field(4, 2), 0u) << "version made by";
        EXPECT_EQ(field(6, 2), 20u) << "version needed";
        EXPECT_EQ(field(8, 2), 0u) << "flags";
        EXPECT_EQ(field(10, 2), 8u) << "method";
        EXPECT_EQ(field(30, 2), 0u) << "length of the extra field";
        EXPECT_EQ(field(32, 2), 0u) << "length of the comment";
        // minizip itself notes here that the bytes look like text.
        EXPECT_LE(field(36, 2), 1u) << "internal attributes";
        EXPECT_EQ(field(38, 4), 0u) << "external attributes";
        header += centralHeaderSize + field(28, 2);
    }
    EXPECT_EQ(bytes.substr(header), bytes.substr(bytes.size() - 22)) << "no global comment";
}

TEST_F(WritingArchives, AnEntryIsWrittenWithoutZip64WhateverItsSizeIsSaidToBe) {
    MiniZipWriteHandle archive(path());
    auto description = file(u"big");
    description.size = std::uint64_t{5} << 32;
    put(archive, description, "little");
    archive.close();
    const auto bytes = bytesOf(path());
    EXPECT_EQ(littleEndian(std::string_view(bytes).substr(28, 2)), 0u) << "length of the local extra field";
    const auto seen = verdict();
    EXPECT_EQ(seen.problems(), "");
    EXPECT_EQ(seen.find("big")->size, 6u);
}

TEST_F(WritingArchives, ASinkDestroyedWithoutWritingLeavesAnEntryOfLengthZero) {
    MiniZipWriteHandle archive(path());
    { ZipEntrySink sink(archive, file(u"empty")); }
    archive.close();
    const auto seen = verdict();
    EXPECT_EQ(seen.problems(), "");
    ASSERT_NE(seen.find("empty"), nullptr);
    EXPECT_EQ(seen.find("empty")->size, 0u);
    EXPECT_EQ(seen.find("empty")->crc32, 0u);
}

TEST_F(WritingArchives, AnEntryIsFinishedWhenTheNextOneIsOpened) {
    MiniZipWriteHandle archive(path());
    put(archive, file(u"a"), "first");
    put(archive, file(u"b"), "second");
    archive.close();
    const auto seen = verdict();
    EXPECT_EQ(seen.problems(), "");
    EXPECT_EQ(seen.find("a")->crc32, crc32Of("first"));
    EXPECT_EQ(seen.find("b")->crc32, crc32Of("second"));
}

TEST_F(WritingArchives, AnEntryGetsTheLocalTimeOfItsInstant) {
    const auto stampIn = [&](const char* name, const ptime& time) {
        const ScopedTimeZone zone(name);
        std::filesystem::remove(path());
        MiniZipWriteHandle archive(path());
        put(archive, file(u"a", time), "");
        archive.close();
        return entriesOf(bytesOf(path())).at(0).lastModified;
    };
    EXPECT_EQ(stampIn("UTC0", someTime), someTime);
    EXPECT_EQ(stampIn("CET-1CEST,M3.5.0,M10.5.0/3", someTime), someTime + boost::posix_time::hours(2));
    EXPECT_EQ(stampIn("EST5", someTime), someTime - boost::posix_time::hours(5));
    EXPECT_EQ(stampIn("CET-1", ptime(date(1970, 1, 1))).time_of_day(), time_duration(1, 0, 0));
}

TEST_F(WritingArchives, AWriteAcceptsAllBytesOfWhateverNumber) {
    MiniZipWriteHandle archive(path());
    const auto big = randomBytes(3'000'000, 7);
    {
        ZipEntrySink sink(archive, file(u"big"));
        EXPECT_EQ(sink.write(big.data(), 0), 0);
        EXPECT_EQ(sink.write(big.data(), 1), 1);
        EXPECT_EQ(sink.write(big.data() + 1, static_cast<std::int64_t>(big.size() - 1)),
                  static_cast<std::int64_t>(big.size() - 1));
    }
    archive.close();
    const auto seen = verdict();
    EXPECT_EQ(seen.problems(), "");
    EXPECT_EQ(seen.find("big")->crc32, crc32Of(big));
}

TEST_F(WritingArchives, ANameThatCannotBeStoredAsItIsIsRefused) {
    MiniZipWriteHandle archive(path());
    constexpr auto refused = "ZipEntrySink: Problem opening zip file for writing";
    EXPECT_EQ(failureOf([&] { ZipEntrySink(archive, file(std::u16string(u"a\0b", 3))); }), refused);
    EXPECT_EQ(failureOf([&] { ZipEntrySink(archive, file(std::u16string(65'536, u'n'))); }), refused);
    EXPECT_EQ(failureOf([&] { ZipEntrySink(archive, folder(std::u16string(65'535, u'n'))); }), refused);
    EXPECT_EQ(failureOf([&] { ZipEntrySink(archive, file(std::u16string(40'000, u'\u00FC'))); }), refused);
    put(archive, file(std::u16string(65'535, u'n')), "the longest name");
    archive.close();
    const auto entries = entriesOf(bytesOf(path()));
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].path.fileName().size(), 65'535u);
    leaveUnjudged();
}

TEST_F(WritingArchives, ANameIsWrittenAsUtf8WithoutTheFlagThatSaysSo) {
    MiniZipWriteHandle archive(path());
    put(archive, file(u"gr\u00FC\u00DF/\U0001F600"), "");
    archive.close();
    EXPECT_NE(bytesOf(path()).find("gr\xC3\xBC\xC3\x9F/\xF0\x9F\x98\x80"), std::string::npos);
    EXPECT_EQ(verdict().entries.at(0).flags, 0);
}

TEST_F(WritingArchives, TheSameEntriesGiveTheSameBytes) {
    const auto write = [&](const std::filesystem::path& target) {
        MiniZipWriteHandle archive(target);
        put(archive, file(u"a"), randomBytes(10'000, 3));
        put(archive, folder(u"d"), "");
        archive.close();
        return bytesOf(target);
    };
    EXPECT_EQ(write(m_folder.file("1.zip")), write(m_folder.file("2.zip")));
}

TEST_F(WritingArchives, AnEntryOfTheOldArchiveIsCopiedThroughAStreamOverTheSink) {
    const auto contents = randomBytes(100'000, 5) + std::string(100'000, 'x');
    const auto old = openArchive(simpleArchive({{"dir/a", contents}, {"b", ""}}));
    MiniZipWriteHandle archive(path());
    for (const auto& info : entriesOf(simpleArchive({{"dir/a", contents}, {"b", ""}}))) {
        EntrySource source(old, info.path);
        const ZipEntrySink sink(archive, {info.type, info.path, info.size, info.lastModified, info.index});
        boost::iostreams::stream<ZipEntrySink> out;
        out.open(sink, -1, -1);
        EXPECT_EQ(source.doWrite(out), info.size);
        out.close();
        EXPECT_TRUE(out.good());
    }
    archive.close();
    const auto seen = verdict();
    EXPECT_EQ(seen.problems(), "");
    EXPECT_EQ(seen.find("dir/a")->crc32, crc32Of(contents));
    EXPECT_EQ(seen.find("b")->size, 0u);
}

TEST_F(WritingArchives, CopiesOfASinkWriteToTheSameEntry) {
    MiniZipWriteHandle archive(path());
    ZipEntrySink sink(archive, file(u"a"));
    ZipEntrySink copy = sink;
    sink.write("one ", 4);
    copy.write("two", 3);
    std::istringstream three(" three");
    boost::iostreams::copy(three, sink, 4096);
    archive.close();
    const auto seen = verdict();
    EXPECT_EQ(seen.problems(), "");
    EXPECT_EQ(seen.find("a")->crc32, crc32Of("one two three"));
}

// --- appending what does not come from an old archive

class AppendingEntries : public WritingArchives {
protected:
    static void fill(WorkingFileEntry& entry, const std::string& contents) {
        auto device = entry.doGetFileDevice(std::ios_base::out | std::ios_base::binary);
        device.write(contents.data(), static_cast<std::streamsize>(contents.size()));
        device.close();
    }

    const WorkingFolder m_working;
};

TEST_F(AppendingEntries, WritesFilesFromTheirWorkingFilesAndFoldersAsEmptyEntries) {
    MiniZipWriteHandle archive(path());
    put(archive, file(u"old"), "carried over");
    ZipEntryAppender appender(archive, path(), 1);
    WorkingFileEntry contents(ZipEntryPath(u"/docs/a.txt"));
    fill(contents, "written");
    appender.appendFile(ZipEntryPath(u"/docs/a.txt"), contents);
    appender.appendFolder(ZipEntryPath(u"/made"), someTime);
    archive.close();
    const auto seen = verdict();
    EXPECT_EQ(seen.problems(), "");
    EXPECT_THAT(seen.names(), ElementsAre("old", "docs/a.txt", "made/"));
    EXPECT_EQ(seen.entries.at(1).crc32, crc32Of("written"));
    EXPECT_EQ(m_working.files().size(), 1u);
}

TEST_F(AppendingEntries, NoticesThatTheArchiveFileIsGone) {
    MiniZipWriteHandle archive(path());
    ZipEntryAppender appender(archive, path(), 0);
    WorkingFileEntry contents(ZipEntryPath(u"/a.txt"));
    fill(contents, "written");
    appender.appendFile(ZipEntryPath(u"/a.txt"), contents);
    std::filesystem::remove(path());
    const std::string gone = "ZipEntryAppender: Problem getting last write time of zip file";
    EXPECT_EQ(failureOf([&] { appender.appendFile(ZipEntryPath(u"/b.txt"), contents); }), gone);
    EXPECT_EQ(failureOf([&] { appender.appendFolder(ZipEntryPath(u"/made"), someTime); }), gone);
}

/// Cuts a file when a log record has this text, which nobody sees.
class CutsAtARecord final : public std::streambuf {
public:
    CutsAtARecord(std::string text, std::filesystem::path file)
        : m_text(std::move(text)), m_file(std::move(file)), m_before(std::cerr.rdbuf(this)) {
        foundation::log::enable(foundation::log::severity::debug, {"storage::zipprovider::WorkingFileEntry"});
    }
    ~CutsAtARecord() override {
        foundation::log::disable();
        std::cerr.rdbuf(m_before);
    }

    CutsAtARecord(const CutsAtARecord&) = delete;
    CutsAtARecord& operator=(const CutsAtARecord&) = delete;

protected:
    std::streamsize xsputn(const char* data, std::streamsize count) override {
        if (std::string_view(data, static_cast<std::size_t>(count)).find(m_text) != std::string_view::npos) {
            std::filesystem::resize_file(m_file, 1);
        }
        return count;
    }
    int_type overflow(int_type c) override { return traits_type::not_eof(c); }

private:
    const std::string m_text;
    const std::filesystem::path m_file;
    std::streambuf* const m_before;
};

TEST_F(AppendingEntries, AWorkingFileThatGivesFewerBytesThanItHadIsAFailure) {
    MiniZipWriteHandle archive(path());
    ZipEntryAppender appender(archive, path(), 0);
    WorkingFileEntry contents(ZipEntryPath(u"/a.txt"));
    fill(contents, "written");
    {
        const CutsAtARecord cut("m_checkoutPath.string()=", m_working.onlyFile());
        EXPECT_EQ(failureOf([&] { appender.appendFile(ZipEntryPath(u"/a.txt"), contents); }),
                  "its working file could not be read to the end");
    }
    archive.close();
}

} // namespace
