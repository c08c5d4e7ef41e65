#include "Fixture.h"

#include <foundation/storage/provider/IProvider.h>
#include <storage/fileprovider/FileLock.h>
#include <storage/fileprovider/LocalFileProvider.h>
#include <storage/vfs/ChangeSession.h>
#include <support/FaultInjectingProvider.h>
#include <support/FaultPlan.h>
#include <support/archives/IndependentReaders.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <thread>

using namespace kx::test;
using namespace storage::vfs;
using namespace std::chrono_literals;

namespace {

class ChangeSessionTest : public InFolder {
protected:
    void SetUp() override {
        save("plans.zip",
             simpleArchive({{"docs/a.txt", "text"}, {"in.zip", simpleArchive({{"x", "inner"}})}}));
    }

    Vfs::Options counted() {
        Vfs::Options options;
        options.localFiles = std::make_shared<FaultInjectingProvider>(
            storage::fileprovider::LocalFileProvider::create(), plan);
        return options;
    }

    std::vector<std::string> names(const char* archive = "plans.zip") const {
        const auto verdict = verifyArchive(folder.file(archive));
        EXPECT_EQ(verdict.problems(), "");
        auto found = verdict.names();
        std::sort(found.begin(), found.end());
        return found;
    }

    std::shared_ptr<FaultPlan> plan = std::make_shared<FaultPlan>();
};

using Names = std::vector<std::string>;

} // namespace

TEST_F(ChangeSessionTest, ManyChangesAreOneWriteAndLeaveNothingElse) {
    Vfs vfs(counted());
    ChangeSession session(vfs);
    session.lock({inZip("plans.zip", u"/")});
    EXPECT_FALSE(session.hasChanges());
    const auto provider = session.changing(inZip("plans.zip", u"/"));
    EXPECT_TRUE(session.hasChanges());
    for (char16_t c = u'a'; c <= u'j'; ++c)
        writeFile(*provider, inZip("plans.zip", std::u16string(u"/new-") + c), "new");
    provider->createFolder(inZip("plans.zip", u"/folder"));
    provider->removeFile(inZip("plans.zip", u"/docs/a.txt"));
    provider->moveFile(inZip("plans.zip", u"/new-a"), inZip("plans.zip", u"/folder/a"),
                       foundation::storage::provider::MoveOption::FailIfExists);
    EXPECT_EQ(plan->countOf(ProviderOperation::OpenStream), 0U);
    EXPECT_TRUE(session.commit().empty());
    EXPECT_EQ(plan->countOf(ProviderOperation::OpenStream), 1U);
    EXPECT_EQ(names(), (Names{"folder/", "folder/a", "in.zip", "new-b", "new-c", "new-d", "new-e", "new-f",
                              "new-g", "new-h", "new-i", "new-j"}));
}

TEST_F(ChangeSessionTest, WithoutAChangeNothingIsWritten) {
    const auto before = load(folder.file("plans.zip"));
    Vfs vfs(counted());
    ChangeSession session(vfs);
    session.lock({inZip("plans.zip", u"/")});
    EXPECT_EQ(read(vfs, inZip("plans.zip", u"/docs/a.txt")), "text");
    EXPECT_TRUE(session.commit().empty());
    EXPECT_EQ(plan->countOf(ProviderOperation::OpenStream), 0U);
    EXPECT_EQ(load(folder.file("plans.zip")), before);
}

TEST_F(ChangeSessionTest, ChangesInsideAnInnerArchiveReachTheOuterOne) {
    Vfs vfs(counted());
    const auto inner = inZip("plans.zip", u"/in.zip");
    const auto file = StorageIRI::inContainer("zip", inner, u"/y");
    {
        ChangeSession session(vfs);
        session.lock({file});
        writeFile(*session.changing(file), file, "added");
        EXPECT_TRUE(session.commit().empty());
    }
    EXPECT_EQ(plan->countOf(ProviderOperation::OpenStream), 1U);
    Vfs fresh;
    EXPECT_EQ(read(fresh, file), "added");
    EXPECT_EQ(names(), (Names{"docs/a.txt", "in.zip"}));
}

