#include "MemoryArchive.h"
#include "ReadArchive.h"

#include <storage/zipprovider/src/FileFolderEntryIterator.h>
#include <storage/zipprovider/src/MiniZipException.h>

#include <foundation/storage/provider/Exception.h>
#include <support/FaultInjectingProvider.h>
#include <support/archives/ArchiveBuilder.h>
#include <support/archives/ArchiveShapes.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <vector>

namespace {

using namespace kx::test;
using namespace storage::zipprovider;
using boost::posix_time::ptime;
using fl::i18n::ustring;
using testing::ElementsAre;
using testing::IsEmpty;

using State = ZipState<HostItem, HostDevice>;
using Names = std::vector<ustring>;

ptime onDay(int day) {
    return ptime(boost::gregorian::date(2020, 1, static_cast<unsigned short>(day)));
}

ZipEntryInfo record(const ustring& name, std::uint64_t size = 0, int day = 1) {
    return {ZipEntryPath(name),
            size,
            onDay(day),
            0,
            name.ends_with(u'/') ? ZipEntryType::Folder : ZipEntryType::File,
            {name, {}},
            0,
            0};
}

class FolderIndex : public testing::Test {
protected:
    State::BasalState indexOf(std::vector<ZipEntryInfo> records) const {
        return m_state.doBuildRepresentation(EntryInfos(std::move(records)));
    }

