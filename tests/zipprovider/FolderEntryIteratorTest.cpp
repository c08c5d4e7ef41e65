#include <storage/zipprovider/src/FileFolderEntryIterator.h>

#include <boost/date_time/posix_time/posix_time.hpp>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <vector>

namespace {

using fl::i18n::ustring;
using foundation::storage::provider::EntryKind;
using foundation::storage::provider::IFolderEntryIterator;
using storage::zipprovider::FileFolderEntryIterator;
using storage::zipprovider::FolderContents;
using storage::zipprovider::FolderEntry;
using storage::zipprovider::is_file_or_folder_predicate;
using storage::zipprovider::is_file_predicate;
using storage::zipprovider::is_folder_predicate;
using storage::zipprovider::ZipEntryPath;
using storage::zipprovider::ZipEntryType;

using Names = std::vector<ustring>;
using AllIterator = FileFolderEntryIterator<is_file_or_folder_predicate>;

std::shared_ptr<FolderEntry> entry(const ustring& path, ZipEntryType type = ZipEntryType::File) {
    const boost::posix_time::ptime time(boost::gregorian::date(2020, 1, 2));
    return std::make_shared<FolderEntry>(FolderEntry{type, ZipEntryPath(path), 0, time});
}

std::shared_ptr<FolderContents> folderWith(const Names& files, const Names& folders = {}) {
    auto contents = std::make_shared<FolderContents>(entry(u"/d", ZipEntryType::Folder));
    for (const auto& name : files) {
        contents->add(entry(u"/d/" + name));
    }
    for (const auto& name : folders) {
        contents->add(entry(u"/d/" + name, ZipEntryType::Folder));
    }
    return contents;
}

Names rest(IFolderEntryIterator& iterator) {
    Names names;
    while (iterator.hasNext()) {
        iterator.next();
        names.push_back(iterator.current().getName());
    }
    return names;
}

TEST(FolderEntryIterator, OfAnEmptyFolderHasNoNextAtOnce) {
    AllIterator iterator(folderWith({}));
    EXPECT_FALSE(iterator.hasNext());
}

TEST(FolderEntryIterator, ListsAThenATxtThenB) {
    AllIterator iterator(folderWith({u"b", u"a", u"a.txt"}));
    EXPECT_EQ(rest(iterator), (Names{u"a", u"a.txt", u"b"}));
}

TEST(FolderEntryIterator, TellsNameAndKindOfTheEntryPassedOver) {
    AllIterator iterator(folderWith({u"f"}, {u"d"}));
    iterator.next();
    EXPECT_EQ(iterator.current().getName(), u"d");
    EXPECT_EQ(iterator.current().getKind(), EntryKind::Folder);
    iterator.next();
    EXPECT_EQ(iterator.current().getName(), u"f");
    EXPECT_EQ(iterator.current().getKind(), EntryKind::File);
    EXPECT_FALSE(iterator.hasNext());
    EXPECT_EQ(iterator.current().getName(), u"f");
}

TEST(FolderEntryIterator, ForFoldersYieldsNothingInAFolderThatHoldsOnlyFiles) {
    FileFolderEntryIterator<is_folder_predicate> iterator(folderWith({u"a", u"b"}));
    EXPECT_FALSE(iterator.hasNext());
}

TEST(FolderEntryIterator, ForFilesSkipsSubfolders) {
    FileFolderEntryIterator<is_file_predicate> iterator(folderWith({u"a", u"c"}, {u"b", u"d"}));
    EXPECT_EQ(rest(iterator), (Names{u"a", u"c"}));
}

TEST(FolderEntryIterator, ForFoldersSkipsFiles) {
    FileFolderEntryIterator<is_folder_predicate> iterator(folderWith({u"a", u"c"}, {u"b", u"d"}));
    EXPECT_EQ(rest(iterator), (Names{u"b", u"d"}));
}

TEST(FolderEntryIterator, ForFilesAndFoldersSkipsNothing) {
    const auto contents = folderWith({u"a"}, {u"b"});
    contents->add(entry(u"/d/c", ZipEntryType(7)));
    AllIterator iterator(contents);
    EXPECT_EQ(rest(iterator), (Names{u"a", u"b", u"c"}));
}

TEST(FolderEntryIterator, AndItsCloneAfterOneStepBothYieldTheRemainingTwoOfThree) {
    AllIterator iterator(folderWith({u"a", u"b", u"c"}));
    iterator.next();
    const auto clone = iterator.clone();
    EXPECT_EQ(clone->current().getName(), u"a");
    EXPECT_EQ(rest(*clone), (Names{u"b", u"c"}));
    EXPECT_EQ(iterator.current().getName(), u"a");
    EXPECT_EQ(rest(iterator), (Names{u"b", u"c"}));
}

TEST(FolderEntryIterator, AndItsCloneDoNotSeeEachOthersSteps) {
    AllIterator iterator(folderWith({u"a", u"b", u"c"}));
    const auto clone = iterator.clone();
    iterator.next();
    iterator.next();
    clone->next();
    EXPECT_EQ(iterator.current().getName(), u"b");
    EXPECT_EQ(clone->current().getName(), u"a");
}

TEST(FolderEntryIterator, CanBeClonedAtItsEndAndInAnEmptyFolder) {
    AllIterator iterator(folderWith({u"a"}));
    iterator.next();
    EXPECT_FALSE(iterator.clone()->hasNext());
    EXPECT_EQ(iterator.clone()->current().getName(), u"a");
    AllIterator empty(folderWith({}));
    EXPECT_FALSE(empty.clone()->hasNext());
}

TEST(FolderEntryIterator, ItsCloneOutlivesIt) {
    auto iterator = std::make_unique<AllIterator>(folderWith({u"a", u"b"}));
    iterator->next();
    const auto clone = iterator->clone();
    iterator.reset();
    EXPECT_EQ(clone->current().getName(), u"a");
    EXPECT_EQ(rest(*clone), Names{u"b"});
}

TEST(FolderEntryIterator, KeepsYieldingTheChildrenThatExistedWhenItWasMade) {
    auto contents = folderWith({u"a", u"b"});
    AllIterator iterator(contents);
    iterator.next();
    contents->remove(u"b");
    contents->add(entry(u"/d/c"));
    contents.reset();
    EXPECT_EQ(rest(iterator), Names{u"b"});
}

TEST(FolderEntryIterator, KeepsTheListedFolderAliveAsLongAsItLives) {
    auto contents = folderWith({u"a"});
    const std::weak_ptr<FolderContents> alive = contents;
    {
        AllIterator iterator(std::move(contents));
        EXPECT_FALSE(alive.expired());
        const auto clone = iterator.clone();
        EXPECT_EQ(alive.use_count(), 2);
    }
    EXPECT_TRUE(alive.expired());
}

TEST(FolderEntryIterator, RefusesToTellACurrentEntryBeforeTheFirstStep) {
    AllIterator iterator(folderWith({u"a"}));
    EXPECT_THROW(iterator.current(), std::logic_error);
}

TEST(FolderEntryIterator, RefusesToStepBeyondTheEnd) {
    AllIterator iterator(folderWith({u"a"}));
    iterator.next();
    EXPECT_THROW(iterator.next(), std::out_of_range);
    EXPECT_EQ(iterator.current().getName(), u"a");
}

} // namespace
