#include <foundation/storage/provider/Exception.h>
#include <support/InMemoryProvider.h>

#include <gtest/gtest.h>

namespace kx::test {

namespace {

using fl::i18n::ustring;
using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::Exception;

/// Whether the pattern lists a file of this name.
bool matches(const ustring& pattern, const ustring& name) {
    InMemoryProvider memory;
    memory.createFile(memory.at(u"/" + name));
    return !memory.listFilesNamesOnlyWildcards(memory.at(u"/"), pattern).empty();
}

TEST(Wildcards, OrdinaryCharactersStandForThemselves) {
    EXPECT_TRUE(matches(u"a.b", u"a.b"));
    EXPECT_FALSE(matches(u"a.b", u"axb"));
    EXPECT_FALSE(matches(u"a", u"ab"));
    EXPECT_FALSE(matches(u"ab", u"a"));
    EXPECT_FALSE(matches(u"a", u"A"));
    EXPECT_TRUE(matches(u"]-!\\{}", u"]-!\\{}"));
}

TEST(Wildcards, AStarStandsForAnyText) {
    for (const auto* pattern : {u"*", u"**", u"a*", u"*c", u"a*c", u"*b*", u"*abc*", u"a**b*c*"}) {
        EXPECT_TRUE(matches(pattern, u"abc"));
    }
    for (const auto* pattern : {u"b*", u"*b", u"a*b", u"*d*", u"*cb*"}) {
        EXPECT_FALSE(matches(pattern, u"abc"));
    }
    EXPECT_TRUE(matches(u"*ab*ab", u"abxabyab"));
    EXPECT_TRUE(matches(u"*.tar.*", u"a.tar.tar.gz"));
    EXPECT_TRUE(matches(u"*", u".hidden"));
}

TEST(Wildcards, AQuestionMarkStandsForOneCharacter) {
    EXPECT_TRUE(matches(u"a?c", u"abc"));
    EXPECT_FALSE(matches(u"a?c", u"ac"));
    EXPECT_FALSE(matches(u"?", u"ab"));
    EXPECT_TRUE(matches(u"?*", u"a"));
}

TEST(Wildcards, ASetStandsForOneOfItsCharacters) {
    EXPECT_TRUE(matches(u"[abc]", u"b"));
    EXPECT_FALSE(matches(u"[abc]", u"d"));
    EXPECT_TRUE(matches(u"[a-cx-z]", u"y"));
    EXPECT_FALSE(matches(u"[a-cx-z]", u"m"));
    EXPECT_TRUE(matches(u"[!a-c]", u"d"));
    EXPECT_FALSE(matches(u"[!a-c]", u"b"));
    EXPECT_TRUE(matches(u"[]x]", u"]"));
    EXPECT_TRUE(matches(u"[!]x]", u"a"));
    EXPECT_FALSE(matches(u"[!]x]", u"]"));
    EXPECT_TRUE(matches(u"[a-]", u"-"));
    EXPECT_TRUE(matches(u"[-a]", u"-"));
    EXPECT_TRUE(matches(u"[*?[]", u"*"));
    EXPECT_TRUE(matches(u"[a!]", u"!"));
    EXPECT_TRUE(matches(u"[+--]", u","));
}

TEST(Wildcards, ASurrogatePairIsOneCharacter) {
    EXPECT_TRUE(matches(u"?", u"😀"));
    EXPECT_FALSE(matches(u"??", u"😀"));
    EXPECT_TRUE(matches(u"[😀-😂]", u"😁"));
    EXPECT_FALSE(matches(u"[😀-😂]", u"😃"));
    EXPECT_TRUE(matches(u"[!a]", u"😀"));
    EXPECT_TRUE(matches(u"*😁?", u"x😀😁😂"));
}

TEST(Wildcards, AMalformedPatternIsAnInvalidArgument) {
    InMemoryProvider memory;
    for (const auto* pattern : {u"[", u"[a", u"x[!", u"[]", u"[!]", u"[b-a]", u"*[a-"}) {
        try {
            memory.listAllWildcards(memory.at(u"/"), pattern);
            ADD_FAILURE() << "nothing was thrown";
        } catch (const Exception& failure) {
            EXPECT_EQ(failure.getErrorCode(), ErrorCode::InvalidArgument);
            EXPECT_EQ(failure.getIRI(), memory.at(u"/"));
            EXPECT_NE(failure.getCause().find("wildcard pattern"), std::string::npos);
        }
    }
    EXPECT_EQ(memory.callCount(ProviderOperation::ListAll), 0U);
}

TEST(Wildcards, ManyStarsOverALongNameTakeNoTime) {
    ustring pattern;
    for (int star = 0; star < 50; ++star) {
        pattern += u"*a";
    }
    EXPECT_FALSE(matches(pattern + u"b", ustring(5000, u'a')));
    EXPECT_TRUE(matches(pattern, ustring(5000, u'a')));
}

} // namespace

} // namespace kx::test
