#include "FileSizeLimit.h"
#include "WorkingFolder.h"

#include <storage/zipprovider/src/WorkingEntryOpenException.h>
#include <storage/zipprovider/src/WorkingFileByteStream.h>

#include <fl/filesystem/FsysExceptionBase.h>
#include <foundation/log/ScopedRecordCollector.h>
#include <support/contents.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <functional>
#include <ios>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace kx::test;
using namespace storage::zipprovider;
using foundation::log::ScopedRecordCollector;
using foundation::log::severity;
using foundation::storage::provider::SeekOrigin;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr int reading = std::ios_base::in | std::ios_base::binary;
constexpr int writing = std::ios_base::out | std::ios_base::binary;
constexpr int overwriting = writing | std::ios_base::trunc;
constexpr int appending = writing | std::ios_base::app;

class WorkingFileStream : public testing::Test {
protected:
    std::unique_ptr<WorkingFileByteStream> open(int mode) {
        auto stream = std::make_unique<WorkingFileByteStream>(m_entry, mode);
        stream->addCloseListener([this] { ++m_closes; });
        stream->addAbandonListener([this] { ++m_abandons; });
        return stream;
    }

    void fill(const std::string& text) {
        WorkingFileByteStream stream(m_entry, overwriting);
        stream.addCloseListener([] {});
        writeAll(stream, text);
        stream.close();
    }

    std::string contents() {
        WorkingFileByteStream stream(m_entry, reading);
        return readAll(stream);
    }

    WorkingFolder m_folder;
    std::shared_ptr<WorkingFileEntry> m_entry = std::make_shared<WorkingFileEntry>(ZipEntryPath(u"/a.txt"));
    std::atomic<int> m_closes = 0;
    std::atomic<int> m_abandons = 0;
};

TEST_F(WorkingFileStream, ReadsFromItsPositionAndReturnsZeroAtTheEnd) {
    fill("0123456789");
    const auto stream = open(reading);
    char buffer[16] = {};
    EXPECT_EQ(stream->read(buffer, 4), 4);
    EXPECT_EQ(std::string(buffer, 4), "0123");
    EXPECT_EQ(stream->read(buffer, 0), 0);
    EXPECT_EQ(stream->read(buffer, 16), 6);
    EXPECT_EQ(std::string(buffer, 6), "456789");
    EXPECT_EQ(stream->read(buffer, 16), 0);
    EXPECT_EQ(stream->read(buffer, 16), 0);
}

TEST_F(WorkingFileStream, WritesAtItsPositionAndReturnsTheCount) {
    fill("0123456789");
    const auto stream = open(writing);
    EXPECT_EQ(stream->write("ab", 2), 2);
    EXPECT_EQ(stream->write("c", 1), 1);
    EXPECT_EQ(contents(), "abc3456789");
}

TEST_F(WorkingFileStream, OpenedToTruncateStartsEmpty) {
    fill("0123456789");
    const auto stream = open(overwriting);
    EXPECT_EQ(contents(), "");
    stream->write("ab", 2);
    EXPECT_EQ(contents(), "ab");
}

TEST_F(WorkingFileStream, OpenedToAppendWritesAtTheEndOfTheExistingContents) {
    fill("0123456789");
    const auto stream = open(appending);
    EXPECT_EQ(stream->write("ab", 2), 2);
    EXPECT_EQ(stream->seek(0, SeekOrigin::Begin), 0);
    EXPECT_EQ(stream->write("cd", 2), 2);
    EXPECT_EQ(contents(), "0123456789abcd");
}

TEST_F(WorkingFileStream, WritingZeroBytesReturnsZeroAndLeavesTheSizeUnchanged) {
    fill("0123456789");
    for (const int mode : {writing, appending}) {
        const auto stream = open(mode);
        EXPECT_EQ(stream->write("", 0), 0);
        EXPECT_EQ(stream->write(nullptr, 0), 0);
        EXPECT_EQ(m_entry->getCachedFileSize(), 10u);
    }
}

