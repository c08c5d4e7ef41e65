#include "FileSizeLimit.h"
#include "ReadArchive.h"
#include "WorkingFolder.h"

#include <storage/zipprovider/src/MiniZipException.h>
#include <storage/zipprovider/src/TimeSource.h>
#include <storage/zipprovider/src/WorkingEntryOpenException.h>
#include <storage/zipprovider/src/WorkingFileEntry.h>

#include <fl/filesystem/FsysExceptionBase.h>
#include <foundation/core/except/throwInternal.h>
#include <foundation/log/ScopedRecordCollector.h>
#include <support/archives/ArchiveBuilder.h>
#include <support/contents.h>

#include <boost/date_time/posix_time/posix_time.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

namespace {

using namespace kx::test;
using namespace storage::zipprovider;
using foundation::log::ScopedRecordCollector;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr int reading = std::ios_base::in | std::ios_base::binary;
constexpr int writing = std::ios_base::out | std::ios_base::binary;

/// Delivers a text, then fails if told to.
class TextSource final : public IEntrySource {
public:
    explicit TextSource(std::string text, bool fails = false) : m_text(std::move(text)), m_fails(fails) {}

    std::int64_t read(char* buffer, std::int64_t count) override {
        const auto now = std::min<std::size_t>(static_cast<std::size_t>(count), m_text.size() - m_position);
        if (now == 0 && m_fails) {
            foundation::core::except::throwInternal(MiniZipException(u"scripted"));
        }
        m_text.copy(buffer, now, m_position);
        m_position += now;
        return static_cast<std::int64_t>(now);
    }

private:
    std::string m_text;
    bool m_fails;
    std::size_t m_position = 0;
};

std::string bytesOf(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios_base::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

class WorkingFile : public testing::Test {
protected:
    std::shared_ptr<WorkingFileEntry> filledWith(const std::string& text) {
        TextSource source(text);
        return std::make_shared<WorkingFileEntry>(m_path, source);
    }

    const ZipEntryPath m_path{u"/docs/a.txt"};
    WorkingFolder m_folder;
};

TEST_F(WorkingFile, OfAnEmptyEntryDestroyedWithoutUseIsNeverMade) {
    {
        const WorkingFileEntry entry(m_path);
        EXPECT_THAT(m_folder.files(), IsEmpty());
        EXPECT_EQ(entry.path(), m_path);
    }
    EXPECT_THAT(m_folder.files(), IsEmpty());
}

TEST_F(WorkingFile, OfAnEmptyEntryIsMadeAndDeletedAtOnceWhenItsSizeIsLoggedAtRemoval) {
    const ScopedRecordCollector log(foundation::log::severity::debug,
                                    {"storage::zipprovider::WorkingFileEntry"});
    { const WorkingFileEntry entry(m_path); }
    EXPECT_THAT(m_folder.files(), IsEmpty());
    EXPECT_THAT(log.texts(),
                ElementsAre(HasSubstr("WorkingFileEntry::doRemove("), "Removing ", "Size before removal: 0"));
}

TEST_F(WorkingFile, IsMadeByTheFirstUseWhicheverThatIs) {
    const auto isMadeBy = [&](auto use) {
        WorkingFileEntry entry(m_path);
        EXPECT_THAT(m_folder.files(), IsEmpty());
        use(entry);
        EXPECT_THAT(m_folder.files(), ElementsAre(AllOf(StartsWith("zipProvider-"), EndsWith(".cache"))));
        use(entry);
        EXPECT_EQ(m_folder.files().size(), 1u);
    };
    isMadeBy([](WorkingFileEntry& entry) { EXPECT_EQ(entry.getCachedFileSize(), 0u); });
    isMadeBy([](WorkingFileEntry& entry) { EXPECT_FALSE(entry.getCachedFileLastModified().is_special()); });
    isMadeBy([](WorkingFileEntry& entry) { entry.doGetFileDevice(reading); });
    isMadeBy([](WorkingFileEntry& entry) { EXPECT_TRUE(entry.checkoutPath().is_absolute()); });
    EXPECT_THAT(m_folder.files(), IsEmpty());
}

TEST_F(WorkingFile, CanBeReadByItsOwnerAlone) {
    const auto entry = filledWith("secret");
    using std::filesystem::perms;
    const auto permissions = std::filesystem::status(m_folder.onlyFile()).permissions();
    EXPECT_EQ(permissions & (perms::group_all | perms::others_all), perms::none);
}

TEST_F(WorkingFile, HasAsManyBytesAsTheSourceDelivered) {
    for (const std::size_t size : {0u, 1u, 8191u, 8192u, 8193u, 65'535u, 65'536u, 65'537u, 100'000u}) {
        const auto text = randomBytes(size, 1);
        const auto entry = filledWith(text);
        EXPECT_EQ(entry->getCachedFileSize(), size);
        EXPECT_EQ(bytesOf(m_folder.onlyFile()), text);
    }
}

TEST_F(WorkingFile, IsFilledFromAnEntryOfAnArchive) {
    EntrySource source(openArchive(simpleArchive({{"docs/a.txt", std::string(30'000, 'a')}})),
                       ZipEntryPath(u"docs/a.txt"));
    WorkingFileEntry entry(m_path, source);
    EXPECT_EQ(bytesOf(entry.checkoutPath()), std::string(30'000, 'a'));
}

TEST_F(WorkingFile, IsRemovedWhenTheSourceFails) {
    TextSource source(std::string(20'000, 'x'), true);
    EXPECT_THROW(WorkingFileEntry(m_path, source), MiniZipException);
    EXPECT_THAT(m_folder.files(), IsEmpty());
}

TEST_F(WorkingFile, IsOneFileForAllDevices) {
    const auto entry = filledWith("0123456789");
    auto first = entry->doGetFileDevice(writing);
    auto second = entry->doGetFileDevice(reading);
    EXPECT_EQ(m_folder.files().size(), 1u);
    first.write("ab", 2);
    first.close();
    char buffer[10];
    EXPECT_EQ(second.read(buffer, 10), 10);
    EXPECT_EQ(std::string(buffer, 10), "ab23456789");
}

TEST_F(WorkingFile, IsOpenedForReadingAndWritingWhateverTheMode) {
    const auto entry = filledWith("0123456789");
    auto device = entry->doGetFileDevice(writing);
    char buffer[4];
    EXPECT_EQ(device.read(buffer, 4), 4);
    EXPECT_EQ(std::string(buffer, 4), "0123");
}

TEST_F(WorkingFile, IsCutByADeviceOpenedToTruncate) {
    const auto entry = filledWith("0123456789");
    entry->doGetFileDevice(writing | std::ios_base::trunc);
    EXPECT_EQ(entry->getCachedFileSize(), 0u);
}

TEST_F(WorkingFile, TellsTheSizeThatTheFileHasAtTheMoment) {
    const auto entry = filledWith("0123456789");
    std::filesystem::resize_file(m_folder.onlyFile(), 4711);
    EXPECT_EQ(entry->getCachedFileSize(), 4711u);
}

TEST_F(WorkingFile, TellsWhenTheFileWasModifiedInUniversalTime) {
    const auto before = boost::posix_time::microsec_clock::universal_time() - boost::posix_time::seconds(2);
    const auto entry = filledWith("text");
    const auto time = entry->getCachedFileLastModified();
    EXPECT_GE(time, before);
    EXPECT_LE(time, boost::posix_time::microsec_clock::universal_time() + boost::posix_time::seconds(2));
}

class FixedTime final : public TimeSource {
public:
    boost::posix_time::ptime lastModified(const fl::filesystem::path&) const override { return time(); }
    static boost::posix_time::ptime time() {
        return boost::posix_time::ptime(boost::gregorian::date(2001, 2, 3));
    }
};

TEST_F(WorkingFile, HasItsTimeFromTheTimeSource) {
    const auto entry = filledWith("text");
    TimeSource::set(std::make_shared<FixedTime>());
    EXPECT_EQ(entry->getCachedFileLastModified(), FixedTime::time());
    TimeSource::set(nullptr);
    EXPECT_NE(entry->getCachedFileLastModified(), FixedTime::time());
}

TEST_F(WorkingFile, ThatCannotBeOpenedIsReportedWithTheEntrysPath) {
    const auto entry = filledWith("text");
    const auto failure = [&](int mode) -> std::string {
        try {
            entry->doGetFileDevice(mode);
        } catch (WorkingEntryOpenException& error) {
            return error.what();
        }
        return {};
    };
    EXPECT_EQ(failure(writing | std::ios_base::trunc | std::ios_base::app),
              "Working entry /docs/a.txt could not be opened");
    std::filesystem::remove(m_folder.onlyFile());
    EXPECT_EQ(failure(reading), "Working entry /docs/a.txt could not be opened");
    EXPECT_THROW(entry->getCachedFileSize(), fl::filesystem::FsysExceptionBase);
}

TEST_F(WorkingFile, ThatCannotBeMadeIsAFailureOfTheLocalFileSystem) {
    WorkingFileEntry entry(m_path);
    TextSource source("text");
    // Nobody can make a file there.
    setenv("TMPDIR", "/proc", 1);
    EXPECT_THROW(entry.getCachedFileSize(), fl::filesystem::FsysExceptionBase);
    EXPECT_THROW(entry.doGetFileDevice(reading), fl::filesystem::FsysExceptionBase);
    EXPECT_THROW(WorkingFileEntry(m_path, source), fl::filesystem::FsysExceptionBase);
    setenv("TMPDIR", m_folder.path().c_str(), 1);
    EXPECT_EQ(entry.getCachedFileSize(), 0u);
    EXPECT_EQ(m_folder.files().size(), 1u);
}

TEST_F(WorkingFile, ThatDoesNotHoldEveryByteIsAFailureAndDoesNotStay) {
    // Of so few bytes none reaches the disk before the file is closed.
    for (const std::size_t size : {100u, 8192u, 8200u, 100'000u}) {
        const FileSizeLimit limit(size - 1);
        TextSource source(std::string(size, 'x'));
        try {
            const WorkingFileEntry entry(m_path, source);
            ADD_FAILURE() << "a working file of " << size << " bytes is taken for whole";
        } catch (fl::filesystem::FsysExceptionBase& error) {
            EXPECT_EQ(error.getErrorCode(), std::errc::file_too_large);
            EXPECT_THAT(error.what(), AllOf(StartsWith("cannot write "), HasSubstr("zipProvider-")));
        } catch (const MiniZipException& error) {
            // The copy itself notices it when more is to come.
            EXPECT_STREQ(error.what(),
                         "Error; output stream has bad state in MiniZipEntrySerializer::doWrite");
            EXPECT_GT(size, 8192u);
        }
        EXPECT_THAT(m_folder.files(), IsEmpty());
    }
}

TEST_F(WorkingFile, GoesWithTheEntryAndStaysAsLongAsAnyoneHoldsIt) {
    auto entry = filledWith("text");
    const auto other = entry;
    entry.reset();
    EXPECT_EQ(m_folder.files().size(), 1u);
    EXPECT_EQ(other->getCachedFileSize(), 4u);
}

TEST_F(WorkingFile, ThatIsGoneAlreadyDoesNotDisturbTheEndOfTheEntry) {
    const ScopedRecordCollector log;
    auto entry = filledWith("text");
    std::filesystem::remove(m_folder.onlyFile());
    EXPECT_NO_THROW(entry.reset());
}

TEST_F(WorkingFile, CanBeRemovedBeforeTheEntryGoes) {
    auto entry = filledWith("text");
    entry->doRemove();
    EXPECT_THAT(m_folder.files(), IsEmpty());
    EXPECT_NO_THROW(entry->doRemove());
    entry.reset();
    EXPECT_THAT(m_folder.files(), IsEmpty());
}

TEST_F(WorkingFile, IsNotReusedByAnotherEntryOfTheSamePath) {
    const auto first = filledWith("1");
    const auto second = filledWith("2");
    EXPECT_NE(first->checkoutPath(), second->checkoutPath());
    EXPECT_EQ(bytesOf(first->checkoutPath()), "1");
}

TEST_F(WorkingFile, IsMadeOnceWhenSeveralThreadsNeedItAtTheSameTime) {
    for (int round = 0; round < 20; ++round) {
        WorkingFileEntry entry(m_path);
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&entry] {
                entry.getCachedFileSize();
                entry.getCachedFileLastModified();
                entry.doGetFileDevice(reading);
            });
        }
        for (auto& thread : threads) {
            thread.join();
        }
        ASSERT_EQ(m_folder.files().size(), 1u);
    }
}

TEST_F(WorkingFile, IsCopiedWithItsContentsAndTime) {
    const auto entry = filledWith("text");
    const auto time = std::filesystem::last_write_time(entry->checkoutPath()) - std::chrono::hours(1);
    std::filesystem::last_write_time(entry->checkoutPath(), time);
    const auto copy = entry->copy();
    EXPECT_EQ(copy->path(), entry->path());
    EXPECT_NE(copy->checkoutPath(), entry->checkoutPath());
    EXPECT_EQ(copy->getCachedFileLastModified(), entry->getCachedFileLastModified());
    entry->doGetFileDevice(writing | std::ios_base::trunc);
    EXPECT_EQ(entry->getCachedFileSize(), 0u);
    EXPECT_EQ(copy->getCachedFileSize(), 4u);
}

TEST_F(WorkingFile, LogsWhatIsDoneWithIt) {
    const ScopedRecordCollector log;
    auto entry = filledWith("text");
    const auto path = m_folder.onlyFile().string();
    entry->doGetFileDevice(reading);
    entry->getCachedFileLastModified();
    entry.reset();
    const auto records = log.records();
    ASSERT_EQ(records.size(), 6u);
    for (const auto& record : records) {
        EXPECT_EQ(record.channel, "storage::zipprovider::WorkingFileEntry");
    }
    EXPECT_THAT(records[0].text, AllOf(HasSubstr("WorkingFileEntry::WorkingFileEntry("),
                                       HasSubstr(" src/storage/zipprovider/src/WorkingFileEntry:")));
    EXPECT_EQ(records[0].level, foundation::log::severity::info);
    EXPECT_THAT(records[1].text, AllOf(HasSubstr("WorkingFileEntry::doGetFileDevice(int)"),
                                       HasSubstr(" src/storage/zipprovider/src/WorkingFileEntry:")));
    EXPECT_EQ(records[2].text, " m_checkoutPath.string()=" + path);
    EXPECT_EQ(records[2].level, foundation::log::severity::debug);
    EXPECT_EQ(records[2].indent, records[1].indent + 1);
    EXPECT_THAT(records[3].text, AllOf(HasSubstr("WorkingFileEntry::doRemove("),
                                       HasSubstr(" src/storage/zipprovider/src/WorkingFileEntry:")));
    EXPECT_EQ(records[4].text, "Removing " + path);
    EXPECT_EQ(records[4].level, foundation::log::severity::debug);
    EXPECT_EQ(records[4].indent, records[3].indent + 1);
    EXPECT_EQ(records[5].text, "Size before removal: 4");
    EXPECT_EQ(records[5].level, foundation::log::severity::debug);
}

TEST_F(WorkingFile, MarksAScopeThatAnExceptionLeaves) {
    const ScopedRecordCollector log(foundation::log::severity::info);
    TextSource source("text", true);
    EXPECT_THROW(WorkingFileEntry(m_path, source), MiniZipException);
    EXPECT_THAT(log.texts(), ElementsAre(HasSubstr("WorkingFileEntry::WorkingFileEntry("),
                                         HasSubstr("WorkingFileEntry::doRemove("), "[throw]"));
}

} // namespace
