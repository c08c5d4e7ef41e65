#include <foundation/storage/provider/StorageIRI.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace {

using fl::i18n::ustring;
using foundation::storage::provider::StorageIRI;

std::string causeOfFailure(std::string_view text) {
    try {
        StorageIRI::parse(text);
    } catch (const std::invalid_argument& failure) {
        return failure.what();
    }
    return "parsed";
}

TEST(StorageIRI, TheEmptyIriAddressesNothing) {
    const StorageIRI empty;
    EXPECT_TRUE(empty.empty());
    EXPECT_EQ(empty.getScheme(), "");
    EXPECT_EQ(empty.toString(), u"");
    EXPECT_EQ(empty, StorageIRI());
    EXPECT_NE(empty, StorageIRI::parse("file:///"));
    EXPECT_THROW(empty.withPath(u"/a"), std::invalid_argument);
    EXPECT_THROW(empty.child(u"a"), std::invalid_argument);
    EXPECT_THROW(empty.getContainer(), std::logic_error);
}

TEST(StorageIRI, AHierarchicalIriHasSchemeAuthorityAndPath) {
    const auto iri = StorageIRI::parse("File://server/share/a.txt");
    EXPECT_EQ(iri.getScheme(), "file");
    EXPECT_EQ(iri.getAuthority(), u"server");
    EXPECT_EQ(iri.getResolvedPath(), u"/share/a.txt");
    EXPECT_FALSE(iri.hasContainer());
    EXPECT_EQ(iri.toUtf8(), "file://server/share/a.txt");
}

TEST(StorageIRI, OneSlashBehindTheSchemeIsAccepted) {
    EXPECT_EQ(StorageIRI::parse("file:/home/me"), StorageIRI::parse("file:///home/me"));
    EXPECT_EQ(StorageIRI::parse("zip:file:/a.zip!/x").toUtf8(), "zip:file:///a.zip!/x");
}

TEST(StorageIRI, AContainerIriHasTheContainersIriAndThePathInside) {
    const auto iri = StorageIRI::parse("zip:file:///home/me/plans.zip!/docs/a.txt");
    EXPECT_EQ(iri.getScheme(), "zip");
    EXPECT_EQ(iri.getResolvedPath(), u"/docs/a.txt");
    ASSERT_TRUE(iri.hasContainer());
    EXPECT_EQ(iri.getContainer(), StorageIRI::parse("file:///home/me/plans.zip"));
    EXPECT_EQ(iri.toUtf8(), "zip:file:///home/me/plans.zip!/docs/a.txt");
}

TEST(StorageIRI, ContainersNest) {
    const auto iri = StorageIRI::parse("zip:tar:file:///outer.tar!/inner.zip!/x");
    EXPECT_EQ(iri.getScheme(), "zip");
    EXPECT_EQ(iri.getResolvedPath(), u"/x");
    EXPECT_EQ(iri.getContainer(), StorageIRI::parse("tar:file:///outer.tar!/inner.zip"));
    EXPECT_EQ(iri.getContainer().getContainer().getResolvedPath(), u"/outer.tar");
    EXPECT_EQ(iri.toUtf8(), "zip:tar:file:///outer.tar!/inner.zip!/x");
    EXPECT_EQ(StorageIRI::inContainer("zip", iri.getContainer(), u"/x"), iri);
}

TEST(StorageIRI, AContainerIriThatEndsInItsSeparatorHasAnEmptyPath) {
    const auto iri = StorageIRI::parse("zip:file:///a.zip!");
    EXPECT_EQ(iri.getResolvedPath(), u"");
    EXPECT_EQ(iri.getContainer(), StorageIRI::parse("file:///a.zip"));
    EXPECT_EQ(iri.toUtf8(), "zip:file:///a.zip!");
    EXPECT_EQ(StorageIRI::parse("zip:zip:file:///a!/b!").getContainer().getResolvedPath(), u"/b");
}

TEST(StorageIRI, ASlashAtTheEndIsKept) {
    EXPECT_EQ(StorageIRI::parse("zip:file:///a.zip!/docs/").getResolvedPath(), u"/docs/");
    EXPECT_EQ(StorageIRI::parse("zip:file:///a.zip!/").getResolvedPath(), u"/");
}