TEST_F(ChangeSessionTest, OuterAndInnerArchiveCanChangeTogether) {
    Vfs vfs(counted());
    const auto inner = StorageIRI::inContainer("zip", inZip("plans.zip", u"/in.zip"), u"/y");
    const auto outer = inZip("plans.zip", u"/top");
    {
        ChangeSession session(vfs);
        session.lock({inner, outer});
        writeFile(*session.changing(outer), outer, "outer");
        writeFile(*session.changing(inner), inner, "inner");
        EXPECT_TRUE(session.flush().empty());
        EXPECT_EQ(plan->countOf(ProviderOperation::OpenStream), 1U);
        writeFile(*session.changing(inner), inner, "again");
        EXPECT_TRUE(session.commit().empty());
    }
    Vfs fresh;
    EXPECT_EQ(read(fresh, outer), "outer");
    EXPECT_EQ(read(fresh, inner), "again");
}

TEST_F(ChangeSessionTest, AFailedWriteIsReturnedAndTheOldArchiveStands) {
    const auto before = load(folder.file("plans.zip"));
    {
        Vfs vfs(counted());
        const auto file = inZip("plans.zip", u"/c");
        ChangeSession session(vfs);
        session.lock({file});
        writeFile(*session.changing(file), file, "c");
        plan->failCall(1, {ProviderOperation::StreamWrite}, FaultPlan::Afterwards::FailsOn,
                       ErrorCode::NoSpace);
        const auto failures = session.commit();
        ASSERT_EQ(failures.size(), 1U);
        EXPECT_EQ(failures[0].container, folder.iri("plans.zip"));
        EXPECT_NE(failures[0].cause, "");
        EXPECT_TRUE(session.commit().empty()) << "there is nothing more to try";
    }
    EXPECT_EQ(load(folder.file("plans.zip")), before);
}

TEST_F(ChangeSessionTest, ADamagedArchiveIsNotChanged) {
    ArchiveBuilder builder;
    builder.add("a", "a").add("b", "b");
    builder.last().central.signature = 0;
    save("broken.zip", builder.build());
    const auto before = load(folder.file("broken.zip"));
    Vfs vfs;
    ChangeSession session(vfs);
    session.lock({inZip("broken.zip", u"/")});
    EXPECT_EQ(exceptionOf([&] { session.changing(inZip("broken.zip", u"/")); }).getErrorCode(),
              ErrorCode::ContainerUnreadable);
    EXPECT_TRUE(session.commit().empty());
    EXPECT_EQ(load(folder.file("broken.zip")), before);
}

TEST_F(ChangeSessionTest, AnArchiveThatCannotBeWrittenIsNamed) {
    std::filesystem::permissions(folder.file("plans.zip"), std::filesystem::perms::owner_read);
    Vfs vfs;
    ChangeSession session(vfs);
    session.lock({inZip("plans.zip", u"/")});
    const auto failure = exceptionOf([&] { session.changing(inZip("plans.zip", u"/x")); });
    EXPECT_EQ(failure.getErrorCode(), ErrorCode::NotWritable);
    EXPECT_EQ(failure.getIRI(), folder.iri("plans.zip"));
}

TEST_F(ChangeSessionTest, WhatIsNotLockedIsNotChanged) {
    Vfs vfs;
    ChangeSession session(vfs);
    EXPECT_THROW(session.changing(inZip("plans.zip", u"/x")), std::logic_error);
}

TEST_F(ChangeSessionTest, LocalFilesNeedNoLock) {
    Vfs vfs;
    ChangeSession session(vfs);
    writeFile(*session.changing(folder.iri("x")), folder.iri("x"), "local");
    EXPECT_EQ(load(folder.file("x")), "local");
    EXPECT_TRUE(session.commit().empty());
}

TEST_F(ChangeSessionTest, LockingReadsAgainWhatAnotherProgramChanged) {
    Vfs vfs;
    EXPECT_EQ(read(vfs, inZip("plans.zip", u"/docs/a.txt")), "text");
    save("plans.zip", simpleArchive({{"other", "1"}}));
    const auto file = inZip("plans.zip", u"/mine");
    ChangeSession session(vfs);
    session.lock({file});
    writeFile(*session.changing(file), file, "2");
    EXPECT_TRUE(session.commit().empty());
    EXPECT_EQ(names(), (Names{"mine", "other"}));
}

