#include <fl/i18n/codecvt_string_to_ustring.h>
#include <fl/i18n/codecvt_ustring_to_string.h>

#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using fl::i18n::codecvt_string_to_ustring;
using fl::i18n::codecvt_ustring_to_string;
using fl::i18n::ustring;

template <typename Error, typename Action>
std::string textOf(Action action) {
    try {
        action();
    } catch (const Error& failure) {
        return failure.what();
    }
    return "nothing was thrown";
}

TEST(CodeSetConverter, DecodesAndEncodesUtf8UnderAnySpellingOfItsName) {
    for (const char* name : {"UTF-8", "utf-8", "UTF8", "utf8"}) {
        EXPECT_EQ(u"\u00E4\U0001F600", codecvt_string_to_ustring(name)("\xC3\xA4\xF0\x9F\x98\x80"));
        EXPECT_EQ("\xC3\xA4\xF0\x9F\x98\x80", codecvt_ustring_to_string(name)(u"\u00E4\U0001F600"));
    }
}

TEST(CodeSetConverter, ReplacesInvalidUtf8InBothDirections) {
    EXPECT_EQ(u"a\uFFFDz", codecvt_string_to_ustring("UTF-8", 1)("a\xFFz"));
    EXPECT_EQ("\xEF\xBF\xBD", codecvt_ustring_to_string("UTF-8", 1)(ustring(1, char16_t{0xD800})));
}

TEST(CodeSetConverter, DecodesTheCodeSetOfOldArchives) {
    EXPECT_EQ(u"\u00E4\u00F6\u00FC\u00DF \u2591\u2588",
              codecvt_string_to_ustring("IBM437")("\x84\x94\x81\xE1 \xB0\xDB"));
    EXPECT_EQ("\x84\x94\x81\xE1 \xB0\xDB",
              codecvt_ustring_to_string("IBM437")(u"\u00E4\u00F6\u00FC\u00DF \u2591\u2588"));
}

TEST(CodeSetConverter, EveryByteOfSingleByteCodeSetsComesBackAsItWas) {
    std::string all;
    for (int byte = 0; byte < 256; ++byte) {
        all += static_cast<char>(byte);
    }
    for (const char* name : {"ISO-8859-1", "ISO-8859-15", "IBM437", "KOI8-R"}) {
        const ustring text = codecvt_string_to_ustring(name)(all);
        EXPECT_EQ(256U, text.size()) << name;
        EXPECT_EQ(all, codecvt_ustring_to_string(name)(text)) << name;
    }
}

TEST(CodeSetConverter, DecodesAndEncodesCodeSetsOfSeveralBytes) {
    EXPECT_EQ(u"\u65E5\u672C a", codecvt_string_to_ustring("SHIFT_JIS")("\x93\xFA\x96\x7B a"));
    EXPECT_EQ("\x93\xFA\x96\x7B a", codecvt_ustring_to_string("SHIFT_JIS")(u"\u65E5\u672C a"));
    EXPECT_EQ(u"\U0001F600", codecvt_string_to_ustring("GB18030")("\x94\x39\xFC\x36"));
    EXPECT_EQ("\x94\x39\xFC\x36", codecvt_ustring_to_string("GB18030")(u"\U0001F600"));
}

TEST(CodeSetConverter, EndsTextInTheFirstShiftStateAndStartsTheNextOneThere) {
    const codecvt_ustring_to_string encode("ISO-2022-JP");
    const codecvt_string_to_ustring decode("ISO-2022-JP");
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ("\x1B$BF|\x1B(B", encode(u"\u65E5"));
        EXPECT_EQ("a", encode(u"a"));
        // Truncated inside the two-byte state: the next text must not begin in it.
        EXPECT_EQ(u"\u65E5\uFFFD", decode("\x1B$BF|F"));
        EXPECT_EQ(u"F|", decode("F|"));
    }
}

TEST(CodeSetConverter, ReplacesInvalidBytesOneByOne) {
    EXPECT_EQ(u"a\uFFFD\uFFFDz", codecvt_string_to_ustring("US-ASCII")("a\xE4\xF6z"));
    EXPECT_EQ(u"\uFFFDz", codecvt_string_to_ustring("SHIFT_JIS")("\xFFz"));
}