TEST(StorageIRI, CharactersThatHaveNoPlaceInAnIriAreEncoded) {
    const auto base = StorageIRI::parse("file:///");
    EXPECT_EQ(base.withPath(u"/a b\"<>\\^`{|}?#%").toUtf8(),
              "file:///a%20b%22%3C%3E%5C%5E%60%7B%7C%7D%3F%23%25");
    EXPECT_EQ(base.withPath(ustring(u"/\x01\x7F\x85") + u'\0').toUtf8(), "file:///%01%7F%C2%85%00");
    EXPECT_EQ(base.withPath(u"/-._~$&'()*+,;=:@").toUtf8(), "file:///-._~$&'()*+,;=:@");
}

TEST(StorageIRI, CharactersOutsideAsciiStandAsTheyAre) {
    const auto iri = StorageIRI::parse("file:///Größe/日本/😀");
    EXPECT_EQ(iri.getResolvedPath(), u"/Größe/日本/😀");
    EXPECT_EQ(iri.toString(), u"file:///Größe/日本/😀");
    EXPECT_EQ(StorageIRI::parse("file:///Gr%C3%B6%C3%9Fe/%e6%97%A5本/😀"), iri);
}

TEST(StorageIRI, ABangIsEncodedWhereItWouldSeparate) {
    const auto container = StorageIRI::parse("file:///").withPath(u"/wow!/a!b/end!");
    EXPECT_EQ(container.toUtf8(), "file:///wow%21/a!b/end!");
    const auto inside = StorageIRI::inContainer("zip", container, u"/x!/y!z!");
    EXPECT_EQ(inside.toUtf8(), "zip:file:///wow%21/a!b/end%21!/x%21/y!z!");
    EXPECT_EQ(StorageIRI::parse(inside.toUtf8()), inside);
}

TEST(StorageIRI, ParsingSplitsAtTheLeftmostSeparators) {
    const auto iri = StorageIRI::parse("zip:file:///a.zip!/b!/c");
    EXPECT_EQ(iri.getContainer().getResolvedPath(), u"/a.zip");
    EXPECT_EQ(iri.getResolvedPath(), u"/b!/c");
    EXPECT_EQ(iri.toUtf8(), "zip:file:///a.zip!/b%21/c");
    EXPECT_EQ(StorageIRI::parse("file:///a!/b").getResolvedPath(), u"/a!/b");
}

TEST(StorageIRI, PathsInContainersNeedNoLeadingSlash) {
    const auto outer = StorageIRI::parse("file:///wow!.zip");
    const auto relative = StorageIRI::inContainer("zip", outer, u"docs/a!b.txt");
    EXPECT_EQ(relative.getResolvedPath(), u"docs/a!b.txt");
    EXPECT_EQ(relative.toUtf8(), "zip:file:///wow%21.zip!docs/a%21b.txt");
    EXPECT_EQ(StorageIRI::parse(relative.toUtf8()), relative);

    const auto inEmpty = StorageIRI::inContainer("zip", StorageIRI::inContainer("zip", outer, u""), u"/x");
    EXPECT_EQ(StorageIRI::parse(inEmpty.toUtf8()), inEmpty);
}

TEST(StorageIRI, AHierarchicalPathIsGivenItsLeadingSlash) {
    EXPECT_EQ(StorageIRI::parse("mem:///").withPath(u"a/b").getResolvedPath(), u"/a/b");
    EXPECT_EQ(StorageIRI::parse("file://server").withPath(u"a").toUtf8(), "file://server/a");
    EXPECT_EQ(StorageIRI::parse("file://server").getResolvedPath(), u"");
}

TEST(StorageIRI, AnAuthorityIsDecodedAndEncoded) {
    const auto iri = StorageIRI::parse("x://user@[::1]:80%2F%21%25!/p");
    EXPECT_EQ(iri.getAuthority(), u"user@[::1]:80/!%!");
    EXPECT_EQ(iri.toUtf8(), "x://user@[::1]:80%2F%21%25%21/p");
    EXPECT_EQ(StorageIRI::parse(iri.toUtf8()), iri);
}