TEST_F(ChangeSessionTest, SessionsOnOneArchiveQueueAndNoneLosesAChange) {
    constexpr int sessions = 12;
    std::atomic<int> waited = 0;
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < sessions; ++i)
            threads.emplace_back([&, i] {
                Vfs vfs;
                const auto name = fl::i18n::fromUtf8("/f" + std::to_string(i));
                const auto file = inZip("plans.zip", name);
                ChangeSession session(vfs, [&](const StorageIRI&) { ++waited; });
                session.lock({file});
                writeFile(*session.changing(file), file, "f");
                std::this_thread::sleep_for(5ms);
                EXPECT_TRUE(session.commit().empty());
            });
    }
    EXPECT_EQ(names().size(), 2U + sessions);
    EXPECT_GT(waited, 0);
}

TEST_F(ChangeSessionTest, SessionsThatLockTwoArchivesInEitherOrderDoNotBlockEachOther) {
    save("a.zip", simpleArchive({{"x", "1"}}));
    save("b.zip", simpleArchive({{"x", "1"}}));
    std::vector<std::jthread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&, i] {
            for (int round = 0; round < 20; ++round) {
                const auto first = i % 2 == 0 ? inZip("a.zip", u"/") : inZip("b.zip", u"/");
                const auto second = i % 2 == 0 ? inZip("b.zip", u"/") : inZip("a.zip", u"/");
                const ContainerLock lock({first, second});
                EXPECT_TRUE(lock.covers(first));
                EXPECT_TRUE(lock.covers(second));
            }
        });
}

TEST_F(ChangeSessionTest, ALockThatIsMovedIsHeldUntilItsLastOwnerLetsGo) {
    const auto isFree = [&] {
        return storage::fileprovider::FileLock::tryAcquire(folder.iri("plans.zip")).isHeld();
    };
    const auto entry = inZip("plans.zip", u"/docs/a.txt");
    ContainerLock lock({entry});
    ContainerLock moved = std::move(lock);
    EXPECT_TRUE(moved.covers(entry));
    EXPECT_FALSE(isFree());
    ContainerLock owner;
    EXPECT_FALSE(owner.covers(entry));
    owner = std::move(moved);
    EXPECT_TRUE(owner.covers(entry));
    EXPECT_FALSE(isFree());
    owner = ContainerLock();
    EXPECT_TRUE(isFree());
}

TEST_F(ChangeSessionTest, AFileIsLockedOnceHoweverItIsSpelled) {
    std::filesystem::create_symlink(folder.file("plans.zip"), folder.file("link.zip"));
    const ContainerLock lock({inZip("plans.zip", u"/"), inZip("link.zip", u"/x"), folder.iri("plans.zip")});
    EXPECT_TRUE(lock.covers(inZip("link.zip", u"/")));
    EXPECT_FALSE(lock.covers(inZip("other.zip", u"/")));
}