TEST_F(WorkingFileStream, SeeksInAllThreeDirectionsAndReturnsThePositionFromTheBegin) {
    fill("0123456789");
    for (const int mode : {reading, writing, reading | writing}) {
        const auto stream = open(mode);
        EXPECT_EQ(stream->seek(4, SeekOrigin::Begin), 4);
        EXPECT_EQ(stream->seek(2, SeekOrigin::Current), 6);
        EXPECT_EQ(stream->seek(-3, SeekOrigin::Current), 3);
        EXPECT_EQ(stream->seek(-1, SeekOrigin::End), 9);
        EXPECT_EQ(stream->seek(0, SeekOrigin::End), 10);
        EXPECT_EQ(stream->seek(0, SeekOrigin::Current), 10);
    }
}

TEST_F(WorkingFileStream, TellsItsPositionBehindWhatWasReadOrWritten) {
    fill("0123456789");
    const auto stream = open(reading | writing);
    char buffer[4];
    stream->read(buffer, 3);
    EXPECT_EQ(stream->seek(0, SeekOrigin::Current), 3);
    stream->write("ab", 2);
    EXPECT_EQ(stream->seek(0, SeekOrigin::Current), 5);
    EXPECT_EQ(stream->read(buffer, 2), 2);
    EXPECT_EQ(std::string(buffer, 2), "56");
    EXPECT_EQ(contents(), "012ab56789");
}

TEST_F(WorkingFileStream, LeavesZerosBetweenTheOldEndAndAWriteBeyondIt) {
    fill("01");
    const auto stream = open(writing);
    EXPECT_EQ(stream->seek(5, SeekOrigin::Begin), 5);
    stream->write("x", 1);
    EXPECT_EQ(contents(), std::string("01\0\0\0x", 6));
}

TEST_F(WorkingFileStream, ReportsAPositionBeforeTheBeginAndStaysUsable) {
    fill("0123456789");
    const auto stream = open(reading);
    stream->seek(4, SeekOrigin::Begin);
    EXPECT_THROW(stream->seek(-1, SeekOrigin::Begin), fl::filesystem::FsysExceptionBase);
    EXPECT_THROW(stream->seek(-11, SeekOrigin::End), fl::filesystem::FsysExceptionBase);
    EXPECT_EQ(stream->seek(0, SeekOrigin::Current), 4);
}

TEST_F(WorkingFileStream, ShowsAtOnceWhatAnotherStreamOnTheEntryWrites) {
    fill(std::string(5000, 'o'));
    const auto reader = open(reading);
    const auto writer = open(writing);
    char buffer[10];
    ASSERT_EQ(reader->read(buffer, 10), 10);
    writer->seek(10, SeekOrigin::Begin);
    writer->write("new", 3);
    ASSERT_EQ(reader->read(buffer, 5), 5);
    EXPECT_EQ(std::string(buffer, 5), "newoo");
    writer->seek(0, SeekOrigin::End);
    writer->write("end", 3);
    reader->seek(5000, SeekOrigin::Begin);
    EXPECT_EQ(reader->read(buffer, 10), 3);
    EXPECT_EQ(reader->read(buffer, 10), 0);
    writer->write("!", 1);
    EXPECT_EQ(reader->read(buffer, 10), 1);
}

TEST_F(WorkingFileStream, TwoWritersShareOneFile) {
    const auto first = open(writing);
    const auto second = open(appending);
    first->write("first", 5);
    second->write(" second", 7);
    EXPECT_EQ(contents(), "first second");
    EXPECT_EQ(m_folder.files().size(), 1u);
}

TEST_F(WorkingFileStream, ClosingAWritableOneTwiceNotifiesOnce) {
    const auto stream = open(overwriting);
    stream->close();
    EXPECT_EQ(m_closes, 1);
    stream->close();
    stream->close();
    EXPECT_EQ(m_closes, 1);
}

TEST_F(WorkingFileStream, ForReadingNeverNotifies) {
    auto stream = open(reading);
    stream->close();
    stream->close();
    stream.reset();
    open(reading).reset();
    EXPECT_EQ(m_closes, 0);
    EXPECT_EQ(m_abandons, 0);
}

TEST_F(WorkingFileStream, ForReadingNeedsNoListener) {
    WorkingFileByteStream stream(m_entry, reading);
    EXPECT_NO_THROW(stream.close());
}

TEST_F(WorkingFileStream, ForWritingClosedWithoutAListenerIsAnError) {
    WorkingFileByteStream stream(m_entry, overwriting);
    EXPECT_THROW(stream.close(), std::bad_function_call);
    EXPECT_NO_THROW(stream.close());
}