TEST(StorageIRI, AMalformedTextSaysWhatIsWrong) {
    EXPECT_EQ(causeOfFailure(""), "cannot parse storage IRI \"\": it does not begin with a scheme and \":\"");
    EXPECT_EQ(causeOfFailure("/home/me"),
              "cannot parse storage IRI \"/home/me\": it does not begin with a scheme and \":\"");
    for (const auto* text : {"1x:///a", "x y:///a", ":///a", "zip", "+a:/x"}) {
        EXPECT_NE(causeOfFailure(text).find("does not begin with a scheme"), std::string::npos) << text;
    }
    EXPECT_EQ(
        causeOfFailure("zip:file:///a.zip"),
        "cannot parse storage IRI \"zip:file:///a.zip\": no \"!\" stands behind the container's own IRI");
    for (const auto* text : {"zip:zip:file:///a.zip!/x", "zip:file:///a!b!c", "zip:zip:file:///a!!!x"}) {
        EXPECT_NE(causeOfFailure(text).find("no \"!\" stands"), std::string::npos) << text;
    }
    for (const auto* text :
         {"file:///%", "file:///%4", "file:///%zz", "file:///a%4g/b", "zip:file:///a%!/x", "file://%x/a"}) {
        EXPECT_NE(causeOfFailure(text).find("two hexadecimal digits"), std::string::npos) << text;
    }
    for (const auto* text : {"file:a", "zip:plans.zip!/x", "zip:file:a!/x"}) {
        EXPECT_NE(causeOfFailure(text).find("does not begin with \"/\""), std::string::npos) << text;
    }
}

TEST(StorageIRI, AMessageQuotesOnlyTheHeadOfALongText) {
    EXPECT_LT(causeOfFailure(std::string(1'000'000, 'x')).size(), 400U);
}

TEST(StorageIRI, ContainersNestUpToALimit) {
    auto iri = StorageIRI::parse("file:///c");
    for (int level = 0; level < 64; ++level) {
        iri = StorageIRI::inContainer("zip", iri, u"/c");
    }
    EXPECT_EQ(StorageIRI::parse(iri.toString()), iri);
    EXPECT_THROW(StorageIRI::inContainer("zip", iri, u"/c"), std::invalid_argument);
    EXPECT_NE(causeOfFailure("zip:" + iri.toUtf8() + "!/c").find("too many containers"), std::string::npos);
    std::string schemes;
    for (int level = 0; level < 100'000; ++level) {
        schemes += "zip:";
    }
    EXPECT_NE(causeOfFailure(schemes + "file:///a").find("too many containers"), std::string::npos);
}

TEST(StorageIRI, AContainerNeedsASchemeAndAnIri) {
    const auto container = StorageIRI::parse("file:///a.zip");
    EXPECT_EQ(StorageIRI::inContainer("ZIP", container, u"/x").getScheme(), "zip");
    for (const auto* scheme : {"", "1", "a b", "zip:"}) {
        EXPECT_THROW(StorageIRI::inContainer(scheme, container, u"/x"), std::invalid_argument) << scheme;
    }
    EXPECT_THROW(StorageIRI::inContainer("zip", StorageIRI(), u"/x"), std::invalid_argument);
}

TEST(StorageIRI, LocalPathsAreAbsolute) {
    EXPECT_EQ(StorageIRI::fromLocalPath(u"/home/me/a b.zip").toUtf8(), "file:///home/me/a%20b.zip");
    EXPECT_EQ(StorageIRI::fromLocalPath(u"/").getResolvedPath(), u"/");
    EXPECT_EQ(StorageIRI::parse(StorageIRI::fromLocalPath(u"//x/y").toString()),
              StorageIRI::fromLocalPath(u"//x/y"));
    EXPECT_THROW(StorageIRI::fromLocalPath(u"plans.zip"), std::invalid_argument);
    EXPECT_THROW(StorageIRI::fromLocalPath(u""), std::invalid_argument);
}

TEST(StorageIRI, UnpairedSurrogatesBecomeReplacementCharacters) {
    const ustring text{u'/', 0xD800, u'a', 0xDC00, 0xD83D, 0xDE00, 0xDBFF};
    const auto iri = StorageIRI::parse("file:///").withPath(text);
    EXPECT_EQ(iri.getResolvedPath(), u"/\uFFFDa\uFFFD😀\uFFFD");
    EXPECT_EQ(StorageIRI::parse(u"file://" + text), iri);
    EXPECT_EQ(StorageIRI::parse(iri.toUtf8()), iri);
}

TEST(StorageIRI, EncodedBytesThatAreNotUtf8BecomeReplacementCharacters) {
    EXPECT_EQ(StorageIRI::parse("file:///a%FFb").getResolvedPath(), u"/a\uFFFDb");
}

