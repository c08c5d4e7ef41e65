#include <cppmicroservices/AnyMap.h>
#include <cppmicroservices/LDAPFilter.h>

#include <gtest/gtest.h>

#include <list>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace runtime {
namespace {

using cppmicroservices::Any;
using cppmicroservices::AnyMap;
using cppmicroservices::LDAPFilter;

const AnyMap& properties() {
    static const AnyMap values{{"scheme", std::string("zip")},
                               {"name", std::string("The Zip Provider")},
                               {"size", 12},
                               {"share", 0.5},
                               {"large", 5000000000L},
                               {"writable", true},
                               {"suffixes", std::vector<std::string>{"zip", "jar"}},
                               {"mixed", std::vector<Any>{std::string("one"), 2}},
                               {"odd", std::string("a*(b)\\c")}};
    return values;
}

bool matches(const std::string& filter) {
    return LDAPFilter(filter).Match(properties());
}

TEST(Filter, EqualityComparesTheWholeTextWithCase) {
    EXPECT_TRUE(matches("(scheme=zip)"));
    EXPECT_FALSE(matches("(scheme=zi)"));
    EXPECT_FALSE(matches("(scheme=zipp)"));
    EXPECT_FALSE(matches("(scheme=ZIP)"));
}

TEST(Filter, TheCaseOfNamesCountsOnlyInMatchCase) {
    EXPECT_TRUE(matches("(SCHEME=zip)"));
    EXPECT_FALSE(LDAPFilter("(SCHEME=zip)").MatchCase(properties()));
    EXPECT_TRUE(LDAPFilter("(scheme=zip)").MatchCase(properties()));
}

TEST(Filter, MapsWithCaseSensitiveKeysAreSearchedWithoutCaseToo) {
    for (const AnyMap::map_type type : {AnyMap::ORDERED_MAP, AnyMap::UNORDERED_MAP}) {
        AnyMap map(type);
        map["Scheme"] = std::string("zip");
        EXPECT_TRUE(LDAPFilter("(scheme=zip)").Match(map));
        EXPECT_FALSE(LDAPFilter("(scheme=zip)").MatchCase(map));
        EXPECT_TRUE(LDAPFilter("(Scheme=zip)").MatchCase(map));
    }
}

TEST(Filter, AStarStandsForAnyText) {
    EXPECT_TRUE(matches("(name=The*)"));
    EXPECT_TRUE(matches("(name=*Provider)"));
    EXPECT_TRUE(matches("(name=*Zip*)"));
    EXPECT_TRUE(matches("(name=T*Z*P*r)"));
    EXPECT_TRUE(matches("(scheme=z**p)"));
    EXPECT_TRUE(matches("(scheme=*zip*)"));
    EXPECT_FALSE(matches("(name=*zip*)"));
    EXPECT_FALSE(matches("(scheme=zip*zip)"));
    EXPECT_FALSE(matches("(scheme=zi*ip)"));
}

TEST(Filter, ALoneStarAsksForPresence) {
    EXPECT_TRUE(matches("(scheme=*)"));
    EXPECT_TRUE(matches("(size=*)"));
    EXPECT_TRUE(matches("(suffixes=*)"));
    EXPECT_FALSE(matches("(missing=*)"));
}

TEST(Filter, AndOrAndNotCombine) {
    EXPECT_TRUE(matches("(&(scheme=zip)(size=12))"));
    EXPECT_FALSE(matches("(&(scheme=zip)(size=13))"));
    EXPECT_TRUE(matches("(|(scheme=tar)(size=12))"));
    EXPECT_FALSE(matches("(|(scheme=tar)(size=13))"));
    EXPECT_TRUE(matches("(!(scheme=tar))"));
    EXPECT_FALSE(matches("(!(scheme=zip))"));
    EXPECT_TRUE(matches("(&(|(scheme=tar)(scheme=zip))(!(missing=*))(writable=true))"));
}

TEST(Filter, AMissingPropertyMatchesNothing) {
    EXPECT_FALSE(matches("(missing=zip)"));
    EXPECT_FALSE(matches("(missing<=5)"));
    EXPECT_TRUE(matches("(!(missing=zip))"));
}

TEST(Filter, NumbersAreComparedAsNumbers) {
    EXPECT_TRUE(matches("(size=12)"));
    EXPECT_TRUE(matches("(size>=9)"));
    EXPECT_FALSE(matches("(size<=9)"));
    EXPECT_TRUE(matches("(size<=12)"));
    EXPECT_TRUE(matches("(large>=4999999999)"));
    EXPECT_TRUE(matches("(share=0.5)"));
    EXPECT_TRUE(matches("(share<=0.75)"));
    EXPECT_FALSE(matches("(size=many)"));
}

TEST(Filter, TextsAreOrderedByCodeUnit) {
    EXPECT_TRUE(matches("(scheme>=tar)"));
    EXPECT_FALSE(matches("(scheme<=tar)"));
}

TEST(Filter, TruthValuesAreComparedWithoutCaseAndHaveNoOrder) {
    EXPECT_TRUE(matches("(writable=true)"));
    EXPECT_TRUE(matches("(writable=TRUE)"));
    EXPECT_FALSE(matches("(writable=false)"));
    EXPECT_FALSE(matches("(writable>=false)"));
}

TEST(Filter, ApproximateEqualityIgnoresCaseAndBlanks) {
    EXPECT_TRUE(matches("(name~=thezip PROVIDER)"));
    EXPECT_FALSE(matches("(name~=the zip)"));
}

TEST(Filter, AListMatchesIfOneOfItsElementsDoes) {
    EXPECT_TRUE(matches("(suffixes=jar)"));
    EXPECT_FALSE(matches("(suffixes=war)"));
    EXPECT_TRUE(matches("(mixed=one)"));
    EXPECT_TRUE(matches("(mixed=2)"));
    EXPECT_FALSE(matches("(mixed=3)"));
}

TEST(Filter, AListOfTextsOfEitherKindIsSearched) {
    AnyMap map(AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS);
    map.emplace("colours", std::list<std::string>{"red", "green"});
    map.emplace("letter", 'x');
    map.emplace("nothing", Any());
    EXPECT_TRUE(LDAPFilter("(colours=gr*)").Match(map));
    EXPECT_FALSE(LDAPFilter("(colours=blue)").Match(map));
    EXPECT_TRUE(LDAPFilter("(letter=x)").Match(map));
    EXPECT_FALSE(LDAPFilter("(letter=y)").Match(map));
    EXPECT_FALSE(LDAPFilter("(nothing=*)").Match(map));
}

TEST(Filter, BlanksAroundANumberDoNotCount) {
    EXPECT_TRUE(matches("(size= 12 )"));
    EXPECT_TRUE(matches("(size>=\t9 )"));
    EXPECT_FALSE(matches("(size=1 2)"));
}

TEST(Filter, ABackslashTakesTheMeaningFromASign) {
    EXPECT_TRUE(matches("(odd=a\\*\\(b\\)\\\\c)"));
    EXPECT_FALSE(matches("(odd=a\\*c)"));
}

TEST(Filter, BlanksAroundBracketsDoNotCount) {
    EXPECT_TRUE(matches("  ( & ( scheme=zip) (size=12) )  "));
}

TEST(Filter, ItsTextReadsBackAsTheSameFilter) {
    for (const std::string text : {"(scheme=zip)", "(&(a=1)(|(b>=2)(c<=3))(!(d~=e)))", "(name=T*Z*P*r)",
                                   "(odd=a\\*\\(b\\)\\\\c)", "(x=*)"}) {
        EXPECT_EQ(LDAPFilter(text).ToString(), text);
        EXPECT_EQ(LDAPFilter(LDAPFilter(text).ToString()), LDAPFilter(text));
    }
    std::ostringstream stream;
    stream << LDAPFilter(" ( &(a=1) (b=2) )");
    EXPECT_EQ(stream.str(), "(&(a=1)(b=2))");
}

TEST(Filter, ADefaultConstructedOneIsInvalid) {
    EXPECT_FALSE(LDAPFilter());
    EXPECT_TRUE(LDAPFilter("(a=1)"));
}

class MalformedFilter : public testing::TestWithParam<const char*> {};

TEST_P(MalformedFilter, IsRefused) {
    EXPECT_THROW(LDAPFilter{std::string(GetParam())}, std::invalid_argument);
}

INSTANTIATE_TEST_SUITE_P(Filter, MalformedFilter,
                         testing::Values("", "scheme=zip", "(scheme=zip", "(scheme=zip))", "(scheme)",
                                         "(=zip)", "()", "(&)", "(!)", "(!(a=1)(b=2))", "(&(a=1)",
                                         "(a=1)(b=2)", "(a>1)", "(a=b\\", "((a=1))", "(a", "   "));

} // namespace
} // namespace runtime