TEST(CodeSetConverter, ReplacesATruncatedSequenceOnce) {
    EXPECT_EQ(u"a\uFFFD", codecvt_string_to_ustring("SHIFT_JIS")("a\x93"));
    EXPECT_EQ(u"a\uFFFD", codecvt_string_to_ustring("GB18030")("a\x94\x39\xFC"));
}

TEST(CodeSetConverter, StaysOnTheUnitsOfWideCodeSetsAfterAnInvalidOne) {
    // An unpaired low surrogate between two letters.
    EXPECT_EQ(u"a\uFFFDz", codecvt_string_to_ustring("UTF-16LE")(std::string("a\0\x00\xDC"
                                                                             "z\0",
                                                                             6)));
    EXPECT_EQ(u"\uFFFDz", codecvt_string_to_ustring("UTF-32BE")(std::string("\xFF\0\0\0\0\0\0z", 8)));
}

TEST(CodeSetConverter, CharactersThatACodeSetLacksBecomeQuestionMarks) {
    EXPECT_EQ("a?z", codecvt_ustring_to_string("ISO-8859-1")(u"a\u20ACz"));
    EXPECT_EQ("??", codecvt_ustring_to_string("US-ASCII")(u"\u00E4\U0001F600"));
    EXPECT_EQ(std::string("?\0a\0", 4), codecvt_ustring_to_string("UCS-2LE")(u"\U0001F600a"));
}

TEST(CodeSetConverter, UnpairedSurrogatesBecomeTheReplacementCharacterWhereTheCodeSetHasIt) {
    const ustring unpaired{u'a', char16_t{0xD800}, u'b', char16_t{0xDC00}, u'c', char16_t{0xDBFF}};
    EXPECT_EQ("a?b?c?", codecvt_ustring_to_string("ISO-8859-1")(unpaired));
    EXPECT_EQ(std::string("\0a\xFF\xFD\0b\xFF\xFD\0c\xFF\xFD", 12),
              codecvt_ustring_to_string("UTF-16BE")(unpaired));
}

TEST(CodeSetConverter, TextLongerThanAnyBufferIsConvertedWhole) {
    ustring text;
    for (int i = 0; i < 50'000; ++i) {
        text += i % 3 == 0 ? u'\u65E5' : static_cast<char16_t>(u'a' + i % 26);
    }
    for (const char* name : {"UTF-8", "SHIFT_JIS", "UTF-16LE", "GB18030"}) {
        EXPECT_EQ(text, codecvt_string_to_ustring(name)(codecvt_ustring_to_string(name)(text))) << name;
    }
}

TEST(CodeSetConverter, ReportsACodeSetThatTheSystemDoesNotKnow) {
    EXPECT_EQ("cannot convert from code set \"NO-SUCH-SET\": the system does not know it",
              textOf<std::invalid_argument>([] { codecvt_string_to_ustring decode("NO-SUCH-SET"); }));
    EXPECT_EQ("cannot convert to code set \"NO-SUCH-SET\": the system does not know it",
              textOf<std::invalid_argument>([] { codecvt_ustring_to_string encode("NO-SUCH-SET"); }));
}

TEST(CodeSetConverter, TakesNoOrdersToTheSystemsConverterForNames) {
    for (const std::string& name :
         {std::string(), std::string("US-ASCII//TRANSLIT"), std::string("ASCII\0x", 7)}) {
        EXPECT_THROW(codecvt_string_to_ustring{name}, std::invalid_argument);
        EXPECT_THROW(codecvt_ustring_to_string{name}, std::invalid_argument);
    }
}

