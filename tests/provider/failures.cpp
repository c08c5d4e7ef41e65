#include <foundation/storage/provider/Exception.h>
#include <support/FaultInjectingProvider.h>
#include <support/InMemoryProvider.h>
#include <support/TemporaryFolder.h>
#include <support/contents.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>

namespace kx::test {

namespace {

using namespace foundation::storage::provider;
using Names = std::vector<fl::i18n::ustring>;

const std::string oldContents = "old contents, longer than one piece of a short read";
const std::string newContents = "new contents of the file";

/// A provider in memory behind one that injects faults, with the file /f/a, and a folder for local temporary
/// files that is looked at afterwards.
class FailingDefaults : public testing::Test {
protected:
    using Scenario = std::function<void(IProvider&)>;
    /// Looks at the state that a failed or a successful run left.
    using Check = std::function<void(bool failed)>;

    FailingDefaults() { ::setenv("TMPDIR", m_temporary.path().c_str(), 1); }
    ~FailingDefaults() override { ::unsetenv("TMPDIR"); }

    InMemoryProvider& memory() { return *m_memory; }
    StorageIRI at(fl::i18n::ustring_view path) { return m_memory->at(path); }

    /// Lets each call of the scenario fail in turn, the provider being made anew for each.
    void failEachCall(const Scenario& prepare, const Scenario& run, const Check& check,
                      FaultPlan::Afterwards afterwards = FaultPlan::Afterwards::Works) {
        startAnew(prepare);
        m_plan->countOnly();
        run(*m_failing);
        check(false);
        const auto calls = m_plan->count();
        ASSERT_GT(calls, 0U);
        for (std::uint64_t call = 1; call <= calls; ++call) {
            SCOPED_TRACE("call " + std::to_string(call) + " of " + std::to_string(calls) + " fails");
            startAnew(prepare);
            m_plan->failCall(call, {}, afterwards);
            bool failed = false;
            try {
                run(*m_failing);
            } catch (const Exception& failure) {
                failed = true;
                EXPECT_EQ(failure.getErrorCode(), ErrorCode::LocalFileSystem) << failure.what();
                EXPECT_EQ(failure.getCause(), "injected fault");
            }
            EXPECT_GT(m_plan->failures(), 0U);
            EXPECT_TRUE(failed) << "a failure was swallowed";
            check(failed);
            EXPECT_EQ(m_memory->openStreamCount(), 0U);
            EXPECT_TRUE(std::filesystem::is_empty(m_temporary.path()));
        }
    }

private:
    void startAnew(const Scenario& prepare) {
        m_memory = std::make_shared<InMemoryProvider>();
        m_plan = std::make_shared<FaultPlan>();
        m_plan->limitReads(20);
        m_failing = std::make_shared<FaultInjectingProvider>(m_memory, m_plan);
        m_memory->createFolder(at(u"/f"));
        writeFile(*m_memory, at(u"/f/a"), oldContents);
        prepare(*m_memory);
    }

