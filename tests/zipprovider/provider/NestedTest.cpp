#include "InPlaceProvider.h"
#include "ZipProviderTest.h"

#include <storage/zipprovider/src/MiniZipException.h>
#include <support/FaultInjectingProvider.h>
#include <support/archives/ArchiveBuilder.h>

#include <boost/date_time/posix_time/posix_time.hpp>

#include <ostream>
#include <set>
#include <utility>

namespace kx::test {

namespace {

using storage::zipprovider::MiniZipException;

/// An archive inside an archive inside an archive: /middle.zip in the container, /deep/inner.zip in that.
class NestedArchives : public ZipProviderTest {
protected:
    std::string innerArchive() { return middle.read("/deep/inner.zip"); }
    std::string middleArchive() { return zip.read("/middle.zip"); }

    /// What new providers at every level see, and what independent readers say of the innermost archive.
    void expectInner(const Contents& expected) {
        EXPECT_EQ(archiveProblems(innerArchive(), expected), "");
        MountedZip freshOuter(container);
        MountedZip freshMiddle(freshOuter.item("/middle.zip"));
        MountedZip freshInner(freshMiddle.item("/deep/inner.zip"));
        EXPECT_EQ(freshInner.tree(), inner.tree());
        EXPECT_EQ(freshMiddle.read("/m"), "middle");
        EXPECT_EQ(freshOuter.read("/o"), "outer");
        EXPECT_EQ(
            archiveProblems(archive(), {{"middle.zip", freshOuter.read("/middle.zip")}, {"o", "outer"}}), "");
    }

private:
    StorageItem mountSample() {
        const auto innerBytes = simpleArchive({{"docs/x", "ex"}, {"y", "why"}});
        const auto middleBytes = simpleArchive({{"deep/inner.zip", innerBytes}, {"m", "middle"}});
        mount({{"middle.zip", middleBytes}, {"o", "outer"}});
        return zip.item("/middle.zip");
    }

protected:
    MountedZip middle{mountSample()};
    MountedZip inner{middle.item("/deep/inner.zip")};
};

TEST_F(NestedArchives, AreListedAndRead) {
    EXPECT_EQ(inner.list(), (std::vector<std::string>{"docs/", "y"}));
    EXPECT_EQ(inner.read("/docs/x"), "ex");
    EXPECT_EQ(inner.size("/y"), 3u);
    EXPECT_EQ(inner.at("/y").toUtf8(), "zip:zip:zip:mem:///plans.zip!/middle.zip!/deep/inner.zip!/y");
    EXPECT_TRUE(reports(ErrorCode::NotFound, inner.at("/z"), [&] { inner.read("/z"); }));
    EXPECT_TRUE(temporaryFiles().empty());
}

TEST_F(NestedArchives, AreWrittenUpToTheContainerWhenTheLastStreamCloses) {
    const auto before = archive();
    const auto stream = inner.writer("/new");
    writeAll(*stream, "new");
    EXPECT_EQ(archive(), before);
    stream->close();
    expectInner({{"docs/x", "ex"}, {"y", "why"}, {"new", "new"}});
    inner.append("/y", "!");
    inner.createFolder("/made");
    inner.moveFile("/docs/x", "/made/x");
    inner.removeFile("/new");
    inner.moveFolder("/made", "/kept");
    inner.write("/late", "late");
    expectInner({{"y", "why!"}, {"kept/", ""}, {"kept/x", "ex"}, {"late", "late"}});
}

TEST_F(NestedArchives, LeaveNoTemporaryFilesBehind) {
    inner.write("/new", "new");
    inner.removeFile("/y");
    middle.write("/m", "middle");
    EXPECT_TRUE(temporaryFiles().empty());
    EXPECT_EQ(memory->openStreamCount(), 0u);
}

TEST_F(NestedArchives, ANewArchiveIsMadeInsideAnother) {
    zip.createFile("/fresh.zip");
    MountedZip fresh(zip.item("/fresh.zip"));
    EXPECT_TRUE(fresh.list().empty());
    fresh.write("/a", "1");
    fresh.createFolder("/f");
    EXPECT_EQ(archiveProblems(zip.read("/fresh.zip"), {{"a", "1"}, {"f/", ""}}), "");
    fresh.removeFile("/a");
    fresh.removeFolder("/f");
    EXPECT_EQ(archiveProblems(zip.read("/fresh.zip"), {}), "");
    EXPECT_EQ(zip.size("/fresh.zip"), 22u);
}

TEST_F(NestedArchives, TwoArchivesInOneAreSavedWithTheLastStreamOfAll) {
    zip.write("/second.zip", simpleArchive({{"s", "2"}}));
    MountedZip second(zip.item("/second.zip"));
    const auto before = archive();
    const auto hold = zip.writer("/hold");
    inner.write("/new", "new");
    second.write("/s", "two");
    EXPECT_EQ(archive(), before);
    EXPECT_EQ(inner.read("/new"), "new");
    EXPECT_EQ(second.read("/s"), "two");
    hold->close();
    MountedZip fresh(container);
    MountedZip freshSecond(fresh.item("/second.zip"));
    EXPECT_EQ(freshSecond.read("/s"), "two");
    EXPECT_EQ(MountedZip(fresh.item("/middle.zip")).read("/m"), "middle");
    EXPECT_EQ(inner.read("/new"), "new");
}

TEST_F(NestedArchives, AStampThatTheOuterArchiveRoundedIsNoForeignChange) {
    // Times in an archive have steps of two seconds and local zones; working files have neither.
    for (int i = 0; i < 5; ++i) {
        inner.write("/y", std::to_string(i));
        zip.createFolder("/touch" + std::to_string(i));
        middle.createFolder("/touch" + std::to_string(i));
        inner.createFolder("/touch" + std::to_string(i));
    }
    EXPECT_EQ(inner.read("/y"), "4");
}

TEST_F(NestedArchives, ATimeZoneIsNoForeignChangeEither) {
    const ScopedVariable zone("TZ", "CET-1CEST,M3.5.0,M10.5.0/3");
    ::tzset();
    for (int i = 0; i < 3; ++i) {
        inner.write("/y", std::to_string(i));
        zip.createFolder("/touch" + std::to_string(i));
        inner.createFolder("/touch" + std::to_string(i));
    }
    EXPECT_EQ(inner.read("/y"), "2");
    ::unsetenv("TZ");
    ::tzset();
}

TEST_F(NestedArchives, AnInnerContainerThatWasReplacedIsNotOverwritten) {
    inner.list();
    const auto theirs = simpleArchive({{"theirs", "must stay"}});
    middle.write("/deep/inner.zip", theirs);
    EXPECT_TRUE(throwsUntranslated<MiniZipException>(
        "cannot rebuild zip:zip:mem:///plans.zip!/middle.zip!/deep/inner.zip: another program has changed it",
        [&] { inner.createFolder("/made"); }));
    EXPECT_EQ(innerArchive(), theirs);
}

TEST_F(NestedArchives, AnInnerContainerThatWasMovedAwayIsReportedAndNothingIsMadeInItsPlace) {
    inner.list();
    middle.moveFile("/deep/inner.zip", "/deep/other.zip");
    EXPECT_TRUE(
        reports(ErrorCode::NotFound, middle.at("/deep/inner.zip"), [&] { inner.createFolder("/made"); }));
    EXPECT_EQ(middle.list("/deep"), (std::vector<std::string>{"other.zip"}));
    MountedZip other(middle.item("/deep/other.zip"));
    EXPECT_EQ(other.read("/y"), "why");
}

TEST_F(NestedArchives, AReadOnlyContainerRefusesChangesAtEveryLevelByTheNameThatWasUsed) {
    memory->setReadOnly(true);
    EXPECT_EQ(inner.read("/y"), "why");
    EXPECT_TRUE(reports(ErrorCode::NotWritable, inner.at("/f"), [&] { inner.createFolder("/f"); }));
    EXPECT_TRUE(reports(ErrorCode::NotWritable, middle.at("/f"), [&] { middle.createFolder("/f"); }));
}

TEST_F(NestedArchives, AnOuterArchiveThatRefusesToBeRebuiltIsReportedByTheInnerClose) {
    inner.list();
    // The same entries, so that the inner archive can still be read, and one more.
    const auto theirs =
        simpleArchive({{"middle.zip", middleArchive()}, {"o", "outer"}, {"theirs", "must stay"}});
    replaceContainer(theirs);
    const auto stream = inner.writer("/new");
    writeAll(*stream, "new");
    EXPECT_TRUE(throwsUntranslated<MiniZipException>(
        "cannot rebuild mem:///plans.zip: another program has changed it since it was read",
        [&] { stream->close(); }));
    EXPECT_EQ(archive(), theirs);
    EXPECT_EQ(inner.read("/new"), "new");
}

TEST_F(NestedArchives, AnInnerCopyThatIsInterruptedLeavesTheOuterEntryAsItWas) {
    const auto plan = std::make_shared<FaultPlan>();
    const StorageItem item(std::make_shared<FaultInjectingProvider>(zip.shared(), plan),
                           zip.at("/middle.zip"));
    MountedZip failing(item);
    failing.list();
    plan->failCall(1, {ProviderOperation::StreamWrite});
    EXPECT_THROW(failing.write("/new", "new"), std::exception);
    plan->countOnly();
    zip.createFolder("/touch");
    EXPECT_EQ(MountedZip(MountedZip(container).item("/middle.zip")).read("/m"), "middle");
    EXPECT_EQ(failing.read("/new"), "new");
    failing.createFolder("/later");
    MountedZip fresh(container);
    MountedZip freshMiddle(fresh.item("/middle.zip"));
    EXPECT_EQ(freshMiddle.read("/new"), "new");
    EXPECT_TRUE(freshMiddle.isFolder("/later"));
    EXPECT_TRUE(temporaryFiles().empty());
}

/// Where the outermost archive lives, and what a failed call there leaves.
enum class Place { TakesBackWhatWasNotClosed, WritesInPlace };

std::ostream& operator<<(std::ostream& out, Place place) {
    return out << (place == Place::WritesInPlace ? "WritesInPlace" : "TakesBackWhatWasNotClosed");
}

class NestedArchivesInAFailingContainer : public ZipProviderTest, public testing::WithParamInterface<Place> {
protected:
    NestedArchivesInAFailingContainer() {
        std::shared_ptr<foundation::storage::provider::IProvider> below = memory;
        if (GetParam() == Place::WritesInPlace) {
            below = std::make_shared<InPlaceProvider>(below);
        }
        failing = StorageItem(std::make_shared<FaultInjectingProvider>(below, plan), container.getLocation());
    }

