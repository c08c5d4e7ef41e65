#include "ProviderConformance.h"

#include <support/contents.h>

#include <algorithm>

namespace kx::test {

using provider::EntryKind;
using provider::FolderEntry;

namespace {

using Lister =
    std::unique_ptr<provider::IFolderEntryIterator> (provider::IProvider::*)(const provider::StorageIRI&);
using WildcardLister = std::unique_ptr<provider::IFolderEntryIterator> (provider::IProvider::*)(
    const provider::StorageIRI&, fl::i18n::ustring_view);
using NameLister = std::vector<fl::i18n::ustring> (provider::IProvider::*)(const provider::StorageIRI&);
using NameWildcardLister = std::vector<fl::i18n::ustring> (provider::IProvider::*)(
    const provider::StorageIRI&, fl::i18n::ustring_view);

constexpr Lister listers[] = {&provider::IProvider::listAll, &provider::IProvider::listFiles,
                              &provider::IProvider::listFolders, &provider::IProvider::listAllRecursive};
constexpr WildcardLister wildcardListers[] = {
    &provider::IProvider::listAllWildcards, &provider::IProvider::listFilesWildcards,
    &provider::IProvider::listFoldersWildcards, &provider::IProvider::listAllRecursiveWildcards};
constexpr NameLister nameListers[] = {
    &provider::IProvider::listAllNamesOnly, &provider::IProvider::listFilesNamesOnly,
    &provider::IProvider::listFoldersNamesOnly, &provider::IProvider::listAllRecursiveNamesOnly};
constexpr NameWildcardLister nameWildcardListers[] = {
    &provider::IProvider::listAllNamesOnlyWildcards, &provider::IProvider::listFilesNamesOnlyWildcards,
    &provider::IProvider::listFoldersNamesOnlyWildcards,
    &provider::IProvider::listAllRecursiveNamesOnlyWildcards};

} // namespace

TEST_P(ListingConformance, EntriesComeWithTheirKindsInTheProvidersOrder) {
    for (const auto* file : {u"b", u"a", u"a.txt", u"Z", u"ä"}) {
        write(file, "x");
    }
    makeFolder(u"m");
    makeFolder(u"0");
    auto expected = std::vector<FolderEntry>{{u"b", EntryKind::File},     {u"a", EntryKind::File},
                                             {u"a.txt", EntryKind::File}, {u"Z", EntryKind::File},
                                             {u"ä", EntryKind::File},     {u"m", EntryKind::Folder},
                                             {u"0", EntryKind::Folder}};
    std::sort(expected.begin(), expected.end(),
              [compare = storage().getPathComparator()](const FolderEntry& a, const FolderEntry& b) {
                  return compare(a.getName(), b.getName()) < 0;
              });

    EXPECT_EQ(listEntries(*storage().listAll(tested().root())), expected);
    tested().reopen();
    EXPECT_EQ(listEntries(*storage().listAll(tested().root())), expected);
}

TEST_P(ListingConformance, FilesAndFoldersAreListedApart) {
    write(u"a", "x");
    write(u"c", "x");
    makeFolder(u"b");
    makeFolder(u"d");

    EXPECT_EQ(listNames(*storage().listFiles(tested().root())), (Names{u"a", u"c"}));
    EXPECT_EQ(listNames(*storage().listFolders(tested().root())), (Names{u"b", u"d"}));
    EXPECT_EQ(storage().listFilesNamesOnly(tested().root()), (Names{u"a", u"c"}));
    EXPECT_EQ(storage().listFoldersNamesOnly(tested().root()), (Names{u"b", u"d"}));
    EXPECT_EQ(storage().listAllNamesOnly(tested().root()), (Names{u"a", u"b", u"c", u"d"}));
}

TEST_P(ListingConformance, AnEmptyFolderListsNothing) {
    makeFolder(u"f");
    for (const auto list : listers) {
        EXPECT_FALSE((storage().*list)(at(u"f"))->hasNext());
    }
    for (const auto list : nameListers) {
        EXPECT_EQ((storage().*list)(at(u"f")), Names{});
    }
}

TEST_P(ListingConformance, ListingWhatIsNoFolderFails) {
    write(u"file", "x");
    Names noFolders{u"no", u"no/deeper"};
    if (tested().traits().refusesToListFiles) {
        noFolders.emplace_back(u"file");
    } else {
        EXPECT_EQ(names(u"file"), Names{});
    }
    for (const auto& path : noFolders) {
        for (const auto list : listers) {
            expectError(
                ErrorCode::NotFound, [&] { (storage().*list)(at(path)); }, at(path));
        }
        for (const auto list : wildcardListers) {
            expectError(
                ErrorCode::NotFound, [&] { (storage().*list)(at(path), u"*"); }, at(path));
        }
        for (const auto list : nameListers) {
            expectError(
                ErrorCode::NotFound, [&] { (storage().*list)(at(path)); }, at(path));
        }
        for (const auto list : nameWildcardListers) {
            expectError(
                ErrorCode::NotFound, [&] { (storage().*list)(at(path), u"*"); }, at(path));
        }
    }
}

TEST_P(ListingConformance, ATrailingSlashOfTheFolderMakesNoDifference) {
    makeFolder(u"f");
    write(u"f/a", "x");
    EXPECT_EQ(storage().listAllNamesOnly(at(u"f/")), Names{u"a"});
    EXPECT_EQ(storage().listAllRecursiveNamesOnly(at(u"f/")), Names{u"a"});
}

TEST_P(ListingConformance, AnIteratorStandsBeforeTheFirstEntryAtTheStart) {
    write(u"a", "x");
    for (const auto list : {&provider::IProvider::listAll, &provider::IProvider::listFiles,
                            &provider::IProvider::listAllRecursive}) {
        const auto entries = (storage().*list)(tested().root());
        EXPECT_THROW(entries->current(), std::logic_error);
        ASSERT_TRUE(entries->hasNext());
        entries->next();
        EXPECT_EQ(entries->current(), FolderEntry(u"a", EntryKind::File));
        EXPECT_FALSE(entries->hasNext());
        EXPECT_THROW(entries->next(), std::out_of_range);
        EXPECT_EQ(entries->current(), FolderEntry(u"a", EntryKind::File));
    }
}

TEST_P(ListingConformance, ACloneGoesItsOwnWay) {
    for (const auto* file : {u"a", u"b", u"c"}) {
        write(file, "x");
    }
    for (const auto list : {&provider::IProvider::listAll, &provider::IProvider::listFiles,
                            &provider::IProvider::listAllRecursive}) {
        const auto source = (storage().*list)(tested().root());
        source->next();
        const auto clone = source->clone();
        EXPECT_EQ(clone->current().getName(), u"a");
        EXPECT_EQ(listNames(*clone), (Names{u"b", u"c"}));
        EXPECT_EQ(source->current().getName(), u"a");
        EXPECT_EQ(listNames(*source), (Names{u"b", u"c"}));
    }
}

TEST_P(ListingConformance, AListingShowsTheFolderAsItWasWhenAskedFor) {
    write(u"a", "x");
    write(u"b", "x");
    makeFolder(u"f");
    write(u"f/c", "x");
    const auto all = storage().listAll(tested().root());
    const auto files = storage().listFiles(tested().root());
    const auto recursive = storage().listAllRecursive(tested().root());
    storage().removeFile(at(u"a"));
    write(u"z", "x");
    storage().removeFolderRecursively(at(u"f"));

    EXPECT_EQ(listNames(*all), (Names{u"a", u"b", u"f"}));
    EXPECT_EQ(listNames(*files), (Names{u"a", u"b"}));
    EXPECT_EQ(listNames(*recursive), (Names{u"a", u"b", u"f", u"f/c"}));
}

TEST_P(ListingConformance, WildcardsChooseByName) {
    for (const auto* file : {u"a.txt", u"ab.txt", u"b.txt", u"c.TXT", u"readme"}) {
        write(file, "x");
    }
    makeFolder(u"d.txt");
    const auto root = tested().root();

    EXPECT_EQ(listNames(*storage().listAllWildcards(root, u"*.txt")),
              (Names{u"a.txt", u"ab.txt", u"b.txt", u"d.txt"}));
    EXPECT_EQ(listNames(*storage().listFilesWildcards(root, u"*.txt")),
              (Names{u"a.txt", u"ab.txt", u"b.txt"}));
    EXPECT_EQ(listNames(*storage().listFoldersWildcards(root, u"*.txt")), Names{u"d.txt"});
    EXPECT_EQ(storage().listAllNamesOnlyWildcards(root, u"?.txt"), (Names{u"a.txt", u"b.txt", u"d.txt"}));
    EXPECT_EQ(storage().listFilesNamesOnlyWildcards(root, u"[b-z]*"), (Names{u"b.txt", u"c.TXT", u"readme"}));
    EXPECT_EQ(storage().listFoldersNamesOnlyWildcards(root, u"[!a-c]*"), Names{u"d.txt"});
    EXPECT_EQ(storage().listAllNamesOnlyWildcards(root, u"*"), names());
    EXPECT_EQ(storage().listAllNamesOnlyWildcards(root, u"nothing*"), Names{});
    EXPECT_EQ(storage().listAllNamesOnlyWildcards(root, u""), Names{});
}

TEST_P(ListingConformance, AMalformedPatternIsRefused) {
    write(u"a", "x");
    for (const auto* pattern : {u"[", u"a[b", u"[!", u"[]", u"[z-a]"}) {
        for (const auto list : wildcardListers) {
            expectError(ErrorCode::InvalidArgument, [&] { (storage().*list)(tested().root(), pattern); });
        }
        for (const auto list : nameWildcardListers) {
            expectError(ErrorCode::InvalidArgument, [&] { (storage().*list)(tested().root(), pattern); });
        }
    }
}

TEST_P(ListingConformance, ARecursiveListingGivesPathsWithEachFolderBeforeItsEntries) {
    storage().createFolderRecursive(at(u"f/sub/deep"));
    makeFolder(u"g");
    for (const auto* file : {u"a", u"f/b", u"f/sub/c", u"f/sub/deep/d", u"z"}) {
        write(file, "x");
    }
    const std::vector<FolderEntry> expected{{u"a", EntryKind::File},
                                            {u"f", EntryKind::Folder},
                                            {u"f/b", EntryKind::File},
                                            {u"f/sub", EntryKind::Folder},
                                            {u"f/sub/c", EntryKind::File},
                                            {u"f/sub/deep", EntryKind::Folder},
                                            {u"f/sub/deep/d", EntryKind::File},
                                            {u"g", EntryKind::Folder},
                                            {u"z", EntryKind::File}};

    EXPECT_EQ(listEntries(*storage().listAllRecursive(tested().root())), expected);
    EXPECT_EQ(storage().listAllRecursiveNamesOnly(at(u"f")),
              (Names{u"b", u"sub", u"sub/c", u"sub/deep", u"sub/deep/d"}));
}

TEST_P(ListingConformance, ARecursiveWildcardLooksAtTheLastComponentAndWalksEveryFolder) {
    storage().createFolderRecursive(at(u"f/dots"));
    for (const auto* file : {u"d1", u"e", u"f/d2", u"f/dots/d3", u"f/dots/e"}) {
        write(file, "x");
    }
    const Names expected{u"d1", u"f/d2", u"f/dots", u"f/dots/d3"};

    EXPECT_EQ(listNames(*storage().listAllRecursiveWildcards(tested().root(), u"d*")), expected);
    EXPECT_EQ(storage().listAllRecursiveNamesOnlyWildcards(tested().root(), u"d*"), expected);
    EXPECT_EQ(storage().listAllRecursiveNamesOnlyWildcards(tested().root(), u"f/*"), Names{});
}

} // namespace kx::test