    const TemporaryFolder m_temporary;
    std::shared_ptr<InMemoryProvider> m_memory;
    std::shared_ptr<FaultPlan> m_plan;
    std::shared_ptr<FaultInjectingProvider> m_failing;
};

TEST_F(FailingDefaults, AnAtomicCopyLeavesTheOldOrTheNewContentsAndNothingElse) {
    failEachCall([this](IProvider& storage) { writeFile(storage, at(u"/source"), newContents); },
                 [this](IProvider& storage) {
                     storage.copyFileAtomic(at(u"/source"), at(u"/f/a"), MoveOption::ReplaceExisting);
                 },
                 [this](bool failed) {
                     EXPECT_EQ(readFile(memory(), at(u"/f/a")), failed ? oldContents : newContents);
                     EXPECT_EQ(memory().listAllNamesOnly(at(u"/f")), Names{u"a"});
                 });
}

TEST_F(FailingDefaults, AnAtomicCopyKeepsTheOldContentsOnAStorageThatFailsForGood) {
    failEachCall([this](IProvider& storage) { writeFile(storage, at(u"/source"), newContents); },
                 [this](IProvider& storage) {
                     storage.copyFileAtomic(at(u"/source"), at(u"/f/a"), MoveOption::ReplaceExisting);
                 },
                 [this](bool failed) {
                     EXPECT_EQ(readFile(memory(), at(u"/f/a")), failed ? oldContents : newContents);
                 },
                 FaultPlan::Afterwards::FailsOn);
}

TEST_F(FailingDefaults, ACopyThatFailsSaysSoAndKeepsTheSource) {
    failEachCall([this](IProvider& storage) { writeFile(storage, at(u"/source"), newContents); },
                 [this](IProvider& storage) {
                     storage.copyFile(at(u"/source"), at(u"/f/b"), MoveOption::FailIfExists);
                 },
                 [this](bool failed) {
                     EXPECT_EQ(readFile(memory(), at(u"/source")), newContents);
                     EXPECT_EQ(memory().exists(at(u"/f/b")), !failed);
                 });
}

TEST_F(FailingDefaults, ATransactionalStreamLeavesTheOldOrTheNewContents) {
    failEachCall(
        [](IProvider&) {},
        [this](IProvider& storage) {
            const auto stream = storage.openTransactionalStream(at(u"/f/a"), ByteStreamOpenOptions::append());
            writeAll(*stream, newContents);
            stream->close();
        },
        [this](bool failed) {
            EXPECT_EQ(readFile(memory(), at(u"/f/a")), failed ? oldContents : oldContents + newContents);
            EXPECT_EQ(memory().listAllNamesOnly(at(u"/f")), Names{u"a"});
        });
}

TEST_F(FailingDefaults, ATransactionalStreamAtAScratchLocationLeavesNoScratchFile) {
    failEachCall(
        [this](IProvider& storage) { storage.createFolder(at(u"/scratch")); },
        [this](IProvider& storage) {
            const auto stream = storage.openTransactionalStreamAtScratchLocation(
                at(u"/f/a"), at(u"/scratch"), ByteStreamOpenOptions::modify());
            writeAll(*stream, newContents);
            stream->close();
        },
        [this](bool failed) {
            const auto changed = newContents + oldContents.substr(newContents.size());
            EXPECT_EQ(readFile(memory(), at(u"/f/a")), failed ? oldContents : changed);
            EXPECT_EQ(memory().listAllRecursiveNamesOnly(at(u"/")), (Names{u"f", u"f/a", u"scratch"}));
        });
}

TEST_F(FailingDefaults, TruncatingLeavesTheOldOrTheNewContents) {
    for (const std::uint64_t size : {0U, 10U, 1000U}) {
        failEachCall([](IProvider&) {},
                     [&](IProvider& storage) { storage.truncateToSize(at(u"/f/a"), size); },
                     [&](bool failed) {
                         auto cut = oldContents;
                         cut.resize(size);
                         EXPECT_EQ(readFile(memory(), at(u"/f/a")), failed ? oldContents : cut);
                     });
    }
}

TEST_F(FailingDefaults, RecursiveCreationReportsEveryFailure) {
    failEachCall([](IProvider&) {},
                 [this](IProvider& storage) { storage.createFolderRecursive(at(u"/f/x/y/z")); },
                 [this](bool failed) { EXPECT_EQ(memory().isFolder(at(u"/f/x/y/z")), !failed); });
}

TEST_F(FailingDefaults, RecursiveRemovalReportsEveryFailure) {
    failEachCall([this](IProvider& storage) { storage.createFolderRecursive(at(u"/f/x/y")); },
                 [this](IProvider& storage) { storage.removeFolderRecursively(at(u"/f")); },
                 [this](bool failed) { EXPECT_EQ(memory().exists(at(u"/f")), failed); });
}

TEST_F(FailingDefaults, ListingsReportEveryFailure) {
    failEachCall([this](IProvider& storage) { storage.createFolderRecursive(at(u"/f/x/y")); },
                 [this](IProvider& storage) {
                     storage.listAllRecursiveNamesOnlyWildcards(at(u"/"), u"*");
                     storage.listFilesNamesOnlyWildcards(at(u"/f"), u"*");
                     storage.listFoldersNamesOnly(at(u"/f"));
                 },
                 [](bool) {});
}

TEST_F(FailingDefaults, ExistenceAndAttributesReportEveryFailure) {
    failEachCall([](IProvider&) {},
                 [this](IProvider& storage) {
                     storage.exists(at(u"/no"));
                     storage.getExtendedAttributes(at(u"/f"));
                     storage.getExtendedAttributes(at(u"/f/a"));
                 },
                 [](bool) {});
}

/// A storage as awkward as the interface allows: a folder goes between its listing and the look into it,
/// another is made by someone else at the same moment, sizes are unknown, and opening with truncation empties
/// the file at once.
class AwkwardProvider final : public IProvider {
public:
    explicit AwkwardProvider(std::shared_ptr<InMemoryProvider> memory) : m_memory(std::move(memory)) {}
    ~AwkwardProvider() override { endChangePolling(); }

private:
    void doCreateFile(const StorageIRI& location) override { m_memory->createFile(location); }
    void doCreateFolder(const StorageIRI& location) override {
        if (location.getName() == u"contested") {
            m_memory->createFolder(location);
        }
        m_memory->createFolder(location);
    }
    bool doIsFile(const StorageIRI& location) override { return m_memory->isFile(location); }
    bool doIsFolder(const StorageIRI& location) override { return m_memory->isFolder(location); }
    void doRemoveFile(const StorageIRI& location) override { m_memory->removeFile(location); }
    void doMoveFile(const StorageIRI& source, const StorageIRI& destination, MoveOption option) override {
        m_memory->moveFile(source, destination, option);
    }
    void doRemoveFolder(const StorageIRI& location) override { m_memory->removeFolder(location); }
    void doMoveFolder(const StorageIRI& source, const StorageIRI& destination, MoveOption option) override {
        m_memory->moveFolder(source, destination, option);
    }
    FileAttributes doGetFileAttributes(const StorageIRI& location) override {
        const auto known = m_memory->getFileAttributes(location);
        return {std::nullopt, known.getLastModified(), known.isWritable()};
    }
    FolderAttributes doGetFolderAttributes(const StorageIRI& location) override {
        return m_memory->getFolderAttributes(location);
    }
    std::unique_ptr<ByteStream> doOpenStream(const StorageIRI& location,
                                             const ByteStreamOpenOptions& options) override {
        if (options.truncation == StreamTruncation::Truncate) {
            m_memory->openStream(location, options)->close();
        }
        return m_memory->openStream(location, options);
    }
    std::unique_ptr<ByteStream> doOpenReadStream(const StorageIRI& location) override {
        return m_memory->openReadStream(location);
    }
    std::unique_ptr<IFolderEntryIterator> doListAll(const StorageIRI& folder) override {
        auto listing = m_memory->listAll(folder);
        if (m_memory->isFolder(m_memory->at(u"/f/vanishing"))) {
            m_memory->removeFolder(m_memory->at(u"/f/vanishing"));
        }
        return listing;
    }
    std::unique_ptr<IFolderEntryIterator> doListFiles(const StorageIRI& folder) override {
        return m_memory->listFiles(folder);
    }
    std::unique_ptr<IFolderEntryIterator> doListFolders(const StorageIRI& folder) override {
        return m_memory->listFolders(folder);
    }