TEST_F(WorkingFileStream, ClosedByTwoThreadsAtOnceNotifiesOnce) {
    for (int round = 0; round < 200; ++round) {
        m_closes = 0;
        const auto stream = open(overwriting);
        stream->write("text", 4);
        std::atomic<int> ready = 0;
        const auto close = [&] {
            ++ready;
            while (ready < 2) {
            }
            stream->close();
        };
        std::thread other(close);
        close();
        other.join();
        ASSERT_EQ(m_closes, 1);
    }
}

TEST_F(WorkingFileStream, ClosesTheFileBeforeItNotifies) {
    const auto stream = open(overwriting);
    stream->write("text", 4);
    std::string seen;
    stream->addCloseListener([&] { seen = contents(); });
    stream->close();
    EXPECT_EQ(seen, "text");
}

TEST_F(WorkingFileStream, PassesOnWhatItsListenerThrowsAndCountsAsClosed) {
    auto stream = open(overwriting);
    int calls = 0;
    stream->addCloseListener([&] {
        ++calls;
        throw std::runtime_error("cannot flush: scripted");
    });
    EXPECT_THROW(stream->close(), std::runtime_error);
    EXPECT_NO_THROW(stream->close());
    EXPECT_NO_THROW(stream.reset());
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(m_abandons, 0);
}

TEST_F(WorkingFileStream, DestroyedWithoutCloseTellsThatItWasAbandoned) {
    open(overwriting).reset();
    EXPECT_EQ(m_abandons, 1);
    EXPECT_EQ(m_closes, 0);
}

TEST_F(WorkingFileStream, DestroyedWithoutCloseSwallowsAFailure) {
    auto stream = open(overwriting);
    stream->addAbandonListener([] { throw std::runtime_error("scripted"); });
    EXPECT_NO_THROW(stream.reset());
}

TEST_F(WorkingFileStream, KeepsTheWorkingFileAsLongAsItLives) {
    fill("text");
    auto stream = open(reading);
    m_entry.reset();
    EXPECT_EQ(readAll(*stream), "text");
    EXPECT_EQ(m_folder.files().size(), 1u);
    stream->close();
    EXPECT_EQ(m_folder.files().size(), 1u);
    stream.reset();
    EXPECT_THAT(m_folder.files(), IsEmpty());
}

TEST_F(WorkingFileStream, CannotBeOpenedToTruncateAndAppendAtOnce) {
    EXPECT_THROW(WorkingFileByteStream(m_entry, overwriting | appending), WorkingEntryOpenException);
}