TEST(StorageIRI, NamesAndParentsFollowThePath) {
    const auto root = StorageIRI::parse("zip:file:///a.zip!/");
    const auto leaf = root.child(u"docs").child(u"a.txt");
    EXPECT_EQ(leaf.toUtf8(), "zip:file:///a.zip!/docs/a.txt");
    EXPECT_EQ(leaf.getName(), u"a.txt");
    EXPECT_EQ(leaf.parent().getResolvedPath(), u"/docs");
    EXPECT_EQ(leaf.parent().parent(), root);
    EXPECT_EQ(root.parent(), root);
    EXPECT_EQ(root.getName(), u"");
    EXPECT_EQ(root.child(u"docs/").getName(), u"docs");
    EXPECT_EQ(root.child(u"docs/").child(u"a.txt"), leaf);
    EXPECT_EQ(root.withPath(u"/a//b//").parent().getResolvedPath(), u"/a");
    EXPECT_EQ(root.withPath(u"").child(u"x").getResolvedPath(), u"/x");
    EXPECT_EQ(root.withPath(u"a/b").parent().getResolvedPath(), u"a");
    EXPECT_EQ(root.withPath(u"a").parent().getResolvedPath(), u"");
}

TEST(StorageIRI, APlaceIsAboveWhatStandsBelowItInTheSameContainer) {
    const auto docs = StorageIRI::parse("zip:file:///a.zip!/docs");
    EXPECT_TRUE(docs.isSameOrAbove(docs));
    EXPECT_TRUE(docs.isSameOrAbove(docs.withPath(u"/docs/")));
    EXPECT_TRUE(docs.isSameOrAbove(docs.child(u"a").child(u"b")));
    EXPECT_TRUE(docs.withPath(u"/").isSameOrAbove(docs));
    EXPECT_TRUE(docs.withPath(u"").isSameOrAbove(docs));
    EXPECT_FALSE(docs.isSameOrAbove(docs.withPath(u"/docs2")));
    EXPECT_FALSE(docs.isSameOrAbove(docs.parent()));
    EXPECT_FALSE(docs.isSameOrAbove(StorageIRI::parse("zip:file:///b.zip!/docs/a")));
    EXPECT_FALSE(docs.isSameOrAbove(StorageIRI::parse("file:///docs/a")));
    EXPECT_FALSE(StorageIRI::parse("file://a/").isSameOrAbove(StorageIRI::parse("file://b/x")));
}

TEST(StorageIRI, EqualityAndOrderAreThoseOfTheCanonicalText) {
    std::vector<StorageIRI> iris;
    for (const auto* text : {"file:///b", "zip:file:///a!/x", "file:///a", "zip:file:///a!", "file:///a%20b",
                             "file:///a/", "mem:///a", "zip:zip:file:///a!/x!/y", "file://h/a"}) {
        iris.push_back(StorageIRI::parse(text));
    }
    for (const auto& a : iris) {
        for (const auto& b : iris) {
            EXPECT_EQ(a == b, a.toString() == b.toString()) << a << " and " << b;
            EXPECT_EQ(a < b, a.toString() < b.toString()) << a << " and " << b;
        }
    }
    EXPECT_EQ(StorageIRI::parse("file:///%61"), StorageIRI::parse("FILE:/a"));
}

TEST(StorageIRI, AnyTwoAreEqualOrInOneOrder) {
    std::vector<StorageIRI> iris{StorageIRI()};
    for (const auto* text : {"file:///b", "zip:file:///a!/x", "file:///a", "zip:file:///a!/x/y",
                             "zip:file:///b!/x", "tar:file:///a!/x", "file://h/a"}) {
        iris.push_back(StorageIRI::parse(text));
    }
    std::sort(iris.begin(), iris.end());
    EXPECT_TRUE(iris.front().empty());
    for (auto low = iris.begin(); low != iris.end(); ++low) {
        EXPECT_TRUE(*low == *low);
        EXPECT_FALSE(*low < *low);
        for (auto high = low + 1; high != iris.end(); ++high) {
            const auto& a = *low;
            const auto& b = *high;
            EXPECT_TRUE(a < b) << a << " and " << b;
            EXPECT_TRUE(b > a) << a << " and " << b;
            EXPECT_TRUE(a != b) << a << " and " << b;
            EXPECT_FALSE(b < a || a > b || b == a) << a << " and " << b;
        }
    }
}

