#include <foundation/log/ScopedRecordCollector.h>
#include <foundation/log/log.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/date_time/posix_time/posix_time.hpp>

#include <cstdint>
#include <filesystem>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace {

using foundation::log::basic_diagnostic_logger;
using foundation::log::CollectedRecord;
using foundation::log::ScopedRecordCollector;
using foundation::log::severity;
using testing::ElementsAre;
using testing::IsEmpty;

const basic_diagnostic_logger theLogger("test::records::Class");

enum class Way : std::uint8_t { Begin = 7 };

struct Unwritable {
    friend std::ostream& operator<<(std::ostream& out, const Unwritable&) {
        out << "half";
        throw std::runtime_error("cannot be written");
    }
};

TEST(LogRecord, HoldsChannelSeverityAndText) {
    const ScopedRecordCollector collector;
    KX_LOG(theLogger) << " path="
                      << "/docs";
    KX_LOG_DEBUG(theLogger) << "Is it there? " << true;
    EXPECT_THAT(collector.records(),
                ElementsAre(CollectedRecord{"test::records::Class", severity::info, 0, " path=/docs"},
                            CollectedRecord{"test::records::Class", severity::debug, 0, "Is it there? 1"}));
}

TEST(LogRecord, WritesValuesTheWayPeopleReadThem) {
    const ScopedRecordCollector collector;
    const std::u16string wide = u"\u00E4\U0001F600";
    const char* const missing = nullptr;
    KX_LOG(theLogger) << false << ' ' << true;
    KX_LOG(theLogger) << wide << ' ' << std::u16string_view(u"view") << ' ' << u"literal";
    KX_LOG(theLogger) << std::filesystem::path("/a b/c");
    KX_LOG(theLogger) << Way::Begin << ' ' << std::uint8_t{65} << ' ' << std::int8_t{-1};
    KX_LOG(theLogger) << std::uint64_t{18446744073709551615U} << ' ' << std::string("text") << ' ' << 'c';
    KX_LOG(theLogger) << missing;
    KX_LOG(theLogger) << boost::posix_time::time_from_string("2024-06-01 12:00:00");
    EXPECT_THAT(collector.texts(),
                ElementsAre("0 1", "\xC3\xA4\xF0\x9F\x98\x80 view literal", "/a b/c", "7 65 -1",
                            "18446744073709551615 text c", "(null)", "2024-Jun-01 12:00:00"));
}

TEST(LogRecord, IsNotBuiltWhileTheLoggerIsOff) {
    int evaluated = 0;
    const auto count = [&evaluated] { return ++evaluated; };
    KX_LOG(theLogger) << count();
    KX_LOG_DEBUG(theLogger) << count();
    EXPECT_FALSE(theLogger.enabled(severity::info));
    EXPECT_EQ(0, evaluated);
}

TEST(LogRecord, OfTheDebugLevelIsNotBuiltWhileOnlyInfoIsOn) {
    const ScopedRecordCollector collector(severity::info);
    int evaluated = 0;
    KX_LOG_DEBUG(theLogger) << ++evaluated;
    KX_LOG(theLogger) << "info";
    EXPECT_EQ(0, evaluated);
    EXPECT_THAT(collector.texts(), ElementsAre("info"));
}

TEST(LogRecord, IsAStatementThatStandsInAnIfWithoutBraces) {
    const ScopedRecordCollector collector;
    const bool no = false;
    if (no)
        KX_LOG(theLogger) << "yes";
    else
        KX_LOG(theLogger) << "no";
    EXPECT_THAT(collector.texts(), ElementsAre("no"));
}

TEST(LogRecord, PassesOnWhatAValueThrows) {
    const ScopedRecordCollector collector;
    EXPECT_THROW(KX_LOG(theLogger) << Unwritable(), std::runtime_error);
    KX_LOG(theLogger) << "goes on";
    EXPECT_EQ("goes on", collector.texts().back());
}

TEST(LogRecord, OfAnyLengthIsWhole) {
    const ScopedRecordCollector collector;
    const std::string text(100'000, 'x');
    KX_LOG(theLogger) << text;
    EXPECT_THAT(collector.texts(), ElementsAre(text));
}

TEST(ScopedRecordCollector, TakesOnlyTheChannelsSelected) {
    const basic_diagnostic_logger sameNamespace("test::records::Other");
    const basic_diagnostic_logger otherNamespace("test::recordsets::Class");
    const ScopedRecordCollector one(severity::debug, {"test::records::Class"});
    const ScopedRecordCollector space(severity::debug, {"test::records", "unknown"});
    KX_LOG(theLogger) << "a";
    KX_LOG(sameNamespace) << "b";
    KX_LOG(otherNamespace) << "c";
    EXPECT_FALSE(otherNamespace.enabled(severity::info));
    EXPECT_THAT(one.texts(), ElementsAre("a"));
    EXPECT_THAT(space.texts(), ElementsAre("a", "b"));
}

TEST(ScopedRecordCollector, TakesOnlyItsOwnLevelWhenAnotherTakesMore) {
    const ScopedRecordCollector info(severity::info);
    {
        const ScopedRecordCollector debug(severity::debug);
        KX_LOG_DEBUG(theLogger) << "details";
        EXPECT_THAT(debug.texts(), ElementsAre("details"));
    }
    EXPECT_THAT(info.texts(), IsEmpty());
    EXPECT_FALSE(theLogger.enabled(severity::debug));
    EXPECT_TRUE(theLogger.enabled(severity::info));
}

TEST(ScopedRecordCollector, SwitchesOnLoggersThatAreMadeLater) {
    const ScopedRecordCollector collector(severity::debug, {"test::later"});
    const basic_diagnostic_logger later("test::later::Class");
    KX_LOG(later) << "made";
    EXPECT_THAT(collector.texts(), ElementsAre("made"));
}

TEST(ScopedRecordCollector, TakesTheRecordsOfAllThreads) {
    const ScopedRecordCollector collector;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([i] {
            for (int j = 0; j < 100; ++j) {
                KX_LOG(theLogger) << i << '/' << j;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const auto texts = collector.texts();
    EXPECT_EQ(400U, texts.size());
    EXPECT_EQ(400U, std::set<std::string>(texts.begin(), texts.end()).size());
}

TEST(ScopedRecordCollector, CanComeAndGoWhileThreadsLog) {
    std::atomic<bool> stop = false;
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&stop] {
            while (!stop) {
                KX_LOG_FUNCTION(theLogger);
                KX_LOG_DEBUG(theLogger) << "busy";
                std::this_thread::yield();
            }
        });
    }
    for (int i = 0; i < 50; ++i) {
        const ScopedRecordCollector collector;
        while (collector.records().empty()) {
            std::this_thread::yield();
        }
    }
    stop = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_FALSE(theLogger.enabled(severity::info));
}

} // namespace