TEST_F(ChangeSessionTest, TellsHowFarTheWritingOfEachArchiveIs) {
    using Phase = storage::vfs::SaveProgress::Phase;
    const auto inner = simpleArchive({{"x", std::string(300'000, 'x')}, {"y", "1"}});
    save("outer.zip", simpleArchive({{"in.zip", inner}}));
    const auto file = StorageIRI::inContainer("zip", inZip("outer.zip", u"/in.zip"), u"/new");
    struct Seen {
        StorageIRI container;
        Phase phase;
        std::uint64_t bytes;
        std::uint64_t oldSize;
    };
    std::vector<Seen> seen;
    Vfs vfs;
    ChangeSession session(vfs, {}, [&](const storage::vfs::SaveProgress& progress) {
        seen.push_back({progress.container, progress.phase, progress.bytes, progress.oldSize});
    });
    session.lock({file});
    writeFile(*session.changing(file), file, "new");
    EXPECT_TRUE(seen.empty());
    const auto outerSize = std::filesystem::file_size(folder.file("outer.zip"));
    EXPECT_TRUE(session.commit().empty());
    const auto last = [&](const StorageIRI& container, Phase phase) {
        const auto found = std::find_if(seen.rbegin(), seen.rend(), [&](const Seen& one) {
            return one.container == container && one.phase == phase;
        });
        return found == seen.rend() ? Seen{container, phase, 0, 0} : *found;
    };
    EXPECT_EQ(last(file.getContainer(), Phase::Reading).bytes, inner.size());
    EXPECT_EQ(last(file.getContainer(), Phase::Reading).oldSize, inner.size());
    const auto innerSize = last(file.getContainer(), Phase::Closing).bytes;
    EXPECT_EQ(last(file.getContainer(), Phase::Writing).bytes, innerSize);
    EXPECT_EQ(vfs.item(file.getContainer()).getFileAttributes().getSize(), innerSize);
    EXPECT_EQ(last(folder.iri("outer.zip"), Phase::Reading).oldSize, outerSize);
    EXPECT_EQ(last(folder.iri("outer.zip"), Phase::Closing).bytes,
              std::filesystem::file_size(folder.file("outer.zip")));
    for (std::size_t i = 1; i < seen.size(); ++i)
        EXPECT_TRUE(seen[i].oldSize == 0 || seen[i].bytes <= seen[i].oldSize);
    const auto count = seen.size();
    EXPECT_EQ(read(vfs, file), "new");
    EXPECT_EQ(seen.size(), count);
}

TEST_F(ChangeSessionTest, AnArchiveThatIsGivenUpIsNotWrittenAgain) {
    const auto before = load(folder.file("plans.zip"));
    const auto file = inZip("plans.zip", u"/x");
    std::uint64_t tries = 0;
    {
        Vfs vfs(counted());
        ChangeSession session(vfs);
        session.lock({file});
        const auto provider = session.changing(file);
        writeFile(*provider, file, "1");
        plan->failCall(1, {ProviderOperation::StreamWrite});
        ASSERT_EQ(session.commit().size(), 1U);
        tries = plan->countOf(ProviderOperation::OpenStream);
        vfs.discard(folder.iri("plans.zip"));
        EXPECT_THROW(provider->removeFile(file), std::exception);
        EXPECT_TRUE(vfs.closeAll().empty());
    }
    EXPECT_EQ(tries, 1U);
    EXPECT_EQ(plan->countOf(ProviderOperation::OpenStream), tries);
    EXPECT_EQ(load(folder.file("plans.zip")), before);
}

TEST_F(ChangeSessionTest, AFileOfSeveralNamesIsLockedOnce) {
    std::filesystem::create_hard_link(folder.file("plans.zip"), folder.file("link.zip"));
    const ContainerLock lock({inZip("plans.zip", u"/"), inZip("link.zip", u"/x")});
    EXPECT_TRUE(lock.covers(inZip("plans.zip", u"/")));
    EXPECT_TRUE(lock.covers(inZip("link.zip", u"/")));
}

TEST_F(ChangeSessionTest, LocksUnderDifferentNamesOfOneFileAreTakenInOneOrder) {
    save("m.zip", simpleArchive({{"x", "1"}}));
    std::filesystem::create_hard_link(folder.file("plans.zip"), folder.file("a.zip"));
    std::vector<std::jthread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&, i] {
            for (int round = 0; round < 40; ++round)
                const ContainerLock lock(
                    {inZip(i % 2 == 0 ? "a.zip" : "plans.zip", u"/"), inZip("m.zip", u"/")});
        });
}

TEST_F(ChangeSessionTest, TwoNamesOfOneArchiveChangeTogether) {
    std::filesystem::create_hard_link(folder.file("plans.zip"), folder.file("link.zip"));
    const auto here = inZip("plans.zip", u"/mine");
    const auto there = inZip("link.zip", u"/yours");
    Vfs vfs(counted());
    ChangeSession session(vfs);
    session.lock({here, there});
    EXPECT_EQ(session.changing(here), session.changing(there));
    writeFile(*session.changing(here), here, "1");
    writeFile(*session.changing(there), there, "2");
    EXPECT_TRUE(session.commit().empty());
    EXPECT_EQ(plan->countOf(ProviderOperation::OpenStream), 1U);
    EXPECT_EQ(names("plans.zip"), (Names{"docs/a.txt", "in.zip", "mine", "yours"}));
    EXPECT_TRUE(std::filesystem::equivalent(folder.file("plans.zip"), folder.file("link.zip")));
}

TEST_F(ChangeSessionTest, LockingUnderAnotherNameReadsAgainWhatAnotherProgramChanged) {
    std::filesystem::create_hard_link(folder.file("plans.zip"), folder.file("link.zip"));
    Vfs vfs;
    EXPECT_EQ(read(vfs, inZip("plans.zip", u"/docs/a.txt")), "text");
    save("plans.zip", simpleArchive({{"other", "1"}}));
    const auto file = inZip("link.zip", u"/mine");
    ChangeSession session(vfs);
    session.lock({file});
    writeFile(*session.changing(file), file, "2");
    EXPECT_TRUE(session.commit().empty());
    EXPECT_EQ(names(), (Names{"mine", "other"}));
}
