#include <fl/i18n/utf8.h>

#include <gtest/gtest.h>

#include <ctime>
#include <random>
#include <string>

namespace {

using fl::i18n::fromUtf8;
using fl::i18n::isUtf8;
using fl::i18n::toUtf8;
using fl::i18n::ustring;
using fl::i18n::ustring_view;

std::string bytes(const char8_t* text) {
    return reinterpret_cast<const char*>(text);
}

TEST(Utf8, CharactersOfEveryLengthComeBackAsTheyWere) {
    const ustring text = u"A\u007F\u0080\u07FF\u0800\uD7FF\uE000\uFFFD\uFFFF\U00010000\U0010FFFF";
    EXPECT_EQ(bytes(u8"A\u007F\u0080\u07FF\u0800\uD7FF\uE000\uFFFD\uFFFF\U00010000\U0010FFFF"), toUtf8(text));
    EXPECT_EQ(text, fromUtf8(toUtf8(text)));
}

TEST(Utf8, EveryCharacterThereIsComesBackAsItWas) {
    for (char32_t character = 0; character <= 0x10FFFF; ++character) {
        if (character >= 0xD800 && character <= 0xDFFF) {
            continue;
        }
        ustring text;
        if (character < 0x10000) {
            text += static_cast<char16_t>(character);
        } else {
            text += static_cast<char16_t>(0xD800 + ((character - 0x10000) >> 10));
            text += static_cast<char16_t>(0xDC00 + ((character - 0x10000) & 0x3FF));
        }
        const std::string encoded = toUtf8(text);
        const std::size_t length = character < 0x80 ? 1 : character < 0x800 ? 2 : character < 0x10000 ? 3 : 4;
        ASSERT_EQ(length, encoded.size()) << std::hex << static_cast<std::uint32_t>(character);
        ASSERT_TRUE(isUtf8(encoded));
        ASSERT_EQ(text, fromUtf8(encoded)) << std::hex << static_cast<std::uint32_t>(character);
    }
}

TEST(Utf8, EmptyTextAndNulCharactersAreText) {
    EXPECT_EQ(u"", fromUtf8(""));
    EXPECT_EQ("", toUtf8(u""));
    EXPECT_EQ((ustring{u'a', u'\0', u'b'}), fromUtf8(std::string("a\0b", 3)));
    EXPECT_EQ(std::string("a\0b", 3), toUtf8(ustring{u'a', u'\0', u'b'}));
}

struct Invalid {
    const char* name;
    std::string bytes;
    ustring decoded;
};

class InvalidUtf8 : public testing::TestWithParam<Invalid> {};

TEST_P(InvalidUtf8, BecomesReplacementCharacters) {
    EXPECT_EQ(GetParam().decoded, fromUtf8(GetParam().bytes));
    EXPECT_FALSE(isUtf8(GetParam().bytes));
}

INSTANTIATE_TEST_SUITE_P(
    Utf8, InvalidUtf8,
    testing::Values(Invalid{"StrayContinuationByte", "a\x80z", u"a\uFFFDz"},
                    Invalid{"TwoStrayContinuationBytes", "\xBF\xBF", u"\uFFFD\uFFFD"},
                    Invalid{"ByteThatNeverOccurs", "\xFF\xFE", u"\uFFFD\uFFFD"},
                    Invalid{"OverlongSlash", "\xC0\xAF", u"\uFFFD\uFFFD"},
                    Invalid{"OverlongThreeBytes", "\xE0\x80\xAF", u"\uFFFD\uFFFD\uFFFD"},
                    Invalid{"OverlongFourBytes", "\xF0\x80\x80\xAF", u"\uFFFD\uFFFD\uFFFD\uFFFD"},
                    Invalid{"EncodedSurrogate", "\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD"},
                    Invalid{"AboveTheLastCharacter", "\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD"},
                    Invalid{"TwoBytesTruncatedAtTheEnd", "a\xC3", u"a\uFFFD"},
                    Invalid{"ThreeBytesTruncatedAtTheEnd", "a\xE2\x82", u"a\uFFFD"},
                    Invalid{"FourBytesTruncatedAtTheEnd", "\xF0\x9F\x98", u"\uFFFD"},
                    Invalid{"TruncatedBeforeAnotherCharacter", "\xE2\x82z", u"\uFFFDz"},
                    Invalid{"TruncatedBeforeALeadByte", "\xE2\xC3\xA4", u"\uFFFD\u00E4"},
                    Invalid{"Latin1InsideAscii", "caf\xE9 au lait", u"caf\uFFFD au lait"},
                    Invalid{"InvalidBehindAWordOfAscii", "0123456789abcde\xFF", u"0123456789abcde\uFFFD"}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(Utf8, UnpairedSurrogatesGoOutAsReplacementCharacters) {
    const std::string replacement = "\xEF\xBF\xBD";
    EXPECT_EQ("a" + replacement, toUtf8(ustring{u'a', char16_t{0xD800}}));
    EXPECT_EQ(replacement + "z", toUtf8(ustring{char16_t{0xDC00}, u'z'}));
    EXPECT_EQ(replacement + replacement, toUtf8(ustring{char16_t{0xDFFF}, char16_t{0xDBFF}}));
    EXPECT_EQ(replacement + "\xF0\x90\x80\x80",
              toUtf8(ustring{char16_t{0xD800}, char16_t{0xD800}, char16_t{0xDC00}}));
}

TEST(Utf8, RandomBytesAlwaysDecodeToTextThatEncodesAndDecodesToItself) {
    std::mt19937 random(20240601);
    // Mostly bytes that begin or continue sequences: pure noise hardly ever comes far into one.
    const std::string favoured = "\xC2\xC3\xE0\xE2\xED\xEF\xF0\xF4\x80\x8F\x90\x9F\xA0\xBF"
                                 "az";
    for (int round = 0; round < 20'000; ++round) {
        std::string noise(random() % 24, '\0');
        for (char& c : noise) {
            c = random() % 4 == 0 ? static_cast<char>(random()) : favoured[random() % favoured.size()];
        }
        const ustring text = fromUtf8(noise);
        ASSERT_LE(text.size(), noise.size());
        ASSERT_EQ(text, fromUtf8(toUtf8(text)));
        ASSERT_EQ(isUtf8(noise), toUtf8(text) == noise);
    }
}

TEST(Utf8, AHundredThousandNamesDecodeWithinASecondOfProcessorTimeInAnyBuild) {
    const std::string name = bytes(u8"Projekte/2024/\u00DCbersicht/entw\u00FCrfe-und-pl\u00E4ne-0001.txt");
    std::size_t units = 0;
    const std::clock_t begin = std::clock();
    for (int i = 0; i < 100'000; ++i) {
        units += fromUtf8(name).size();
    }
    const double seconds = static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC;
    EXPECT_EQ(100'000 * fromUtf8(name).size(), units);
    EXPECT_LT(seconds, 1.0);
    RecordProperty("milliseconds", static_cast<int>(seconds * 1000));
}

} // namespace
