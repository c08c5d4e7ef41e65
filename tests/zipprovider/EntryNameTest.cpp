#include <storage/zipprovider/src/EntryName.h>

#include <support/TemporaryFolder.h>
#include <support/archives/Process.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace {

using kx::test::ProcessOptions;
using kx::test::runProcess;
using kx::test::TemporaryFolder;

/// What a process in the environment decodes names to, one a line.
std::string decodedBy(const std::string& lines,
                      std::vector<std::pair<std::string, std::string>> environment) {
    ProcessOptions options;
    options.input = lines;
    options.environment = std::move(environment);
    const auto result = runProcess({KX_ENTRY_NAME_PROBE}, options);
    EXPECT_TRUE(result.ok()) << result.errors;
    // What is printed as text ends its lines as the system does.
    auto decoded = result.output;
    std::erase(decoded, '\r');
    return decoded;
}

struct CodeSet {
    const char* name;
    const char* language;
    std::string stored;
    std::string decoded;
};

/// For the messages of GoogleTest.
void PrintTo(const CodeSet& codeSet, std::ostream* out) {
    *out << codeSet.name;
}

class StoredName : public testing::TestWithParam<CodeSet> {};

TEST_P(StoredName, WithoutTheUtf8FlagIsDecodedInTheSystemCodeSetAndWithItAsUtf8) {
    const auto& codeSet = GetParam();
    const TemporaryFolder locales;
    const std::string locale = std::string(codeSet.language) + "." + codeSet.name;
    // It reports failure for characters that a code set lacks, and makes the locale all the same.
    runProcess({"localedef", "--no-archive", "-c", "-i", codeSet.language, "-f", codeSet.name,
                locales.file(locale).string()});
    if (!std::filesystem::exists(locales.file(locale) / "LC_CTYPE")) {
        GTEST_SKIP() << "this system cannot make a locale for " << codeSet.name
                     << " (package locales is not installed)";
    }
    const auto decoded =
        decodedBy("s" + codeSet.stored + "\nu" + codeSet.decoded + "\ns" + codeSet.decoded + "\n",
                  {{"LOCPATH", locales.path().string()}, {"LC_ALL", locale}});
    const auto firstTwo = codeSet.decoded + "\n" + codeSet.decoded + "\n";
    EXPECT_EQ(decoded.substr(0, firstTwo.size()), firstTwo);
    // Bytes that are UTF-8 are not taken for it where the flag is missing.
    EXPECT_NE(decoded.substr(firstTwo.size()), codeSet.decoded + "\n");
}

INSTANTIATE_TEST_SUITE_P(
    CodeSets, StoredName,
    testing::Values(CodeSet{"ISO-8859-1", "en_US", "gr\xFC\xDF", "gr\xC3\xBC\xC3\x9F"},
                    CodeSet{"IBM437", "en_US", "gr\x81\xE1", "gr\xC3\xBC\xC3\x9F"},
                    CodeSet{"KOI8-R", "ru_RU", "\xD4\xC5\xD3\xD4", "\xD1\x82\xD0\xB5\xD1\x81\xD1\x82"},
                    CodeSet{"SHIFT_JIS", "ja_JP", "\x93\xFA\x96\x7B", "\xE6\x97\xA5\xE6\x9C\xAC"},
                    CodeSet{"EUC-JP", "ja_JP", "\xC6\xFC", "\xE6\x97\xA5"}),
    [](const auto& suite) {
        std::string name = suite.param.name;
        std::erase_if(name, [](char c) { return c == '-' || c == '_'; });
        return name;
    });

TEST(EntryName, IsDecodedAsUtf8InTheCLocaleWhateverItsFlag) {
    for (const char* locale : {"C", "POSIX", "C.UTF-8", "xx_XX.nothing"}) {
        EXPECT_EQ(decodedBy("sgr\xC3\xBC\nugr\xC3\xBC\n", {{"LC_ALL", locale}}), "gr\xC3\xBC\ngr\xC3\xBC\n");
    }
}

TEST(EntryName, GetsReplacementCharactersForBytesThatMeanNothing) {
    EXPECT_EQ(decodedBy("sa\xFC\xDF\nua\xFC\xDF\n", {{"LC_ALL", "C"}}),
              "a\xEF\xBF\xBD\xEF\xBF\xBD\na\xEF\xBF\xBD\xEF\xBF\xBD\n");
}

TEST(EntryName, AsksForTheSystemCodeSetOncePerProcess) {
    const TemporaryFolder locales;
    runProcess({"localedef", "--no-archive", "-c", "-i", "en_US", "-f", "ISO-8859-1",
                locales.file("kx_test").string()});
    if (!std::filesystem::exists(locales.file("kx_test") / "LC_CTYPE")) {
        GTEST_SKIP() << "this system cannot make a locale for ISO-8859-1 (package locales is not installed)";
    }
    EXPECT_EQ(decodedBy("s\xC3\xBC\n=kx_test\ns\xC3\xBC\n",
                        {{"LOCPATH", locales.path().string()}, {"LC_ALL", "C"}}),
              "\xC3\xBC\n\xC3\xBC\n");
}

TEST(EntryName, IsEncodedAsUtf8) {
    using storage::zipprovider::encodeEntryName;
    EXPECT_EQ(encodeEntryName(u"gr\u00FC\u00DF/\U0001F600"), "gr\xC3\xBC\xC3\x9F/\xF0\x9F\x98\x80");
    EXPECT_EQ(encodeEntryName(std::u16string(u"a\0b", 3)), std::string("a\0b", 3));
    EXPECT_EQ(encodeEntryName(std::u16string(u"\xD800")), "\xEF\xBF\xBD");
    EXPECT_EQ(encodeEntryName(u""), "");
}

} // namespace
