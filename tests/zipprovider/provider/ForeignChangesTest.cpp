#include "HookedProvider.h"
#include "InPlaceProvider.h"
#include "ZipProviderTest.h"

#include <storage/zipprovider/src/MiniZipException.h>
#include <support/FaultInjectingProvider.h>
#include <support/archives/ArchiveBuilder.h>

#include <boost/date_time/posix_time/posix_time.hpp>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <utility>

namespace kx::test {

namespace {

using boost::posix_time::time_from_string;
using foundation::storage::provider::Exception;
using storage::zipprovider::MiniZipException;

/// The container is changed by somebody else while the provider under test is at work on it.
class ForeignChange : public ZipProviderTest {
protected:
    ForeignChange() { replaceContainer(simpleArchive({{"a", "bytes of a"}, {"b", "bytes of b"}})); }

    static std::string theirs() {
        return simpleArchive({{"a", "bytes of a"}, {"b", "bytes of b"}, {"theirs", "must stay"}});
    }
    testing::AssertionResult isRefused(const std::function<void()>& work) {
        return throwsUntranslated<MiniZipException>(
            "cannot rebuild mem:///plans.zip: another program has changed it since it was read", work);
    }
    /// The new archives that were kept.
    std::vector<std::string> keptArchives() const {
        auto files = temporaryFiles();
        std::erase_if(files, [](const auto& name) { return !name.ends_with("sanitized.zip"); });
        return files;
    }
    std::string bytesOfTheKeptArchive() const {
        std::ifstream file(temporary.path() / keptArchives().at(0), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    std::uint64_t openedForWriting() const { return memory->callCount(ProviderOperation::OpenStream); }

    const std::shared_ptr<HookedProvider> hooked = std::make_shared<HookedProvider>(memory);
    MountedZip mounted{StorageItem(hooked, container.getLocation())};
};

TEST_F(ForeignChange, OfAnEntryIsSeenWhenThatIsOpenedAlthoughTheOldDirectoryIsStillInItsPlace) {
    const auto before = simpleArchive({{"a", "old"}});
    mount(before);
    EXPECT_EQ(zip.read("/a"), "old");
    replaceContainer(ArchiveBuilder().leading(before).add("a", "new").build());
    EXPECT_EQ(zip.read("/a"), "new");
}

TEST_F(ForeignChange, WhileTheNewArchiveIsBuiltIsNotOverwritten) {
    mounted.list();
    std::uint64_t before = 0;
    // The old archive is closed when all that is carried over was read.
    hooked->beforeNext(ProviderOperation::StreamClose, [&] {
        replaceContainer(theirs());
        before = openedForWriting();
    });
    EXPECT_TRUE(isRefused([&] { mounted.createFolder("/mine"); }));
    EXPECT_EQ(archive(), theirs());
    EXPECT_GT(before, 0u);
    EXPECT_EQ(openedForWriting(), before);
    EXPECT_TRUE(temporaryFiles().empty());
    EXPECT_TRUE(mounted.isFolder("/mine"));
}

TEST_F(ForeignChange, WhileTheNewArchiveIsCopiedIsNotOverwritten) {
    for (const auto moment : {ProviderOperation::OpenStream, ProviderOperation::StreamWrite}) {
        replaceContainer(simpleArchive({{"a", "bytes of a"}, {"b", "bytes of b"}}));
        mounted.remount();
        mounted.list();
        hooked->beforeNext(moment, [&] { replaceContainer(theirs()); });
        EXPECT_TRUE(isRefused([&] { mounted.createFolder("/mine"); }));
        EXPECT_EQ(archive(), theirs());
        EXPECT_TRUE(isRefused([&] { mounted.write("/late", "1"); }));
        EXPECT_EQ(archive(), theirs());
        EXPECT_EQ(mounted.tree(),
                  (Contents{{"a", "bytes of a"}, {"b", "bytes of b"}, {"late", "1"}, {"mine/", ""}}));
        // What was to be saved is not lost either.
        EXPECT_EQ(keptArchives().size(), 1u);
        EXPECT_EQ(archiveProblems(bytesOfTheKeptArchive(),
                                  {{"a", "bytes of a"}, {"b", "bytes of b"}, {"mine/", ""}}),
                  "");
        mounted.unmount();
        EXPECT_EQ(archive(), theirs());
        std::filesystem::remove(temporary.path() / keptArchives().at(0));
    }
}

TEST_F(ForeignChange, OfAnEmptyContainerThatIsBeingWrittenIsNotOverwritten) {
    replaceContainer("");
    mounted.list();
    hooked->beforeNext(ProviderOperation::StreamWrite, [&] { replaceContainer(theirs()); });
    EXPECT_TRUE(isRefused([&] { mounted.createFolder("/mine"); }));
    EXPECT_EQ(archive(), theirs());
}

TEST_F(ForeignChange, IsNotTheProvidersOwnWritingThatTheContainerShows) {
    for (const auto& before : {std::string(), simpleArchive({{"a", randomBytes(200'000, 1)}})}) {
        replaceContainer(before);
        MountedZip inPlace(StorageItem(std::make_shared<InPlaceProvider>(memory), container.getLocation()));
        inPlace.list();
        inPlace.createFolder("/mine");
        inPlace.write("/late", "1");
        EXPECT_EQ(MountedZip(container).tree(), inPlace.tree());
        EXPECT_EQ(inPlace.list().size(), before.empty() ? 2u : 3u);
    }
}

TEST_F(ForeignChange, OfASizeThatStaysIsNamedAsSuchAlsoWhenTheArchiveHasADateOfNoCalendar) {
    ArchiveBuilder dated;
    dated.add("a", "bytes of a").add("b", "bytes of b");
    ArchiveBuilder undated;
    undated.add("a", "bytes of a").add("b", "bytes of b");
    undated.last().modified = {};
    replaceContainer(dated.build());
    mounted.list();
    replaceContainer(undated.build());
    memory->setTime(container.getLocation(), time_from_string("2030-01-01 00:00:00"));
    EXPECT_TRUE(isRefused([&] { mounted.createFolder("/mine"); }));
    EXPECT_EQ(archive(), undated.build());
}

/// A container that is not what it looks like before it is opened, as a local file whose overwriting was
/// interrupted: opening it finishes that.
TEST_F(ForeignChange, IsNotTheSettlingOfAContainerByItsOpening) {
    replaceContainer("half written");
    hooked->beforeNext(ProviderOperation::OpenReadStream, [&] {
        replaceContainer(simpleArchive({{"a", "bytes of a"}, {"b", "bytes of b"}}));
    });
    EXPECT_EQ(mounted.read("/a"), "bytes of a");
    mounted.createFolder("/mine");
    mounted.write("/late", "1");
    EXPECT_EQ(MountedZip(container).tree(),
              (Contents{{"a", "bytes of a"}, {"b", "bytes of b"}, {"late", "1"}, {"mine/", ""}}));
}

TEST_F(ForeignChange, ThatGoesOnWhileTheContainerIsReadIsNotOverwritten) {
    std::string entries;
    hooked->callBefore([&](ProviderOperation called) {
        if (called == ProviderOperation::OpenReadStream) {
            replaceContainer(simpleArchive({{"theirs", entries += '+'}}));
        }
    });
    mounted.list();
    hooked->callBefore({});
    const auto last = archive();
    EXPECT_TRUE(isRefused([&] { mounted.createFolder("/mine"); }));
    EXPECT_EQ(archive(), last);
}

/// The container is changed by somebody else in a flush that fails for another reason.
class ForeignChangeInAFailingFlush : public ForeignChange {
protected:
    void expectThatNothingOverwrites(const std::string& foreign) {
        ASSERT_EQ(archive(), foreign);
        EXPECT_TRUE(isRefused([&] { mounted.createFolder("/late"); }));
        EXPECT_TRUE(isRefused([&] { mounted.write("/later", "1"); }));
        mounted.unmount();
        EXPECT_EQ(archive(), foreign);
        EXPECT_EQ(keptArchives().size(), 1u);
    }

    const std::shared_ptr<FaultPlan> plan = std::make_shared<FaultPlan>();
    MountedZip mounted{
        StorageItem(std::make_shared<FaultInjectingProvider>(hooked, plan), container.getLocation())};
};

TEST_F(ForeignChangeInAFailingFlush, IsNotOverwrittenByTheNextOne) {
    // The copy itself, and the look at the container after it.
    for (const auto failing : {ProviderOperation::StreamWrite, ProviderOperation::GetFileAttributes}) {
        for (const auto& foreign : {theirs(), std::string("not an archive, but theirs")}) {
            replaceContainer(simpleArchive({{"a", "bytes of a"}, {"b", "bytes of b"}}));
            mounted.remount();
            mounted.list();
            hooked->beforeNext(ProviderOperation::OpenStream, [&] {
                replaceContainer(foreign);
                plan->failCall(1, {failing});
            });
            EXPECT_THROW(mounted.createFolder("/mine"), Exception);
            ASSERT_EQ(plan->failures(), 1u);
            plan->countOnly();
            expectThatNothingOverwrites(foreign);
            std::filesystem::remove(temporary.path() / keptArchives().at(0));
        }
    }
}

TEST_F(ForeignChangeInAFailingFlush, ThatCannotEvenBeLookedAtIsNotOverwrittenByTheNextOne) {
    mounted.list();
    hooked->beforeNext(ProviderOperation::OpenStream, [&] {
        replaceContainer(theirs());
        plan->failCall(1, {}, FaultPlan::Afterwards::FailsOn);
    });
    EXPECT_THROW(mounted.createFolder("/mine"), Exception);
    plan->countOnly();
    expectThatNothingOverwrites(theirs());
}

TEST_F(ForeignChangeInAFailingFlush, OfWhatWasJustSavedIsNotOverwrittenByTheNextOne) {
    mounted.list();
    hooked->callBefore([&, saved = false, done = false](ProviderOperation called) mutable {
        saved = saved || called == ProviderOperation::OpenStream;
        if (saved && called == ProviderOperation::OpenReadStream && !std::exchange(done, true)) {
            replaceContainer("not an archive, but theirs");
        }
    });
    EXPECT_TRUE(throwsUntranslated<MiniZipException>("after it was rebuilt: it is not a ZIP archive",
                                                     [&] { mounted.createFolder("/mine"); }));
    expectThatNothingOverwrites("not an archive, but theirs");
}

/// A copy into the container was interrupted.
class InterruptedCopy : public ForeignChange {
protected:
    InterruptedCopy() {
        mounted.list();
        plan->failCall(1, {ProviderOperation::StreamWrite});
        EXPECT_THROW(mounted.write("/mine", "1"), std::exception);
        plan->countOnly();
    }

    const std::string before = archive();
    const std::shared_ptr<FaultPlan> plan = std::make_shared<FaultPlan>();
    MountedZip mounted{
        StorageItem(std::make_shared<FaultInjectingProvider>(std::make_shared<InPlaceProvider>(memory), plan),
                    container.getLocation())};
};

TEST_F(InterruptedCopy, LeavesPartOfAnArchiveThatALaterFlushOverwrites) {
    replaceContainer(bytesOfTheKeptArchive().substr(0, 40));
    mounted.createFolder("/later");
    EXPECT_EQ(
        archiveProblems(archive(), {{"a", "bytes of a"}, {"b", "bytes of b"}, {"mine", "1"}, {"later/", ""}}),
        "");
    EXPECT_TRUE(temporaryFiles().empty());
}

TEST_F(InterruptedCopy, ThatSomebodyElseFinishesIsNoForeignChange) {
    replaceContainer(bytesOfTheKeptArchive());
    mounted.createFolder("/later");
    EXPECT_EQ(
        archiveProblems(archive(), {{"a", "bytes of a"}, {"b", "bytes of b"}, {"mine", "1"}, {"later/", ""}}),
        "");
    EXPECT_TRUE(temporaryFiles().empty());
}

TEST_F(InterruptedCopy, ThatSomebodyElseUndoesIsNoForeignChange) {
    replaceContainer(before);
    mounted.createFolder("/later");
    EXPECT_EQ(
        archiveProblems(archive(), {{"a", "bytes of a"}, {"b", "bytes of b"}, {"mine", "1"}, {"later/", ""}}),
        "");
    EXPECT_TRUE(temporaryFiles().empty());
}

TEST_F(InterruptedCopy, DoesNotExcuseAForeignChange) {
    replaceContainer(theirs());
    EXPECT_TRUE(isRefused([&] { mounted.createFolder("/later"); }));
    replaceContainer("not an archive, but theirs");
    EXPECT_TRUE(isRefused([&] { mounted.createFolder("/again"); }));
    EXPECT_EQ(archive(), "not an archive, but theirs");
    EXPECT_EQ(keptArchives().size(), 1u);
}

/// A copy into the container fails, and the archive that is kept because of that cannot be read either.
class UnreadableKeptArchive : public ForeignChange {
protected:
    using Below = std::shared_ptr<foundation::storage::provider::IProvider>;

    ~UnreadableKeptArchive() override { std::filesystem::remove(aside); }

    MountedZip mountOver(Below below) {
        hooked = std::make_shared<HookedProvider>(std::make_shared<FaultInjectingProvider>(below, plan));
        return MountedZip(StorageItem(hooked, container.getLocation()));
    }

    /// `work` fails to bring its archive into the container, which is out of sight from then on.
    void interrupt(const std::function<void()>& work) {
        hooked->beforeNext(ProviderOperation::StreamWrite, [&] {
            for (const auto& name : keptArchives()) {
                if (!name.starts_with("kept-")) {
                    hidden = temporary.path() / name;
                }
            }
            std::filesystem::rename(hidden, aside);
            plan->failCall(1, {ProviderOperation::StreamWrite});
        });
        EXPECT_THROW(work(), std::exception);
        plan->countOnly();
        hooked->callBefore({});
    }
    void bringBack() { std::filesystem::rename(aside, hidden); }

    const std::filesystem::path aside = temporary.path().string() + ".aside";
    const std::shared_ptr<FaultPlan> plan = std::make_shared<FaultPlan>();
    std::shared_ptr<HookedProvider> hooked;
    std::filesystem::path hidden;
};

TEST_F(UnreadableKeptArchive, IsNotNeededWhereTheContainerIsAsItWas) {
    MountedZip failing = mountOver(memory);
    failing.list();
    interrupt([&] { failing.write("/mine", "1"); });
    EXPECT_EQ(failing.read("/a"), "bytes of a");
    failing.createFolder("/later");
    EXPECT_EQ(
        archiveProblems(archive(), {{"a", "bytes of a"}, {"b", "bytes of b"}, {"mine", "1"}, {"later/", ""}}),
        "");
    EXPECT_TRUE(temporaryFiles().empty());
}

TEST_F(UnreadableKeptArchive, IsReadOnceItCanBeAndWhatWasChangedMeanwhileIsSaved) {
    MountedZip failing = mountOver(std::make_shared<InPlaceProvider>(memory));
    failing.list();
    interrupt([&] { failing.write("/mine", "1"); });
    EXPECT_THROW(failing.read("/a"), std::exception);
    EXPECT_THROW(failing.moveFile("/a", "/z"), std::exception);
    EXPECT_THROW(failing.removeFile("/mine"), std::exception);
    EXPECT_THROW(failing.write("/new", "2"), std::exception);
    bringBack();
    EXPECT_EQ(failing.read("/z"), "bytes of a");
    failing.createFolder("/later");
    EXPECT_EQ(
        archiveProblems(archive(), {{"b", "bytes of b"}, {"z", "bytes of a"}, {"new", "2"}, {"later/", ""}}),
        "");
    EXPECT_TRUE(temporaryFiles().empty());
}

TEST_F(UnreadableKeptArchive, IsNotGoneBackToAfterTheNextOneThatCannotBeReadEither) {
    MountedZip failing = mountOver(memory);
    failing.list();
    interrupt([&] { failing.write("/mine", "1"); });
    interrupt([&] { failing.moveFile("/b", "/c"); });
    EXPECT_EQ(failing.read("/c"), "bytes of b");
    failing.createFolder("/later");
    EXPECT_EQ(
        archiveProblems(archive(), {{"a", "bytes of a"}, {"c", "bytes of b"}, {"mine", "1"}, {"later/", ""}}),
        "");
    EXPECT_TRUE(temporaryFiles().empty());
}

TEST_F(UnreadableKeptArchive, LeavesTheOneThatWasKeptBefore) {
    MountedZip failing = mountOver(std::make_shared<InPlaceProvider>(memory));
    failing.list();
    plan->failCall(1, {ProviderOperation::StreamWrite});
    EXPECT_THROW(failing.write("/mine", "1"), std::exception);
    plan->countOnly();
    ASSERT_EQ(keptArchives().size(), 1u);
    interrupt([&] { failing.createFolder("/later"); });
    EXPECT_EQ(keptArchives().size(), 1u);
    bringBack();
    failing.createFolder("/last");
    EXPECT_EQ(archiveProblems(
                  archive(),
                  {{"a", "bytes of a"}, {"b", "bytes of b"}, {"mine", "1"}, {"later/", ""}, {"last/", ""}}),
              "");
    EXPECT_TRUE(temporaryFiles().empty());
}

} // namespace

} // namespace kx::test