TEST_F(WorkingFileStream, ReportsAFullDiskByTheWriteItself) {
    const auto stream = open(overwriting);
    {
        const FileSizeLimit limit(10'000);
        EXPECT_EQ(stream->write(std::string(10'000, 'x').data(), 10'000), 10'000);
        EXPECT_THROW(stream->write("y", 1), fl::filesystem::FsysExceptionBase);
    }
    EXPECT_EQ(m_entry->getCachedFileSize(), 10'000u);
}

TEST_F(WorkingFileStream, WhoseWriteHasFailedIsAbandonedByItsClose) {
    const auto stream = open(overwriting);
    {
        const FileSizeLimit limit(1'000);
        EXPECT_THROW(stream->write(std::string(10'000, 'x').data(), 10'000),
                     fl::filesystem::FsysExceptionBase);
    }
    EXPECT_EQ(stream->write("y", 1), 1);
    EXPECT_THROW(stream->close(), fl::filesystem::FsysExceptionBase);
    EXPECT_EQ(m_closes, 0);
    EXPECT_EQ(m_abandons, 1);
    EXPECT_NO_THROW(stream->close());
    EXPECT_EQ(m_abandons, 1);
}

TEST_F(WorkingFileStream, ReportsAWriteAfterItsClose) {
    const auto stream = open(overwriting);
    stream->close();
    EXPECT_THROW(stream->write("x", 1), fl::filesystem::FsysExceptionBase);
}

TEST_F(WorkingFileStream, RefusesNegativeCounts) {
    const auto stream = open(reading | writing);
    char buffer[1];
    EXPECT_THROW(stream->read(buffer, -1), std::invalid_argument);
    EXPECT_THROW(stream->write(buffer, -1), std::invalid_argument);
}

// --- what it logs

class LoggedStream : public WorkingFileStream {
protected:
    std::vector<foundation::log::CollectedRecord> records() const { return m_log.records(); }

    const ScopedRecordCollector m_log{severity::debug, {"storage::zipprovider::WorkingFileByteStream"}};
};

TEST_F(LoggedStream, SaysWhetherAWritableOneAppends) {
    const auto scope = AllOf(HasSubstr("WorkingFileByteStream::WorkingFileByteStream("),
                             HasSubstr(" src/storage/zipprovider/src/WorkingFileByteStream:"));
    open(reading);
    EXPECT_THAT(m_log.texts(), ElementsAre(scope));
    const auto appender = open(appending);
    const auto writer = open(writing);
    EXPECT_THAT(m_log.texts(),
                ElementsAre(scope, scope, "Does byte stream have open mode have append flag? 1", scope,
                            "Does byte stream have open mode have append flag? 0"));
    EXPECT_EQ(records()[2].level, severity::debug);
    EXPECT_EQ(records()[2].indent, records()[1].indent + 1);
}

TEST_F(LoggedStream, OfAWriteHasTheCountTheSizesBeforeAndAfterAndWhatWasWritten) {
    const auto stream = open(overwriting);
    stream->write("12345", 5);
    const auto made = records();
    ASSERT_EQ(made.size(), 7u);
    EXPECT_THAT(made[2].text, AllOf(HasSubstr("WorkingFileByteStream::doWrite("),
                                    HasSubstr(" src/storage/zipprovider/src/WorkingFileByteStream:")));
    EXPECT_EQ(made[3].text, " n=5");
    EXPECT_EQ(made[3].level, severity::info);
    EXPECT_EQ(made[3].indent, made[2].indent + 1);
    EXPECT_EQ(made[4].text, "Cached file size before write: 0");
    EXPECT_EQ(made[4].level, severity::debug);
    EXPECT_EQ(made[5].text, "Cached file size after write: 5");
    EXPECT_EQ(made[5].level, severity::debug);
    EXPECT_EQ(made[6].text, "(wrote) 5");
    EXPECT_EQ(made[6].indent, made[2].indent);
}

TEST_F(LoggedStream, OfASeekHasOffsetDirectionAndThePositionReached) {
    fill("0123456789");
    const auto stream = open(reading);
    const auto before = records().size();
    stream->seek(-3, SeekOrigin::End);
    const auto made = records();
    ASSERT_EQ(made.size(), before + 3);
    EXPECT_THAT(made[before].text, AllOf(HasSubstr("WorkingFileByteStream::doSeek("),
                                         HasSubstr(" src/storage/zipprovider/src/WorkingFileByteStream:")));
    EXPECT_EQ(made[before + 1].text, " off=-3 way=2");
    EXPECT_EQ(made[before + 2].text, "(to) 7");
}

TEST_F(LoggedStream, MarksAnOperationThatFails) {
    const auto stream = open(reading);
    EXPECT_THROW(stream->seek(-1, SeekOrigin::Begin), std::runtime_error);
    EXPECT_EQ(records().back().text, "[throw]");
}

TEST_F(LoggedStream, DestroyedWithoutCloseTellsWhatFailed) {
    auto stream = open(overwriting);
    stream->addAbandonListener([] { throw std::runtime_error("cannot save: scripted"); });
    stream.reset();
    EXPECT_EQ(records().back().text, "Abandoning an unclosed stream failed: cannot save: scripted");
    EXPECT_EQ(records().back().level, severity::info);
}

TEST_F(LoggedStream, OfACloseSaysWhetherTheFileSystemIsTold) {
    const auto logOfClosing = [&](int mode) {
        const auto stream = open(mode);
        const auto before = records().size();
        stream->close();
        const auto all = records();
        return std::vector(all.begin() + static_cast<std::ptrdiff_t>(before), all.end());
    };
    for (const int mode : {reading, overwriting}) {
        const auto made = logOfClosing(mode);
        ASSERT_EQ(made.size(), 2u);
        EXPECT_THAT(made[0].text, AllOf(HasSubstr("WorkingFileByteStream::doClose("),
                                        HasSubstr(" src/storage/zipprovider/src/WorkingFileByteStream:")));
        EXPECT_EQ(made[1].text, std::string("Will send closed signal to ZipFS if writable? ") +
                                    (mode == reading ? "0" : "1"));
        EXPECT_EQ(made[1].level, severity::debug);
        EXPECT_EQ(made[1].indent, made[0].indent + 1);
    }
}

} // namespace
