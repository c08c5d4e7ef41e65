#include <storage/zipprovider/src/ZipEntryPath.h>
#include <storage/zipprovider/src/ZipEntrySink.h>
#include <storage/zipprovider/src/ZipEntryType.h>

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

namespace {

using fl::i18n::ustring;
using storage::zipprovider::zipEntryName;
using storage::zipprovider::ZipEntryPath;
using storage::zipprovider::ZipEntryType;

using Components = std::vector<ustring>;

Components componentsOf(const ZipEntryPath& path) {
    return {path.components().begin(), path.components().end()};
}

TEST(ZipEntryPath, TheEmptyStringYieldsARelativePathWithNoComponentsWhoseTextsAreAllEmpty) {
    const ZipEntryPath path(u"");
    EXPECT_FALSE(path.isAbsolute());
    EXPECT_TRUE(path.components().empty());
    EXPECT_EQ(path.toString(), u"");
    EXPECT_EQ(path.fileName(), u"");
    EXPECT_EQ(path.parentPath(), u"");
    EXPECT_FALSE(path.isRoot());
}

TEST(ZipEntryPath, ASlashYieldsTheRootWhichIsItsOwnParent) {
    const ZipEntryPath root(u"/");
    EXPECT_TRUE(root.isAbsolute());
    EXPECT_TRUE(root.components().empty());
    EXPECT_EQ(root.toString(), u"/");
    EXPECT_EQ(root.parentPath(), u"/");
    EXPECT_EQ(root.fileName(), u"");
    EXPECT_TRUE(root.isRoot());
}

TEST(ZipEntryPath, SeveralSlashesYieldTheSameRootAsOne) {
    EXPECT_EQ(ZipEntryPath(u"///"), ZipEntryPath(u"/"));
}

TEST(ZipEntryPath, TrailingSlashesLeaveNoTrace) {
    EXPECT_EQ(ZipEntryPath(u"a///"), ZipEntryPath(u"a"));
    EXPECT_EQ(componentsOf(ZipEntryPath(u"a///")), Components{u"a"});
    EXPECT_FALSE(ZipEntryPath(u"a///").isAbsolute());
    EXPECT_EQ(ZipEntryPath(u"/a/b/"), ZipEntryPath(u"/a/b"));
}

TEST(ZipEntryPath, DoubledSlashesLeaveNoTrace) {
    EXPECT_EQ(ZipEntryPath(u"a//b/"), ZipEntryPath(u"a/b"));
    EXPECT_EQ(ZipEntryPath(u"//a///b"), ZipEntryPath(u"/a/b"));
}

TEST(ZipEntryPath, ABackslashIsAnOrdinaryCharacterOfAComponent) {
    const ZipEntryPath path(u"dir\\file.txt");
    EXPECT_EQ(componentsOf(path), Components{u"dir\\file.txt"});
    EXPECT_FALSE(ZipEntryPath(u"\\a").isAbsolute());
}

TEST(ZipEntryPath, DriveLettersAndDotsAreOrdinaryComponents) {
    EXPECT_EQ(componentsOf(ZipEntryPath(u"C:/./../x")), (Components{u"C:", u".", u"..", u"x"}));
    EXPECT_FALSE(ZipEntryPath(u"C:/x").isAbsolute());
}

TEST(ZipEntryPath, KeepsCaseBlanksAndUnicodeFormAsTheyAre) {
    const ustring decomposed = u" A\u0308 ";
    EXPECT_EQ(ZipEntryPath(decomposed).fileName(), decomposed);
    EXPECT_NE(ZipEntryPath(u"A\u0308"), ZipEntryPath(u"\u00C4"));
    EXPECT_EQ(ZipEntryPath(ustring(u"a\0b", 3)).fileName(), ustring(u"a\0b", 3));
}

TEST(ZipEntryPath, TextHasALeadingSlashExactlyWhenThePathIsAbsolute) {
    EXPECT_EQ(ZipEntryPath(u"/a/b").toString(), u"/a/b");
    EXPECT_EQ(ZipEntryPath(u"a/b").toString(), u"a/b");
}

TEST(ZipEntryPath, TheCallerCanChooseTheLeadingSlashOfTheText) {
    EXPECT_EQ(ZipEntryPath(u"/a/b").toString(false), u"a/b");
    EXPECT_EQ(ZipEntryPath(u"/a/b").toString(true), u"/a/b");
    EXPECT_EQ(ZipEntryPath(u"a/b").toString(true), u"/a/b");
    EXPECT_EQ(ZipEntryPath(u"a/b").toString(false), u"a/b");
    EXPECT_EQ(ZipEntryPath(u"/").toString(false), u"");
    EXPECT_EQ(ZipEntryPath(u"").toString(true), u"/");
}

TEST(ZipEntryPath, TheParentIsTheTextWithoutTheLastComponent) {
    EXPECT_EQ(ZipEntryPath(u"/a/b/c").parentPath(), u"/a/b");
    EXPECT_EQ(ZipEntryPath(u"/a").parentPath(), u"/");
    EXPECT_EQ(ZipEntryPath(u"a/b").parentPath(), u"a");
    EXPECT_EQ(ZipEntryPath(u"a").parentPath(), u"");
}

TEST(ZipEntryPath, TheFileNameIsTheLastComponent) {
    EXPECT_EQ(ZipEntryPath(u"/a/b.txt").fileName(), u"b.txt");
    EXPECT_EQ(ZipEntryPath(u"a/b/").fileName(), u"b");
}

TEST(ZipEntryPath, PathsThatDifferInLetterCaseAreDifferentKeys) {
    const std::map<ZipEntryPath, int> paths{{ZipEntryPath(u"/A"), 1}, {ZipEntryPath(u"/a"), 2}};
    EXPECT_EQ(paths.size(), 2u);
    EXPECT_NE(ZipEntryPath(u"/A"), ZipEntryPath(u"/a"));
}

TEST(ZipEntryPath, PathsThatDifferInBeingAbsoluteAreDifferentKeys) {
    const std::map<ZipEntryPath, int> paths{{ZipEntryPath(u"/a"), 1}, {ZipEntryPath(u"a"), 2}};
    EXPECT_EQ(paths.size(), 2u);
    EXPECT_NE(ZipEntryPath(u"/a/b"), ZipEntryPath(u"a/b"));
}

TEST(ZipEntryPath, AFolderSortsBeforeWhatItHoldsAndDashAndDotSortBeforeThat) {
    EXPECT_LT(ZipEntryPath(u"/a"), ZipEntryPath(u"/a/b"));
    EXPECT_LT(ZipEntryPath(u"/a-b"), ZipEntryPath(u"/a/b"));
    EXPECT_LT(ZipEntryPath(u"/a.txt"), ZipEntryPath(u"/a/b"));
    EXPECT_LT(ZipEntryPath(u"/a"), ZipEntryPath(u"/a-b"));
    EXPECT_FALSE(ZipEntryPath(u"/a/b") < ZipEntryPath(u"/a/b"));
}

TEST(ZipEntryPath, SortsByCodeUnitNotByCodePoint) {
    // U+1F600 is D83D DE00, below U+FF01 in code units, above it in code points.
    EXPECT_LT(ZipEntryPath(u"/\U0001F600"), ZipEntryPath(u"/\uFF01"));
}

ustring randomText(std::mt19937& random) {
    constexpr char16_t units[] = {u'/', u'/', u'a', u'b', u'-', u'.', u'0', u'\0', u'\xD83D', u'\xFFFF'};
    ustring text(random() % 9, u' ');
    for (auto& unit : text) {
        unit = units[random() % std::size(units)];
    }
    return text;
}

TEST(ZipEntryPath, OrderAndEqualityAreThoseOfTheTextsOnRandomPaths) {
    std::mt19937 random(20230417);
    std::size_t equal = 0;
    for (int i = 0; i < 200'000; ++i) {
        const ZipEntryPath a(randomText(random));
        const ZipEntryPath b(randomText(random));
        const auto textA = a.toString();
        const auto textB = b.toString();
        ASSERT_EQ(a < b, textA < textB) << a << " and " << b;
        ASSERT_EQ(b < a, textB < textA) << a << " and " << b;
        ASSERT_EQ(a == b, textA == textB) << a << " and " << b;
        equal += a == b ? 1u : 0u;
    }
    EXPECT_GT(equal, 100u);
}

TEST(ZipEntryPath, ReadingBackTheTextGivesTheSamePathOnRandomPaths) {
    std::mt19937 random(7);
    for (int i = 0; i < 50'000; ++i) {
        const ZipEntryPath path(randomText(random));
        ASSERT_EQ(ZipEntryPath(path.toString()), path);
        for (const auto& component : path.components()) {
            ASSERT_FALSE(component.empty());
            ASSERT_EQ(component.find(u'/'), ustring::npos);
        }
    }
}

TEST(ZipEntryPath, AChildHasOneComponentMore) {
    EXPECT_EQ(ZipEntryPath(u"/").child(u"a"), ZipEntryPath(u"/a"));
    EXPECT_EQ(ZipEntryPath(u"a").child(u"b"), ZipEntryPath(u"a/b"));
    EXPECT_EQ(ZipEntryPath(u"a").asAbsolute(), ZipEntryPath(u"/a"));
}

TEST(ZipEntryPath, APrefixIsThePathOfAFolderAboveAndSortsAsItsTextDoes) {
    const ZipEntryPath path(u"/a/b/c");
    EXPECT_EQ(path.prefix(0), ZipEntryPath(u"/"));
    EXPECT_EQ(path.prefix(2), ZipEntryPath(u"/a/b"));
    EXPECT_EQ(path.prefix(3), path);
    EXPECT_EQ(ZipEntryPath(u"a/b").prefix(0), ZipEntryPath(u""));
    EXPECT_EQ(ZipEntryPath(u"a/b").prefix(1).asAbsolute(), ZipEntryPath(u"/a"));
    EXPECT_EQ(path.prefix(2).parentPath(), u"/a");
    EXPECT_EQ(path.prefix(2).fileName(), u"b");
    EXPECT_EQ(path.prefix(1).child(u"x"), ZipEntryPath(u"/a/x"));
    EXPECT_LT(path.prefix(1), path);
    EXPECT_FALSE(path < path.prefix(1));
    EXPECT_FALSE(path.prefix(2) < path.prefix(2));
    EXPECT_LT(path.prefix(0), path.prefix(1));
    EXPECT_NE(path.prefix(1), path.prefix(2));
    EXPECT_TRUE(path.prefix(1).isAbove(path));
    EXPECT_FALSE(path.isAbove(path.prefix(1)));
    // Nothing is shared between the absolute and the relative path of one text.
    EXPECT_LT(path.prefix(1), ZipEntryPath(u"a"));
}

TEST(ZipEntryPath, APrefixOutlivesThePathThatItWasMadeOf) {
    const auto prefix = ZipEntryPath(u"/folder/file").prefix(1);
    EXPECT_EQ(prefix.toString(), u"/folder");
}

TEST(ZipEntryPath, AFolderIsAboveWhatStandsInItAtAnyDepthAndNothingElse) {
    const ZipEntryPath folder(u"/a/b");
    EXPECT_TRUE(folder.isAbove(ZipEntryPath(u"/a/b/c")));
    EXPECT_TRUE(folder.isAbove(ZipEntryPath(u"/a/b/c/d")));
    EXPECT_FALSE(folder.isAbove(folder));
    EXPECT_FALSE(folder.isAbove(ZipEntryPath(u"/a")));
    EXPECT_FALSE(folder.isAbove(ZipEntryPath(u"/a/bc")));
    EXPECT_FALSE(folder.isAbove(ZipEntryPath(u"a/b/c")));
    EXPECT_TRUE(ZipEntryPath(u"/").isAbove(ZipEntryPath(u"/a")));
}

TEST(ZipEntryPath, RebasingReplacesTheLeadingComponents) {
    const ZipEntryPath from(u"/a/b");
    const ZipEntryPath to(u"/x/y/z");
    EXPECT_EQ(ZipEntryPath(u"/a/b/c/d").rebased(from, to), ZipEntryPath(u"/x/y/z/c/d"));
    EXPECT_EQ(from.rebased(from, to), to);
}

TEST(ZipEntryPath, PrintsItsTextAsUtf8) {
    std::ostringstream out;
    out << ZipEntryPath(u"/gr\u00FC\u00DF/\U0001F600");
    EXPECT_EQ(out.str(), "/gr\xC3\xBC\xC3\x9F/\xF0\x9F\x98\x80");
}

TEST(ZipEntryPath, HandlesTenThousandComponents) {
    ustring text;
    for (int i = 0; i < 10'000; ++i) {
        text += u"/n";
    }
    const ZipEntryPath path(text);
    EXPECT_EQ(path.components().size(), 10'000u);
    EXPECT_EQ(path.toString(), text);
    EXPECT_LT(ZipEntryPath(path.parentPath()), path);
}

TEST(ZipEntryType, IsTheNumberItWasMadeFrom) {
    EXPECT_EQ(ZipEntryType(0), ZipEntryType::File);
    EXPECT_EQ(ZipEntryType(1), ZipEntryType::Folder);
    EXPECT_NE(ZipEntryType::File, ZipEntryType::Folder);
    EXPECT_EQ(ZipEntryType(7), ZipEntryType(7));
    EXPECT_NE(ZipEntryType(7), ZipEntryType::Folder);
    EXPECT_EQ(sizeof(ZipEntryType), sizeof(std::uint32_t));
    EXPECT_TRUE(std::is_trivially_copyable_v<ZipEntryType>);
}

std::string printed(ZipEntryType type) {
    std::ostringstream out;
    out << type;
    return out.str();
}

TEST(ZipEntryType, PrintsItsName) {
    EXPECT_EQ(printed(ZipEntryType::File), "ZipEntryType::File");
    EXPECT_EQ(printed(ZipEntryType::Folder), "ZipEntryType::Folder");
}

TEST(ZipEntryType, PrintedFromTheNumberSevenWritesFolder) {
    EXPECT_EQ(printed(ZipEntryType(7)), "ZipEntryType::Folder");
}

TEST(ZipEntryName, OfAFolderEndsInASlashAndThatOfAFileDoesNot) {
    EXPECT_EQ(zipEntryName(ZipEntryPath(u"x"), ZipEntryType::Folder), u"x/");
    EXPECT_EQ(zipEntryName(ZipEntryPath(u"x"), ZipEntryType::File), u"x");
    EXPECT_EQ(zipEntryName(ZipEntryPath(u"/a/b"), ZipEntryType::Folder), u"/a/b/");
}

} // namespace