    MemoryArchive m_archive{ArchiveBuilder().build()};
    State m_state{m_archive.item()};
};

std::vector<ustring> keys(const State::BasalState& index) {
    std::vector<ustring> result;
    for (const auto& [path, contents] : index) {
        EXPECT_NE(contents, nullptr);
        result.push_back(path.toString());
    }
    return result;
}

FolderContents& folderAt(const State::BasalState& index, const ustring& path) {
    const auto place = index.find(ZipEntryPath(path));
    if (place == index.end()) {
        throw std::out_of_range("no such folder in the index");
    }
    return *place->second;
}

Names childrenOf(const State::BasalState& index, const ustring& path) {
    Names names;
    for (const auto& [name, child] :
         folderAt(index, path).snapshot([](const FolderEntry&) { return true; })) {
        EXPECT_EQ(child->path, ZipEntryPath(path).child(name));
        names.push_back(child->type == ZipEntryType::Folder ? name + u"/" : name);
    }
    return names;
}

TEST_F(FolderIndex, OfAnArchiveWithNoEntriesHasTheRootAloneWithTheTimeOfTheArchiveFile) {
    const auto index = indexOf({});
    EXPECT_THAT(keys(index), ElementsAre(u"/"));
    EXPECT_THAT(childrenOf(index, u"/"), IsEmpty());
    const auto root = folderAt(index, u"/").ownEntry();
    EXPECT_EQ(root->type, ZipEntryType::Folder);
    EXPECT_EQ(root->path, ZipEntryPath(u"/"));
    EXPECT_EQ(root->size, 0u);
    EXPECT_EQ(root->lastModified, MemoryArchive::time());
}

TEST_F(FolderIndex, HasTheSameFolderAndFileWhicheverRecordComesFirst) {
    for (const bool fileFirst : {true, false}) {
        std::vector<ZipEntryInfo> records{record(u"a/b.txt", 5, 1), record(u"a/", 0, 2)};
        if (!fileFirst) {
            std::swap(records[0], records[1]);
        }
        const auto index = indexOf(records);
        EXPECT_THAT(childrenOf(index, u"/"), ElementsAre(u"a/"));
        EXPECT_THAT(childrenOf(index, u"/a"), ElementsAre(u"b.txt"));
        EXPECT_EQ(folderAt(index, u"/a").findFile(u"b.txt")->size, 5u);
        EXPECT_EQ(folderAt(index, u"/").findFolder(u"a")->lastModified, onDay(fileFirst ? 1 : 2));
        EXPECT_EQ(folderAt(index, u"/a").ownEntry()->lastModified, onDay(fileFirst ? 1 : 2));
    }
}

TEST_F(FolderIndex, KeepsFoldersThatDifferInLetterCaseApart) {
    const auto index = indexOf({record(u"A/x"), record(u"a/x")});
    EXPECT_THAT(childrenOf(index, u"/"), ElementsAre(u"A/", u"a/"));
    EXPECT_THAT(childrenOf(index, u"/A"), ElementsAre(u"x"));
    EXPECT_THAT(childrenOf(index, u"/a"), ElementsAre(u"x"));
}

TEST_F(FolderIndex, ReportsTheSizeOfTheFirstOfTwoRecordsOfOneName) {
    const auto index =
        indexOf({record(u"d/f.txt", 1, 1), record(u"d/f.txt", 2, 2), record(u"d//f.txt", 3, 3)});
    EXPECT_THAT(childrenOf(index, u"/d"), ElementsAre(u"f.txt"));
    EXPECT_EQ(folderAt(index, u"/d").findFile(u"f.txt")->size, 1u);
    EXPECT_EQ(folderAt(index, u"/d").findFile(u"f.txt")->lastModified, onDay(1));
}

TEST_F(FolderIndex, PutsARecordWithALeadingSlashWhereTheSameWithoutItGoes) {
    const auto index = indexOf({record(u"/abs/f", 1)});
    EXPECT_THAT(keys(index), ElementsAre(u"/", u"/abs", u"/abs/f"));
    EXPECT_THAT(childrenOf(index, u"/abs"), ElementsAre(u"f"));
    EXPECT_EQ(keys(index), keys(indexOf({record(u"abs/f", 1)})));
}

TEST_F(FolderIndex, ShowsTheFirstComponentOfAFileXInXAsAFileInTheRoot) {
    const auto index = indexOf({record(u"x/x", 7)});
    EXPECT_THAT(childrenOf(index, u"/"), ElementsAre(u"x"));
    EXPECT_EQ(folderAt(index, u"/").findFile(u"x")->size, 7u);
    EXPECT_THAT(childrenOf(index, u"/x"), ElementsAre(u"x"));
    EXPECT_EQ(folderAt(index, u"/x").findFile(u"x")->size, 7u);
    EXPECT_THAT(keys(index), ElementsAre(u"/", u"/x", u"/x/x"));
}

TEST_F(FolderIndex, ShowsAComponentInTheMiddleThatHasTheFilesNameAsAFileToo) {
    const auto index = indexOf({record(u"a/x/b/x", 7)});
    EXPECT_THAT(childrenOf(index, u"/"), ElementsAre(u"a/"));
    EXPECT_THAT(childrenOf(index, u"/a"), ElementsAre(u"x"));
    EXPECT_THAT(childrenOf(index, u"/a/x"), ElementsAre(u"b/"));
    EXPECT_THAT(childrenOf(index, u"/a/x/b"), ElementsAre(u"x"));
}

TEST_F(FolderIndex, KeepsAFolderXInXAsTwoFolders) {
    const auto index = indexOf({record(u"x/x/")});
    EXPECT_THAT(childrenOf(index, u"/"), ElementsAre(u"x/"));
    EXPECT_THAT(childrenOf(index, u"/x"), ElementsAre(u"x/"));
    EXPECT_THAT(childrenOf(index, u"/x/x"), IsEmpty());
}

TEST_F(FolderIndex, MakesTheFoldersThatAFileImpliesWithTheTimeOfTheFirstRecordThroughThem) {
    const auto index = indexOf({record(u"a/b/c.txt", 9, 3), record(u"a/d.txt", 9, 4), record(u"a/b/", 0, 5)});
    EXPECT_THAT(keys(index), ElementsAre(u"/", u"/a", u"/a/b", u"/a/b/c.txt", u"/a/d.txt"));
    EXPECT_THAT(childrenOf(index, u"/"), ElementsAre(u"a/"));
    EXPECT_THAT(childrenOf(index, u"/a"), ElementsAre(u"b/", u"d.txt"));
    const auto a = folderAt(index, u"/").findFolder(u"a");
    EXPECT_EQ(a->lastModified, onDay(3));
    EXPECT_EQ(a->size, 0u);
    EXPECT_EQ(folderAt(index, u"/a").findFolder(u"b")->lastModified, onDay(3));
    EXPECT_EQ(folderAt(index, u"/a/b").ownEntry()->lastModified, onDay(3));
}

TEST_F(FolderIndex, HasAChildlessFolderUnderTheKeyOfAFile) {
    const auto index = indexOf({record(u"f.txt", 5, 2)});
    EXPECT_THAT(childrenOf(index, u"/f.txt"), IsEmpty());
    EXPECT_EQ(folderAt(index, u"/f.txt").ownEntry()->type, ZipEntryType::Folder);
    EXPECT_EQ(folderAt(index, u"/").findFolder(u"f.txt"), nullptr);
}

TEST_F(FolderIndex, KeepsWhicheverOfAFileAndAFolderOfOneNameCameFirst) {
    const auto fileFirst = indexOf({record(u"x", 4, 1), record(u"x/", 0, 2)});
    EXPECT_THAT(childrenOf(fileFirst, u"/"), ElementsAre(u"x"));
    EXPECT_EQ(folderAt(fileFirst, u"/").findFile(u"x")->size, 4u);
    const auto folderFirst = indexOf({record(u"x/", 0, 1), record(u"x", 4, 2)});
    EXPECT_THAT(childrenOf(folderFirst, u"/"), ElementsAre(u"x/"));
    EXPECT_THAT(keys(folderFirst), ElementsAre(u"/", u"/x"));
}

TEST_F(FolderIndex, KeepsAFileWhereAFolderOfItsNameWithChildrenFollows) {
    const auto index = indexOf({record(u"x", 4, 1), record(u"x/y", 1, 2)});
    EXPECT_THAT(childrenOf(index, u"/"), ElementsAre(u"x"));
    EXPECT_THAT(childrenOf(index, u"/x"), ElementsAre(u"y"));
}

TEST_F(FolderIndex, ReportsSizeZeroForAFolderThatHasBytes) {
    const auto index = indexOf({record(u"d/", 12)});
    EXPECT_EQ(folderAt(index, u"/").findFolder(u"d")->size, 0u);
}

TEST_F(FolderIndex, IgnoresRecordsThatNameTheRootItself) {
    const auto index = indexOf({record(u"/"), record(u"//")});
    EXPECT_THAT(keys(index), ElementsAre(u"/"));
    EXPECT_EQ(folderAt(index, u"/").ownEntry()->lastModified, MemoryArchive::time());
}

TEST_F(FolderIndex, OrdersChildrenByNameWhateverTheOrderOfTheRecords) {
    const auto index = indexOf({record(u"b"), record(u"a.txt"), record(u"a/"), record(u"B"), record(u"a-b")});
    EXPECT_THAT(childrenOf(index, u"/"), ElementsAre(u"B", u"a/", u"a-b", u"a.txt", u"b"));
}

TEST_F(FolderIndex, OrdersItsKeysByTheirText) {
    const auto index = indexOf({record(u"a/b"), record(u"a.txt"), record(u"a-b")});
    EXPECT_THAT(keys(index), ElementsAre(u"/", u"/a", u"/a-b", u"/a.txt", u"/a/b"));
}

/// The index by the letter of its rules, without any short cut.
class PlainIndex {
public:
    struct Child {
        ZipEntryType type;
        std::uint64_t size;
        ptime time;
    };
    using Folder = std::map<ustring, Child>;