TEST(StorageIRI, CopiesShareTheirContainerAndMovesTakeItAlong) {
    const auto original = StorageIRI::parse("zip:file:///plans/2024/a.zip!/docs/a.txt");
    StorageIRI copy = original;
    EXPECT_EQ(copy, original);
    EXPECT_EQ(&copy.getContainer(), &original.getContainer());
    StorageIRI moved = std::move(copy);
    EXPECT_EQ(moved, original);
    EXPECT_EQ(&moved.getContainer(), &original.getContainer());
    copy = original.parent();
    EXPECT_EQ(copy.toUtf8(), "zip:file:///plans/2024/a.zip!/docs");
    copy = std::move(moved);
    EXPECT_EQ(copy.toUtf8(), "zip:file:///plans/2024/a.zip!/docs/a.txt");
    EXPECT_EQ(copy.getContainer().toUtf8(), "file:///plans/2024/a.zip");
}

TEST(StorageIRI, BecomesItsOwnContainerThoughNobodyElseHoldsThat) {
    auto iri =
        StorageIRI::parse("zip:zip:file://server/plans/2024/outer.zip!/drawings/inner.zip!/docs/a.txt");
    iri = iri.getContainer();
    EXPECT_EQ(iri.toUtf8(), "zip:file://server/plans/2024/outer.zip!/drawings/inner.zip");
    iri = iri.getContainer();
    EXPECT_EQ(iri.toUtf8(), "file://server/plans/2024/outer.zip");
    EXPECT_FALSE(iri.hasContainer());
}

TEST(StorageIRI, AStreamShowsTheTextInUtf8) {
    std::ostringstream out;
    out << StorageIRI::parse("file:///Größe 1");
    EXPECT_EQ(out.str(), "file:///Größe%201");
}

ustring randomText(std::mt19937& random, std::size_t longest) {
    static const std::vector<ustring> pieces{u"!",
                                             u"!/",
                                             u"/",
                                             u"//",
                                             u"%",
                                             u"%2",
                                             u"%21",
                                             u"%2F",
                                             u"%C3",
                                             u"%zz",
                                             u":",
                                             u"a",
                                             u"Z",
                                             u".",
                                             u"..",
                                             u" ",
                                             u"zip:",
                                             u"file",
                                             u"://",
                                             u"é",
                                             ustring(1, u'\0'),
                                             u"😀",
                                             u"[",
                                             u"@",
                                             u"?",
                                             u"#",
                                             u"\\",
                                             u"\x85",
                                             u"日",
                                             u"\xFFFE",
                                             u"mem:/",
                                             ustring{0xD800},
                                             ustring{0xDC00}};
    ustring text;
    for (auto count = random() % (longest + 1); count > 0; --count) {
        text += pieces[random() % pieces.size()];
    }
    return text;
}

TEST(StorageIRI, RandomTextParsesToWhatItsCanonicalFormSaysOrIsRefused) {
    std::mt19937 random(20);
    int parsed = 0;
    for (int round = 0; round < 100'000; ++round) {
        const ustring start = random() % 2 == 0 ? u"zip:file://" : u"";
        try {
            const auto iri = StorageIRI::parse(start + randomText(random, 14));
            ++parsed;
            ASSERT_EQ(StorageIRI::parse(iri.toString()), iri) << iri;
            ASSERT_EQ(StorageIRI::parse(iri.toUtf8()), iri) << iri;
        } catch (const std::invalid_argument&) {
        }
    }
    EXPECT_GT(parsed, 1000);
}

TEST(StorageIRI, RandomPlacesSurviveTheirText) {
    std::mt19937 random(21);
    for (int round = 0; round < 50'000; ++round) {
        auto iri = StorageIRI::parse("mem:///").withPath(randomText(random, 8));
        for (auto level = random() % 4; level > 0; --level) {
            iri = StorageIRI::inContainer("x+y.z", iri, randomText(random, 8));
        }
        ASSERT_EQ(StorageIRI::parse(iri.toString()), iri) << iri;
        ASSERT_EQ(iri.child(u"c").parent().getName(), iri.getName()) << iri;
        ASSERT_TRUE(iri.parent().isSameOrAbove(iri)) << iri;
        ASSERT_TRUE(iri.isSameOrAbove(iri.child(u"c"))) << iri;
    }
}

TEST(StorageIRI, LongTextIsNoTrouble) {
    const auto iri = StorageIRI::parse("zip:file:///" + std::string(1'000'000, '!') + "/" +
                                       std::string(1'000'000, 'a') + "!/b");
    EXPECT_EQ(StorageIRI::parse(iri.toString()), iri);
    EXPECT_EQ(StorageIRI::parse("file:" + std::string(1'000'000, '/')).parent().getName(), u"");
}

} // namespace
