#include <foundation/log/ScopedRecordCollector.h>
#include <foundation/log/indent_attribute.h>
#include <foundation/log/log.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using foundation::log::basic_diagnostic_logger;
using foundation::log::CollectedRecord;
using foundation::log::indent_attribute;
using foundation::log::ScopedRecordCollector;
using foundation::log::severity;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::Field;
using testing::HasSubstr;
using testing::StartsWith;

const basic_diagnostic_logger theLogger("test::scopes::Class");
const basic_diagnostic_logger quiet("test::quiet::Class");

testing::Matcher<CollectedRecord> record(unsigned indent, const testing::Matcher<std::string>& text) {
    return AllOf(Field("indent", &CollectedRecord::indent, indent),
                 Field("text", &CollectedRecord::text, text));
}

class Device {
public:
    long write(const char* data, long count) {
        KX_LOG_FUNCTION_AS(scope, theLogger);
        KX_LOG(theLogger) << " n=" << count;
        if (data == nullptr) {
            throw std::invalid_argument("no data");
        }
        return scope.wrote(count);
    }

    long seek(long offset) {
        KX_LOG_FUNCTION_AS(scope, theLogger);
        return scope.to(offset + 1);
    }
};

void outermost(int depth) {
    KX_LOG_FUNCTION(theLogger);
    KX_LOG_DEBUG(theLogger) << "depth=" << depth;
    if (depth > 1) {
        outermost(depth - 1);
    }
    KX_LOG(theLogger) << "back=" << depth;
}

TEST(FunctionScope, BeginsWithTheSignatureTheSourceWithoutExtensionAndTheLine) {
    const ScopedRecordCollector collector;
    const int line = __LINE__ + 1;
    const auto call = [](int, const std::string&) { KX_LOG_FUNCTION(theLogger); };
    call(1, "x");
    ASSERT_EQ(1U, collector.records().size());
    const CollectedRecord begin = collector.records().front();
    EXPECT_EQ(severity::info, begin.level);
    EXPECT_EQ("test::scopes::Class", begin.channel);
    EXPECT_THAT(begin.text, EndsWith(" tests/foundation/FunctionScopeTest:" + std::to_string(line)));
    EXPECT_THAT(begin.text, HasSubstr("int, const std::string"));
}

TEST(FunctionScope, TellsTheFullSignatureOfAMember) {
    const ScopedRecordCollector collector;
    Device().seek(0);
    EXPECT_THAT(collector.texts().front(), HasSubstr("Device::seek(long"));
}

TEST(FunctionScope, IndentsWhatIsLoggedInsideByNesting) {
    const ScopedRecordCollector collector;
    outermost(2);
    EXPECT_THAT(collector.records(),
                ElementsAre(record(0, HasSubstr("outermost(int) ")), record(1, "depth=2"),
                            record(1, HasSubstr("outermost(int) ")), record(2, "depth=1"),
                            record(2, "back=1"), record(1, "back=2")));
    EXPECT_EQ(0U, indent_attribute::current());
}

TEST(FunctionScope, EndsWithWhatWasWritten) {
    const ScopedRecordCollector collector;
    EXPECT_EQ(5, Device().write("hello", 5));
    EXPECT_THAT(collector.records(), ElementsAre(record(0, HasSubstr("Device::write")), record(1, " n=5"),
                                                 record(0, "(wrote) 5")));
}

TEST(FunctionScope, EndsWithThePositionThatWasReached) {
    const ScopedRecordCollector collector;
    EXPECT_EQ(8, Device().seek(7));
    EXPECT_THAT(collector.records(), ElementsAre(record(0, HasSubstr("Device::seek")), record(0, "(to) 8")));
}

TEST(FunctionScope, EndsWithAnyOtherResultBehindItsMarker) {
    const ScopedRecordCollector collector;
    const auto find = [] {
        KX_LOG_FUNCTION_AS(scope, theLogger);
        return scope.result("(found)", std::u16string(u"\u00E4"));
    };
    EXPECT_EQ(u"\u00E4", find());
    EXPECT_EQ("(found) \xC3\xA4", collector.texts().back());
}

TEST(FunctionScope, IsMarkedWhenAnExceptionLeavesIt) {
    const ScopedRecordCollector collector;
    EXPECT_THROW(Device().write(nullptr, 5), std::invalid_argument);
    EXPECT_THAT(collector.records(),
                ElementsAre(record(0, HasSubstr("Device::write")), record(1, " n=5"), record(0, "[throw]")));
    EXPECT_EQ(0U, indent_attribute::current());
}

TEST(FunctionScope, IsNotMarkedWhenItRunsBecauseOfAnExceptionThatLeftAnother) {
    const ScopedRecordCollector collector;
    struct Cleaner {
        ~Cleaner() { Device().seek(1); }
    };
    try {
        const Cleaner cleaner;
        throw std::runtime_error("on its way");
    } catch (const std::runtime_error&) {
    }
    EXPECT_THAT(collector.texts(), ElementsAre(StartsWith("long"), "(to) 2"));
}

TEST(FunctionScope, IsMarkedNoMoreOnceTheExceptionWasCaughtInside) {
    const ScopedRecordCollector collector;
    const auto careful = [] {
        KX_LOG_FUNCTION(theLogger);
        try {
            Device().write(nullptr, 1);
        } catch (const std::invalid_argument&) {
        }
    };
    careful();
    EXPECT_THAT(collector.records(),
                ElementsAre(record(0, HasSubstr(" tests/foundation/FunctionScopeTest:")),
                            record(1, HasSubstr("Device::write")), record(2, " n=1"), record(1, "[throw]")));
}

TEST(FunctionScope, OfAChannelThatIsOffDoesNotIndent) {
    const ScopedRecordCollector collector(severity::debug, {"test::scopes"});
    const auto call = [] {
        KX_LOG_FUNCTION_AS(scope, quiet);
        KX_LOG(theLogger) << "inside";
        return scope.wrote(1);
    };
    EXPECT_EQ(1, call());
    EXPECT_THAT(collector.records(), ElementsAre(record(0, "inside")));
}

TEST(FunctionScope, KeepsTheIndentationOfEachThreadToItself) {
    const ScopedRecordCollector collector;
    KX_LOG_FUNCTION(theLogger);
    unsigned elsewhere = 99;
    std::thread([&elsewhere] { elsewhere = indent_attribute::current(); }).join();
    EXPECT_EQ(0U, elsewhere);
    EXPECT_EQ(1U, indent_attribute::current());
}

TEST(FunctionScope, ThatIsOpenWhenLoggingIsSwitchedOffPutsTheIndentationBack) {
    auto collector = std::make_unique<ScopedRecordCollector>();
    {
        KX_LOG_FUNCTION_AS(scope, theLogger);
        EXPECT_EQ(1U, indent_attribute::current());
        collector.reset();
        scope.wrote(1);
    }
    EXPECT_EQ(0U, indent_attribute::current());
}

} // namespace
