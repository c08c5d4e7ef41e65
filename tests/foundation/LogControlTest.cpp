#include "Environment.h"

#include <foundation/log/control.h>
#include <foundation/log/log.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <optional>
#include <regex>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using foundation::log::basic_diagnostic_logger;
using foundation::log::severity;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

const basic_diagnostic_logger theLogger("test::control::Class");

// The regular expressions of GoogleTest know almost nothing on some systems.
MATCHER_P(ContainsPattern, pattern, "contains the pattern " + std::string(pattern)) {
    return std::regex_search(arg, std::regex(pattern));
}

/// The lines that the probe writes to standard error.
std::vector<std::string> probe(const std::optional<std::string>& kxLog, const std::string& arguments = "") {
    const ScopedEnvironment environment("KX_LOG", kxLog);
    const std::string command = std::string(KX_LOG_PROBE) + ' ' + arguments + " 2>&1 >/dev/null";
    FILE* const pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr) {
        throw std::runtime_error("cannot run " + command);
    }
    std::string output;
    std::array<char, 4096> buffer{};
    while (const std::size_t count = std::fread(buffer.data(), 1, buffer.size(), pipe)) {
        output.append(buffer.data(), count);
    }
    EXPECT_EQ(0, ::pclose(pipe)) << command;
    std::vector<std::string> lines;
    for (std::size_t begin = 0; begin < output.size();) {
        const std::size_t end = output.find('\n', begin);
        lines.push_back(output.substr(begin, end - begin));
        begin = end == std::string::npos ? output.size() : end + 1;
    }
    return lines;
}

TEST(LogControl, NothingIsLoggedUnlessSwitchedOn) {
    EXPECT_THAT(probe(std::nullopt), IsEmpty());
    EXPECT_THAT(probe(""), IsEmpty());
    EXPECT_THAT(probe("off"), IsEmpty());
}

TEST(LogControl, KxLogInfoLogsScopesArgumentsAndResults) {
    const auto lines = probe("info");
    ASSERT_THAT(lines, SizeIs(4));
    EXPECT_THAT(
        lines[0],
        ContainsPattern("info  probe::outer::Class: void .*run\\(\\) tests/foundation/log_probe:[0-9]+$"));
    EXPECT_THAT(lines[1], HasSubstr("info  probe::outer::Class:    path=/d"));
    EXPECT_THAT(lines[2], HasSubstr("info  probe::inner::Class:   int"));
    EXPECT_THAT(lines[3], EndsWith("info  probe::inner::Class:   (wrote) 3"));
}

TEST(LogControl, KxLogDebugLogsTheDetailsToo) {
    const auto lines = probe("debug");
    ASSERT_THAT(lines, SizeIs(5));
    EXPECT_THAT(lines[3], EndsWith("debug probe::inner::Class:     Size before write: 5"));
}

TEST(LogControl, KxLogSelectsChannelsByNameOrNamespace) {
    EXPECT_THAT(probe("debug:probe::inner::Class"), SizeIs(3));
    EXPECT_THAT(probe("info:probe::inner"), SizeIs(2));
    EXPECT_THAT(probe("debug:probe::outer,probe::inner::Class"), SizeIs(5));
    EXPECT_THAT(probe("debug:probe::in"), IsEmpty());
}

TEST(LogControl, LinesBeginWithTheTimeInUtc) {
    EXPECT_THAT(probe("info").front(),
                ContainsPattern("^[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}(\\.[0-9]+)?Z "));
}

TEST(LogControl, ARecordIsOneLineWithoutControlCharacters) {
    EXPECT_THAT(probe("info")[1], EndsWith(" path=/d\xC3\xA4\\x0a\\x1b[31m"));
}

TEST(LogControl, AKxLogThatCannotBeReadGivesAMessageAndLogsNothing) {
    EXPECT_THAT(
        probe("verbose"),
        ElementsAre(
            "KX_LOG: cannot read log selection \"verbose\": expected info, debug or off, and channels "
            "behind a colon"));
    EXPECT_THAT(probe("debug:"),
                ElementsAre("KX_LOG: cannot read log selection \"debug:\": a channel has no name"));
    EXPECT_THAT(probe("debug:a,,b"), ElementsAre(HasSubstr("a channel has no name")));
}

TEST(LogControl, TheProgramsOwnSelectionReplacesThatOfKxLog) {
    EXPECT_THAT(probe("debug", "off"), SizeIs(5));
    EXPECT_THAT(probe("off", "info"), SizeIs(4));
    EXPECT_THAT(probe(std::nullopt, "debug info off"), SizeIs(9));
}

TEST(LogControl, ASelectionThatCannotBeReadChangesNothing) {
    const auto lines = probe("info", "loud");
    ASSERT_THAT(lines, SizeIs(9));
    EXPECT_THAT(lines[4], StartsWith("cannot read log selection \"loud\""));
}

TEST(LogControl, EnableAndDisableSwitchTheLoggersOfTheChannels) {
    const basic_diagnostic_logger other("test::other::Class");
    foundation::log::enable(severity::info, {"test::control"});
    EXPECT_TRUE(theLogger.enabled(severity::info));
    EXPECT_FALSE(theLogger.enabled(severity::debug));
    EXPECT_FALSE(other.enabled(severity::info));
    foundation::log::enable(severity::debug);
    EXPECT_TRUE(theLogger.enabled(severity::debug));
    EXPECT_TRUE(other.enabled(severity::debug));
    foundation::log::disable();
    EXPECT_FALSE(theLogger.enabled(severity::info));
    EXPECT_FALSE(other.enabled(severity::info));
}

TEST(LogControl, LoggersOfOneNameShareTheirChannel) {
    const basic_diagnostic_logger same("test::control::Class");
    EXPECT_EQ(&theLogger.channel(), &same.channel());
}

} // namespace
