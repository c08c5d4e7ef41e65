#include <storage/vfs/src/WatchedStorage.h>

#include <foundation/storage/provider/Exception.h>
#include <support/ForwardingProvider.h>
#include <support/InMemoryProvider.h>
#include <support/contents.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>

using namespace foundation::storage::provider;
using namespace kx::test;
using storage::vfs::ContainerWatch;
using storage::vfs::WatchedStorage;

namespace {

/// Has an own way for what the library would do by default in terms of other operations, and tells when it
/// was taken.
class OwnWays final : public ForwardingProvider {
public:
    explicit OwnWays(std::shared_ptr<IProvider> target) : ForwardingProvider(std::move(target)) {}
    ~OwnWays() override { endChangePolling(); }

    std::string taken;

protected:
    void doCopyFile(const StorageIRI&, const StorageIRI&, MoveOption) override { taken = "copyFile"; }
    void doCopyFileAtomic(const StorageIRI&, const StorageIRI&, MoveOption) override {
        taken = "copyFileAtomic";
    }
    void doSetLastModified(const StorageIRI&, boost::posix_time::ptime) override {
        taken = "setLastModified";
    }
    void doSetWritable(const StorageIRI&, bool) override { taken = "setWritable"; }
    void doTruncateToSize(const StorageIRI&, std::uint64_t) override { taken = "truncateToSize"; }
    PathComparator doGetPathComparator() override {
        taken = "getPathComparator";
        return ForwardingProvider::doGetPathComparator();
    }
    FileAttributes doGetFileAttributes(const StorageIRI& location) override {
        taken = "getFileAttributes";
        return ForwardingProvider::doGetFileAttributes(location);
    }
    ProviderStorageInfo doGetProviderStorageInfo() override {
        taken = "getProviderStorageInfo";
        return {};
    }
};

class WatchedStorageTest : public ::testing::Test {
protected:
    void SetUp() override { writeFile(*memory, file, "old"); }

    const std::shared_ptr<InMemoryProvider> memory = std::make_shared<InMemoryProvider>();
    const std::shared_ptr<OwnWays> own = std::make_shared<OwnWays>(memory);
    WatchedStorage watched{own, std::make_shared<ContainerWatch>()};
    const StorageIRI file = memory->at(u"/a.txt");
    const StorageIRI other = memory->at(u"/b.txt");
    const boost::posix_time::ptime time{boost::gregorian::date(2001, 2, 3)};