    const std::shared_ptr<InMemoryProvider> m_memory;
};

TEST(ConcurrentChanges, AFolderThatGoesDuringARecursiveListingCountsAsEmpty) {
    const auto memory = std::make_shared<InMemoryProvider>();
    memory->createFolderRecursive(memory->at(u"/f/vanishing"));
    memory->createFolder(memory->at(u"/f/z"));
    AwkwardProvider storage(memory);
    EXPECT_EQ(storage.listAllRecursiveNamesOnly(memory->at(u"/f")), (Names{u"vanishing", u"z"}));
}

TEST(ConcurrentChanges, AFolderThatAnotherMakesAtTheSameMomentIsNoErrorInRecursiveCreation) {
    const auto memory = std::make_shared<InMemoryProvider>();
    AwkwardProvider storage(memory);
    EXPECT_NO_THROW(storage.createFolderRecursive(memory->at(u"/a/contested/b")));
    EXPECT_TRUE(memory->isFolder(memory->at(u"/a/contested/b")));
}

TEST(CopiesOntoThemselves, AFileThatOpeningWouldEmptyKeepsItsContents) {
    const auto memory = std::make_shared<InMemoryProvider>();
    AwkwardProvider storage(memory);
    const auto file = memory->at(u"/a");
    writeFile(storage, file, "contents");
    const auto opened = memory->callCount(ProviderOperation::OpenStream);
    for (const auto* spelling : {u"/a", u"//a"}) {
        storage.copyFile(file, memory->at(spelling), MoveOption::ReplaceExisting);
        storage.copyFileAtomic(file, memory->at(spelling), MoveOption::ReplaceExisting);
        EXPECT_EQ(readFile(storage, file), "contents");
    }
    EXPECT_EQ(memory->callCount(ProviderOperation::OpenStream), opened);
}

TEST(UnknownSizes, TruncatingFindsTheSizeBySeeking) {
    const auto memory = std::make_shared<InMemoryProvider>();
    AwkwardProvider storage(memory);
    writeFile(storage, memory->at(u"/a"), "0123456789");
    storage.truncateToSize(memory->at(u"/a"), 3);
    EXPECT_EQ(readFile(storage, memory->at(u"/a")), "012");
    storage.truncateToSize(memory->at(u"/a"), 3);
    storage.truncateToSize(memory->at(u"/a"), 5);
    EXPECT_EQ(readFile(storage, memory->at(u"/a")), (std::string{'0', '1', '2', '\0', '\0'}));
}

} // namespace

} // namespace kx::test