TEST(CodeSetConverter, WithSelector0ReportsWhatItWouldReplace) {
    EXPECT_EQ("cannot convert from code set \"UTF-8\": byte 2 is invalid",
              textOf<std::range_error>([] { codecvt_string_to_ustring("UTF-8", 0)("ab\xFF"); }));
    EXPECT_EQ("cannot convert from code set \"US-ASCII\": byte 1 is invalid",
              textOf<std::range_error>([] { codecvt_string_to_ustring("US-ASCII", 0)("a\xE4"); }));
    EXPECT_EQ("cannot convert to code set \"ISO-8859-1\": code unit 2 has no form in it",
              textOf<std::range_error>([] { codecvt_ustring_to_string("ISO-8859-1", 0)(u"ab\u20AC"); }));
    EXPECT_EQ("cannot convert to code set \"UTF-8\": code unit 1 has no form in it",
              textOf<std::range_error>([] {
                  codecvt_ustring_to_string("UTF-8", 0)(ustring{u'a', char16_t{0xD800}});
              }));
    EXPECT_EQ(u"\u00E4", codecvt_string_to_ustring("ISO-8859-1", 0)("\xE4"));
    EXPECT_EQ("\xE4", codecvt_ustring_to_string("ISO-8859-1", 0)(u"\u00E4"));
}

TEST(CodeSetConverter, RefusesSelectorsThatMeanNothing) {
    EXPECT_EQ("cannot make a code set converter with selector 2: expected 0 or 1",
              textOf<std::invalid_argument>([] { codecvt_string_to_ustring decode("UTF-8", 2); }));
    EXPECT_THROW(codecvt_ustring_to_string("ISO-8859-1", -1), std::invalid_argument);
}

TEST(CodeSetConverter, RandomBytesNeverThrowInAnyCodeSet) {
    std::mt19937 random(20240602);
    for (const char* name :
         {"UTF-8", "IBM437", "SHIFT_JIS", "EUC-JP", "EUC-KR", "GB18030", "BIG5", "BIG5-HKSCS", "ISO-2022-JP",
          "ISO-2022-KR", "UTF-7", "UTF-16", "UTF-32", "TCVN", "IBM1364", "windows-1252"}) {
        const codecvt_string_to_ustring decode(name);
        const codecvt_ustring_to_string encode(name);
        for (int round = 0; round < 500; ++round) {
            std::string noise(random() % 40, '\0');
            for (char& c : noise) {
                c = static_cast<char>(random());
            }
            ASSERT_NO_THROW(encode(decode(noise))) << name;
            ustring units(random() % 40, u'\0');
            for (char16_t& unit : units) {
                unit = static_cast<char16_t>(random());
            }
            ASSERT_NO_THROW(decode(encode(units))) << name;
        }
    }
}

TEST(CodeSetConverter, OneObjectServesSeveralThreadsAtOnce) {
    const codecvt_string_to_ustring decode("SHIFT_JIS");
    const codecvt_ustring_to_string encode("ISO-2022-JP");
    std::atomic<int> wrong = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&decode, &encode, &wrong] {
            for (int j = 0; j < 2'000; ++j) {
                if (decode("\x93\xFA\x96\x7B") != u"\u65E5\u672C" || encode(u"\u65E5") != "\x1B$BF|\x1B(B") {
                    ++wrong;
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(0, wrong);
}

TEST(CodeSetConverter, CopiesConvertLikeTheirOriginal) {
    codecvt_string_to_ustring copy("UTF-8");
    {
        const codecvt_string_to_ustring original("ISO-8859-1");
        copy = original;
    }
    EXPECT_EQ(u"\u00E4", copy("\xE4"));
    const codecvt_string_to_ustring second = copy;
    copy = codecvt_string_to_ustring("UTF-8");
    EXPECT_EQ(u"\u00E4", second("\xE4"));
    EXPECT_EQ(u"\u00E4", copy("\xC3\xA4"));
}

TEST(CodeSetConverter, CopiesForTheOtherDirectionDoSoToo) {
    codecvt_ustring_to_string copy("UTF-8");
    {
        const codecvt_ustring_to_string original("ISO-8859-1");
        copy = original;
    }
    EXPECT_EQ("\xE4", copy(u"\u00E4"));
    const codecvt_ustring_to_string second = copy;
    copy = codecvt_ustring_to_string("UTF-8");
    EXPECT_EQ("\xE4", second(u"\u00E4"));
    EXPECT_EQ("\xC3\xA4", copy(u"\u00E4"));
}

} // namespace