    struct Operation {
        std::string name;
        std::function<void()> call;
    };
    std::vector<Operation> changes() {
        return {
            {"copyFile", [this] { watched.copyFile(file, other, {}); }},
            {"copyFileAtomic", [this] { watched.copyFileAtomic(file, other, {}); }},
            {"setLastModified", [this] { watched.setLastModified(file, time); }},
            {"setWritable", [this] { watched.setWritable(file, false); }},
            {"truncateToSize", [this] { watched.truncateToSize(file, 1); }},
        };
    }
};

TEST_F(WatchedStorageTest, GoesTheWaysOfTheStorageThatItStandsFor) {
    for (const auto& operation : changes()) {
        operation.call();
        EXPECT_EQ(own->taken, operation.name);
    }
    watched.getPathComparator();
    EXPECT_EQ(own->taken, "getPathComparator");
    watched.getProviderStorageInfo();
    EXPECT_EQ(own->taken, "getProviderStorageInfo");
}

TEST_F(WatchedStorageTest, AnswersAsTheStorageThatItStandsFor) {
    const auto listing = watched.listAll(memory->at(u"/"));
    ASSERT_TRUE(listing->hasNext());
    listing->next();
    EXPECT_EQ(listing->current().getName(), u"a.txt");
    EXPECT_FALSE(listing->hasNext());
    for (const auto feature : {Feature::SetLastModified, Feature::SetWritable}) {
        EXPECT_EQ(watched.hasFeature(feature), own->hasFeature(feature));
    }
    EXPECT_EQ(watched.getCanonicalLocation(file), memory->getCanonicalLocation(file));
    EXPECT_EQ(watched.getFilenameSensitivity(), memory->getFilenameSensitivity());
    EXPECT_TRUE(watched.exists(file));
    EXPECT_FALSE(watched.exists(other));
    EXPECT_EQ(watched.getExtendedAttributes(file).writable, memory->getExtendedAttributes(file).writable);
    EXPECT_EQ(watched.getExtendedAttributes(file).properties, memory->getExtendedAttributes(file).properties);
}

TEST_F(WatchedStorageTest, FoldersAreThoseOfTheStorageThatItStandsFor) {
    const auto folder = memory->at(u"/folder");
    const auto moved = memory->at(u"/moved");
    watched.createFolder(folder);
    watched.createFile(folder.child(u"x"));
    watched.createFolder(folder.child(u"sub"));
    EXPECT_TRUE(watched.isFolder(folder));
    EXPECT_FALSE(watched.isFolder(file));
    EXPECT_TRUE(memory->isFile(folder.child(u"x")));
    EXPECT_EQ(watched.getFolderAttributes(folder).isWritable(),
              memory->getFolderAttributes(folder).isWritable());
    const auto only = [](const auto& listing) {
        EXPECT_TRUE(listing->hasNext());
        listing->next();
        const auto name = listing->current().getName();
        EXPECT_FALSE(listing->hasNext());
        return name;
    };
    EXPECT_EQ(only(watched.listFiles(folder)), u"x");
    EXPECT_EQ(only(watched.listFolders(folder)), u"sub");
    watched.moveFolder(folder, moved, MoveOption::FailIfExists);
    EXPECT_FALSE(memory->exists(folder));
    EXPECT_TRUE(memory->isFile(moved.child(u"x")));
    watched.removeFolder(moved.child(u"sub"));
    EXPECT_FALSE(memory->exists(moved.child(u"sub")));
    watched.cutOff();
    EXPECT_THROW(watched.removeFolder(moved), Exception);
    EXPECT_THROW(watched.moveFolder(moved, folder, MoveOption::FailIfExists), Exception);
    EXPECT_TRUE(memory->isFile(moved.child(u"x")));
}

TEST_F(WatchedStorageTest, ReadingAsksForTheSizeOnlyWhileSomebodyWatches) {
    const auto watch = std::make_shared<ContainerWatch>();
    WatchedStorage storage{own, watch};
    own->taken.clear();
    storage.openReadStream(file)->close();
    EXPECT_EQ(own->taken, "");
    std::uint64_t size = 0;
    watch->set([&](const storage::vfs::SaveProgress& progress) { size = progress.oldSize; });
    EXPECT_EQ(readAll(*storage.openReadStream(file)), "old");
    EXPECT_EQ(own->taken, "getFileAttributes");
    EXPECT_EQ(size, 3U);
}

TEST_F(WatchedStorageTest, NothingChangesWhatItIsCutOffFrom) {
    watched.cutOff();
    for (const auto& operation : changes()) {
        EXPECT_THROW(operation.call(), Exception) << operation.name;
        EXPECT_EQ(own->taken, "") << operation.name;
    }
    EXPECT_THROW(watched.createFile(other), Exception);
    EXPECT_THROW(watched.createFolder(other), Exception);
    EXPECT_THROW(watched.removeFile(file), Exception);
    EXPECT_THROW(watched.moveFile(file, other, {}), Exception);
    EXPECT_THROW(watched.openStream(file, ByteStreamOpenOptions::overwrite()), Exception);
    EXPECT_EQ(readFile(*memory, file), "old");
    EXPECT_FALSE(memory->exists(other));
}

TEST_F(WatchedStorageTest, AStreamThatIsCutOffBeforeItWroteAnythingDoesNotEmptyTheFile) {
    for (const bool transactional : {false, true}) {
        WatchedStorage cut{own, std::make_shared<ContainerWatch>()};
        auto stream = transactional ? cut.openTransactionalStream(file, ByteStreamOpenOptions::overwrite())
                                    : cut.openStream(file, ByteStreamOpenOptions::overwrite());
        cut.cutOff();
        EXPECT_THROW(stream->close(), Exception);
        EXPECT_EQ(readFile(*memory, file), "old");
        stream.reset();
        EXPECT_EQ(readFile(*memory, file), "old");
    }
}

TEST_F(WatchedStorageTest, AStreamThatOnlyReadsIsClosedAlsoWhenCutOff) {
    const auto stream = watched.openReadStream(file);
    watched.cutOff();
    stream->close();
    EXPECT_EQ(memory->callCount(ProviderOperation::StreamClose), 2U);
}

} // namespace