    static std::string archiveBefore() {
        const auto inner = simpleArchive({{"a", "bytes of a"}, {"b", "bytes of b"}});
        return simpleArchive({{"inner.zip", inner}, {"o", "outer"}});
    }
    static void change(MountedZip& inner) {
        const auto hold = inner.writer("/new");
        inner.moveFile("/a", "/c");
        inner.moveFile("/b", "/a");
        inner.moveFile("/c", "/b");
        hold->close();
    }
    static Contents treeAfter() { return {{"a", "bytes of b"}, {"b", "bytes of a"}, {"new", ""}}; }

    const std::shared_ptr<FaultPlan> plan = std::make_shared<FaultPlan>();
    StorageItem failing = container;

private:
    const ScopedTime m_time;
};

TEST_P(NestedArchivesInAFailingContainer, WhateverCallFailsNothingIsLostAtAnyLevelAndALaterSaveSucceeds) {
    replaceContainer(archiveBefore());
    std::uint64_t calls = 0;
    {
        MountedZip outer(failing);
        MountedZip inner(outer.item("/inner.zip"));
        inner.list();
        plan->countOnly();
        change(inner);
        calls = plan->count();
    }
    ASSERT_GT(calls, 20u);
    std::set<std::string> verified;
    for (const auto& [afterwards, outerFirst] :
         {std::pair(FaultPlan::Afterwards::Works, true), std::pair(FaultPlan::Afterwards::FailsOn, false)}) {
        for (std::uint64_t call = 1; call <= calls; ++call) {
            SCOPED_TRACE(testing::Message()
                         << "failing call " << call << " of " << calls
                         << (afterwards == FaultPlan::Afterwards::FailsOn ? " and all later ones" : ""));
            replaceContainer(archiveBefore());
            MountedZip outer(failing);
            MountedZip inner(outer.item("/inner.zip"));
            inner.list();
            plan->failCall(call, {}, afterwards);
            bool reported = false;
            try {
                change(inner);
            } catch (const std::exception&) {
                reported = true;
            }
            plan->countOnly();
            auto expected = treeAfter();
            if (reported && !inner.isFile("/new")) {
                // It failed before anything was changed.
                expected = {{"a", "bytes of a"}, {"b", "bytes of b"}};
            }
            EXPECT_EQ(inner.tree(), expected);
            if (outerFirst) {
                outer.createFolder("/touch");
            }
            inner.createFolder("/later");
            expected["later/"];
            EXPECT_EQ(inner.tree(), expected);
            MountedZip freshOuter(container);
            EXPECT_EQ(freshOuter.read("/o"), "outer");
            const auto innerBytes = freshOuter.read("/inner.zip");
            EXPECT_EQ(MountedZip(freshOuter.item("/inner.zip")).tree(), expected);
            if (verified.insert(innerBytes).second) {
                EXPECT_EQ(archiveProblems(innerBytes, expected), "");
            }
            inner.unmount();
            outer.unmount();
            EXPECT_TRUE(temporaryFiles().empty());
            EXPECT_EQ(memory->openStreamCount(), 0u);
            if (testing::Test::HasFailure()) {
                return;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Containers, NestedArchivesInAFailingContainer,
                         testing::Values(Place::TakesBackWhatWasNotClosed, Place::WritesInPlace),
                         testing::PrintToStringParamName());

} // namespace

} // namespace kx::test
