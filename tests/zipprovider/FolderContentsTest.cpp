#include <storage/zipprovider/src/FolderContents.h>

#include <boost/date_time/posix_time/posix_time.hpp>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using fl::i18n::ustring;
using storage::zipprovider::FolderContents;
using storage::zipprovider::FolderEntry;
using storage::zipprovider::ZipEntryPath;
using storage::zipprovider::ZipEntryType;

std::shared_ptr<FolderEntry> entry(ZipEntryType type, const ustring& path, std::uint64_t size = 0) {
    const boost::posix_time::ptime time(boost::gregorian::date(2020, 1, 2));
    return std::make_shared<FolderEntry>(FolderEntry{type, ZipEntryPath(path), size, time});
}

std::shared_ptr<FolderEntry> file(const ustring& path, std::uint64_t size = 0) {
    return entry(ZipEntryType::File, path, size);
}

std::shared_ptr<FolderEntry> folder(const ustring& path) {
    return entry(ZipEntryType::Folder, path);
}

std::vector<ustring> names(const FolderContents& contents) {
    std::vector<ustring> result;
    for (const auto& child : contents.snapshot([](const FolderEntry&) { return true; })) {
        result.push_back(child.first);
    }
    return result;
}

TEST(FolderContents, StartEmptyWithTheFoldersOwnEntry) {
    const auto own = folder(u"/d");
    const FolderContents contents(own);
    EXPECT_EQ(contents.ownEntry(), own);
    EXPECT_TRUE(contents.empty());
    EXPECT_EQ(contents.findFile(u"a"), nullptr);
    EXPECT_EQ(contents.findFolder(u"a"), nullptr);
}

TEST(FolderContents, KeepAnEntryUnderTheLastComponentOfItsPath) {
    FolderContents contents(folder(u"/d"));
    const auto a = file(u"/d/a", 5);
    contents.add(a);
    EXPECT_EQ(contents.findFile(u"a"), a);
    EXPECT_EQ(contents.findFile(u"/d/a"), nullptr);
    EXPECT_FALSE(contents.empty());
}

TEST(FolderContents, AChildOfTheOtherTypeCountsAsNotFound) {
    FolderContents contents(folder(u"/d"));
    contents.add(file(u"/d/f"));
    contents.add(folder(u"/d/g"));
    EXPECT_EQ(contents.findFolder(u"f"), nullptr);
    EXPECT_EQ(contents.findFile(u"g"), nullptr);
    EXPECT_NE(contents.findFolder(u"g"), nullptr);
}

TEST(FolderContents, AnEntryOfAnUnknownTypeIsNeitherFileNorFolder) {
    FolderContents contents(folder(u"/d"));
    contents.add(entry(ZipEntryType(7), u"/d/x"));
    EXPECT_EQ(contents.findFile(u"x"), nullptr);
    EXPECT_EQ(contents.findFolder(u"x"), nullptr);
}

TEST(FolderContents, KeepTheFirstChildOfANameWhateverItsType) {
    FolderContents contents(folder(u"/d"));
    const auto first = file(u"/d/x", 1);
    contents.add(first);
    contents.add(file(u"/d/x", 2));
    contents.add(folder(u"/d/x"));
    EXPECT_EQ(contents.findFile(u"x"), first);
    EXPECT_EQ(contents.findFolder(u"x"), nullptr);
    EXPECT_EQ(names(contents), std::vector<ustring>{u"x"});
}

TEST(FolderContents, CopiesShareTheChildren) {
    FolderContents contents(folder(u"/d"));
    const FolderContents copy = contents;
    contents.add(file(u"/d/a"));
    EXPECT_NE(copy.findFile(u"a"), nullptr);
}

TEST(FolderContents, OrderChildrenByCodeUnitsWithAPrefixFirst) {
    FolderContents contents(folder(u"/"));
    for (const auto* name : {u"/b", u"/\uFF01", u"/a.txt", u"/B", u"/\U0001F600", u"/a", u"/a-"}) {
        contents.add(file(name));
    }
    EXPECT_EQ(names(contents),
              (std::vector<ustring>{u"B", u"a", u"a-", u"a.txt", u"b", u"\U0001F600", u"\uFF01"}));
}

TEST(FolderContents, CanHaveAChildReplacedAndRemoved) {
    FolderContents contents(folder(u"/d"));
    contents.add(file(u"/d/x", 1));
    contents.replace(file(u"/d/x", 2));
    ASSERT_NE(contents.findFile(u"x"), nullptr);
    EXPECT_EQ(contents.findFile(u"x")->size, 2u);
    const auto removed = contents.remove(u"x");
    ASSERT_NE(removed, nullptr);
    EXPECT_EQ(removed->size, 2u);
    EXPECT_TRUE(contents.empty());
    EXPECT_EQ(contents.remove(u"x"), nullptr);
    contents.replace(file(u"/d/y"));
    EXPECT_NE(contents.findFile(u"y"), nullptr);
}

TEST(FolderContents, CanBeUsedByManyThreadsAtOnce) {
    FolderContents contents(folder(u"/"));
    std::atomic<bool> done = false;
    std::thread reader([&] {
        while (!done) {
            contents.snapshot([](const FolderEntry& child) { return child.type == ZipEntryType::File; });
            contents.findFile(u"n17");
            contents.ownEntry();
        }
    });
    std::vector<std::thread> writers;
    for (int writer = 0; writer < 3; ++writer) {
        writers.emplace_back([&contents, writer] {
            for (int i = 0; i < 300; ++i) {
                const auto digits = std::to_string(i);
                contents.add(
                    file(u"/n" + ustring(digits.begin(), digits.end()), static_cast<std::uint64_t>(writer)));
            }
        });
    }
    for (auto& writer : writers) {
        writer.join();
    }
    done = true;
    reader.join();
    EXPECT_EQ(names(contents).size(), 300u);
}

} // namespace