    explicit PlainIndex(const std::vector<ZipEntryInfo>& records) {
        folders[u"/"];
        for (const auto& info : records) {
            const auto name = info.path.fileName();
            ZipEntryPath current(u"/");
            for (const auto& component : info.path.components()) {
                current = ZipEntryPath(current.toString() + u"/" + component);
                folders[current.toString()];
                const bool isFile = component == name && info.type == ZipEntryType::File;
                folders[current.parentPath()].try_emplace(
                    component, isFile ? Child{ZipEntryType::File, info.size, info.lastModified}
                                      : Child{ZipEntryType::Folder, 0, info.lastModified});
            }
        }
    }

    std::map<ustring, Folder> folders;
};

TEST_F(FolderIndex, IsTheOneOfThePlainRulesOnRandomRecords) {
    std::mt19937 random(42);
    for (int round = 0; round < 300; ++round) {
        std::vector<ZipEntryInfo> records;
        for (auto left = random() % 20; left > 0; --left) {
            ustring name(random() % 4 == 0 ? 1 : 0, u'/');
            for (auto depth = random() % 4 + 1; depth > 0; --depth) {
                constexpr const char16_t* components[] = {u"x", u"y", u"A", u"a", u"a.b", u"a-b", u".."};
                name += components[random() % std::size(components)];
                name += depth > 1 || random() % 3 == 0 ? u"/" : u"";
            }
            records.push_back(record(name, random() % 1000, static_cast<int>(random() % 28 + 1)));
        }
        const PlainIndex plain(records);
        const auto index = indexOf(records);
        ASSERT_EQ(index.size(), plain.folders.size());
        for (const auto& [path, children] : plain.folders) {
            const auto& folder = folderAt(index, path);
            const auto seen = folder.snapshot([](const FolderEntry&) { return true; });
            ASSERT_EQ(seen.size(), children.size());
            for (const auto& [name, child] : children) {
                const auto& entry = *seen.at(name);
                ASSERT_EQ(entry.type, child.type);
                ASSERT_EQ(entry.size, child.size);
                ASSERT_EQ(entry.lastModified, child.time);
            }
        }
    }
}

// --- reading the archive

TEST(BasalState, IsBuiltFromTheContainersDirectory) {
    const MemoryArchive archive(simpleArchive({{"docs/", ""}, {"docs/a.txt", "text"}}));
    const State state(archive.item());
    ASSERT_NE(state.findFolder(ZipEntryPath(u"/docs")), nullptr);
    EXPECT_EQ(state.findFolder(ZipEntryPath(u"/docs"))->findFile(u"a.txt")->size, 4u);
    EXPECT_EQ(state.findFolder(ZipEntryPath(u"docs")), nullptr);
    EXPECT_TRUE(state.isFolder(ZipEntryPath(u"/docs")));
    EXPECT_FALSE(state.isFolder(ZipEntryPath(u"/docs/a.txt")));
    EXPECT_TRUE(state.isFolder(ZipEntryPath(u"/")));
    EXPECT_EQ(state.archiveLastModified(), MemoryArchive::time());
    EXPECT_FALSE(state.stateChanged());
}

TEST(BasalState, OfAnEmptyContainerIsThatOfAnEmptyArchive) {
    const MemoryArchive archive("");
    const State state(archive.item());
    ASSERT_NE(state.findFolder(ZipEntryPath(u"/")), nullptr);
    EXPECT_TRUE(state.findFolder(ZipEntryPath(u"/"))->empty());
}

TEST(BasalState, AnswersEveryStoredNameWithTheNameAsItIsStored) {
    const MemoryArchive archive(simpleArchive({{"/abs/f", "1"}, {"a//b", "2"}, {"plain", "3"}}));
    const State state(archive.item());
    EXPECT_EQ(state.originalEntry(ZipEntryPath(u"/abs/f")).stored.name, u"/abs/f");
    EXPECT_EQ(state.originalEntry(ZipEntryPath(u"/a/b")).stored.name, u"a//b");
    for (const auto& [path, contents] :
         {std::pair(u"/abs/f", "1"), std::pair(u"/a/b", "2"), std::pair(u"/plain", "3")}) {
        const auto source = state.openOriginalEntry(ZipEntryPath(path));
        EXPECT_EQ(contentsOf(*source), contents);
    }
}

TEST(BasalState, RaisesARuntimeErrorForANameThatIsNotStored) {
    const MemoryArchive archive(simpleArchive({{"a/b", "1"}, {"x/x", "2"}}));
    const State state(archive.item());
    for (const auto* path : {u"/missing", u"/a", u"/x", u"a/b"}) {
        try {
            state.originalEntry(ZipEntryPath(path));
            ADD_FAILURE() << "found " << ZipEntryPath(path);
        } catch (const MiniZipException&) {
            ADD_FAILURE() << "a failure of the ZIP library would be tried again";
        } catch (const std::runtime_error& error) {
            EXPECT_STREQ(error.what(), "Retrieval of original entry name broke");
        }
    }
}

TEST(BasalState, OfTwoEntriesWithOneNameHasTheBytesOfTheFirst) {
    const MemoryArchive archive(simpleArchive({{"d/f", "first"}, {"d/f", "the second"}}));
    const State state(archive.item());
    EXPECT_EQ(state.findFolder(ZipEntryPath(u"/d"))->findFile(u"f")->size, 5u);
    EXPECT_EQ(contentsOf(*state.openOriginalEntry(ZipEntryPath(u"/d/f"))), "first");
}

TEST(BasalState, IsReplacedWholeByARebuildWhileOldContentsShowTheOldState) {
    MemoryArchive archive(simpleArchive({{"old/a", "1"}}));
    const State state(archive.item());
    const auto oldRoot = state.findFolder(ZipEntryPath(u"/"));
    const auto oldFolder = state.findFolder(ZipEntryPath(u"/old"));
    archive.replace(simpleArchive({{"new/b", "2"}}));
    state.rebuildBasalState();
    EXPECT_EQ(state.findFolder(ZipEntryPath(u"/old")), nullptr);
    EXPECT_NE(state.findFolder(ZipEntryPath(u"/new")), nullptr);
    EXPECT_NE(state.findFolder(ZipEntryPath(u"/")), oldRoot);
    EXPECT_NE(oldRoot->findFolder(u"old"), nullptr);
    EXPECT_EQ(oldRoot->findFolder(u"new"), nullptr);
    EXPECT_NE(oldFolder->findFile(u"a"), nullptr);
}

TEST(BasalState, AListingTakenBeforeARebuildKeepsYieldingTheChildrenThatExisted) {
    MemoryArchive archive(simpleArchive({{"d/a", "1"}, {"d/b", "2"}, {"d/c", "3"}}));
    const State state(archive.item());
    FileFolderEntryIterator<is_file_or_folder_predicate> listing(state.findFolder(ZipEntryPath(u"/d")));
    listing.next();
    archive.replace(simpleArchive({{"d/x", "4"}}));
    state.rebuildBasalState();
    EXPECT_THAT(listNames(listing), ElementsAre(u"b", u"c"));
}

TEST(BasalState, StaysAsItIsWhenARebuildFails) {
    MemoryArchive archive(simpleArchive({{"old/a", "1"}}));
    const auto plan = std::make_shared<FaultPlan>();
    const State state(archive.itemOf(std::make_shared<FaultInjectingProvider>(archive.memory(), plan)));

    plan->failCall(1, {ProviderOperation::OpenReadStream});
    EXPECT_THROW(state.rebuildBasalState(), foundation::storage::provider::Exception);
    EXPECT_NE(state.findFolder(ZipEntryPath(u"/old")), nullptr);

    plan->countOnly();
    ArchiveBuilder impossible;
    impossible.add("new", "1").add("undated", "2");
    impossible.last().modified = {0, 0};
    archive.replace(impossible.build());
    EXPECT_THROW(state.rebuildBasalState(), std::out_of_range);
    EXPECT_NE(state.findFolder(ZipEntryPath(u"/old")), nullptr);
    EXPECT_EQ(state.findFolder(ZipEntryPath(u"/new")), nullptr);
    EXPECT_EQ(archive.memory()->openStreamCount(), 0u);
}

TEST(BasalState, OfAnUndatedEntryCannotBeBuiltAtAll) {
    ArchiveBuilder impossible;
    impossible.add("undated", "2");
    impossible.last().modified = {0, 0};
    const MemoryArchive archive(impossible.build());
    EXPECT_THROW(State(archive.item()), std::out_of_range);
}

TEST(BasalState, ClosesEveryStreamThatItOpens) {
    const MemoryArchive archive(wideArchive(3, 3));
    const State state(archive.item());
    EXPECT_EQ(archive.memory()->openStreamCount(), 0u);
    contentsOf(*state.openOriginalEntry(ZipEntryPath(u"/d0001/f0002.txt")));
    EXPECT_EQ(archive.memory()->openStreamCount(), 0u);
}

TEST(BasalState, HoldsThirtyThousandFoldersInOneAnotherWithoutMuchMemory) {
    const auto peak = [] {
        rusage usage{};
        getrusage(RUSAGE_SELF, &usage);
        return usage.ru_maxrss;
    };
    const auto before = peak();
    const MemoryArchive archive(deepArchive(30'000));
    const State state(archive.item());
    EXPECT_LT(peak() - before, 500'000) << "KiB";
    ustring deepest;
    for (int i = 0; i < 30'000; ++i) {
        deepest += u"/n";
    }
    ASSERT_NE(state.findFolder(ZipEntryPath(deepest)), nullptr);
    EXPECT_NE(state.findFolder(ZipEntryPath(deepest))->findFile(u"leaf.txt"), nullptr);
}

} // namespace
