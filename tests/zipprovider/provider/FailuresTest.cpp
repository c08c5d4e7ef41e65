#include "../ScopedTimeZone.h"
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
#include <ostream>
#include <set>
#include <vector>

namespace kx::test {

namespace {

using foundation::storage::provider::Exception;
using storage::zipprovider::MiniZipException;
using Afterwards = FaultPlan::Afterwards;

/// Where the archive lives, and what a failed call there leaves.
enum class Place { TakesBackWhatWasNotClosed, WritesInPlace };

std::ostream& operator<<(std::ostream& out, Place place) {
    return out << (place == Place::WritesInPlace ? "WritesInPlace" : "TakesBackWhatWasNotClosed");
}

class FailingContainer : public ZipProviderTest, public testing::WithParamInterface<Place> {
protected:
    FailingContainer() {
        std::shared_ptr<foundation::storage::provider::IProvider> below = memory;
        if (GetParam() == Place::WritesInPlace) {
            below = std::make_shared<InPlaceProvider>(below);
        }
        failing = StorageItem(std::make_shared<FaultInjectingProvider>(below, plan), container.getLocation());
    }

    std::size_t temporaryArchives() const {
        const auto files = temporaryFiles();
        return static_cast<std::size_t>(std::count_if(
            files.begin(), files.end(), [](const auto& name) { return name.ends_with("sanitized.zip"); }));
    }

    /// The container's bytes before the changes, and the tree after them.
    static std::string archiveBefore() {
        return simpleArchive(
            {{"a", "bytes of a"}, {"b", "bytes of b"}, {"gone", "3"}, {"docs/x", "4"}, {"e/", ""}});
    }
    static Contents treeAfter() {
        return {{"a", "bytes of b"}, {"b", "bytes of a"}, {"papers/", ""}, {"papers/x", "4+"},
                {"papers/new/", ""}, {"new", "5"},        {"e/", ""}};
    }

    /// Changes of every kind, none of which is saved before the stream is closed. Two entries change names,
    /// so that taking the bytes of one by its old name out of the new archive would show.
    static std::unique_ptr<foundation::storage::provider::ByteStream> change(MountedZip& mounted) {
        auto hold = mounted.writer("/new");
        writeAll(*hold, "5");
        mounted.moveFile("/a", "/c");
        mounted.moveFile("/b", "/a");
        mounted.moveFile("/c", "/b");
        mounted.removeFile("/gone");
        mounted.moveFolder("/docs", "/papers");
        mounted.append("/papers/x", "+");
        mounted.createFolder("/papers/new");
        return hold;
    }

    /// What has to hold whatever has failed before, now that nothing fails any more.
    void expectThatNothingIsLost(MountedZip& mounted) {
        plan->countOnly();
        EXPECT_EQ(mounted.tree(), treeAfter());
        mounted.createFolder("/later");
        auto expected = treeAfter();
        expected["later/"];
        EXPECT_EQ(mounted.tree(), expected);
        expected.erase("papers/");
        // Most of the archives are the same, byte for byte, and independent readers are slow.
        if (m_verified.insert(archive()).second) {
            EXPECT_EQ(archiveProblems(archive(), expected), "");
        }
        mounted.unmount();
        EXPECT_TRUE(temporaryFiles().empty());
        EXPECT_EQ(memory->openStreamCount(), 0u);
    }

    const std::shared_ptr<FaultPlan> plan = std::make_shared<FaultPlan>();
    StorageItem failing = container;

private:
    const ScopedTime m_time;
    std::set<std::string> m_verified;
};

TEST_P(FailingContainer, WhateverCallFailsWhileSavingNothingIsLostAndALaterSaveSucceeds) {
    replaceContainer(archiveBefore());
    std::uint64_t calls = 0;
    {
        MountedZip counted(failing);
        const auto hold = change(counted);
        plan->countOnly();
        hold->close();
        calls = plan->count();
    }
    ASSERT_GT(calls, 20u);
    for (const auto afterwards : {Afterwards::Works, Afterwards::FailsOn}) {
        for (std::uint64_t call = 1; call <= calls; ++call) {
            SCOPED_TRACE(testing::Message()
                         << "failing call " << call << " of " << calls
                         << (afterwards == Afterwards::FailsOn ? " and all later ones" : ""));
            replaceContainer(archiveBefore());
            const auto before = archive();
            MountedZip mounted(failing);
            auto hold = change(mounted);
            plan->failCall(call, {}, afterwards);
            bool reported = false;
            try {
                hold->close();
            } catch (const std::exception&) {
                reported = true;
            }
            hold.reset();
            EXPECT_GT(plan->failures(), 0u);
            plan->countOnly();
            EXPECT_LE(temporaryArchives(), reported ? 1u : 0u);
            if (!reported) {
                EXPECT_EQ(MountedZip(container).tree(), treeAfter());
            } else if (GetParam() == Place::TakesBackWhatWasNotClosed && archive() != before) {
                EXPECT_EQ(MountedZip(container).tree(), treeAfter());
            }
            expectThatNothingIsLost(mounted);
            if (testing::Test::HasFailure()) {
                return;
            }
        }
    }
}

TEST_P(FailingContainer, DestroyingTheProviderTriesAFailedSaveAgain) {
    replaceContainer(archiveBefore());
    MountedZip mounted(failing);
    auto hold = change(mounted);
    plan->failCall(2, {ProviderOperation::StreamWrite, ProviderOperation::StreamClose});
    EXPECT_THROW(hold->close(), std::exception);
    hold.reset();
    EXPECT_EQ(temporaryArchives(), 1u);
    mounted.unmount();
    EXPECT_EQ(MountedZip(container).tree(), treeAfter());
    EXPECT_TRUE(temporaryFiles().empty());
}

TEST_P(FailingContainer, WhenCopyingBackFailsForGoodTheWholeNewArchiveIsKept) {
    replaceContainer(archiveBefore());
    MountedZip mounted(failing);
    auto hold = change(mounted);
    plan->failCall(1, {ProviderOperation::StreamWrite}, Afterwards::FailsOn);
    EXPECT_THROW(hold->close(), Exception);
    hold.reset();
    EXPECT_THROW(mounted.createFolder("/later"), Exception);
    EXPECT_THROW(mounted.removeFile("/new"), Exception);
    mounted.unmount();
    const auto files = temporaryFiles();
    ASSERT_EQ(files.size(), 1u);
    const auto kept = StorageItem(memory, StorageIRI::parse("mem:///kept.zip"));
    std::ifstream file(temporary.path() / files[0], std::ios::binary);
    writeFile(*memory, kept.getLocation(), std::string(std::istreambuf_iterator<char>(file), {}));
    auto expected = treeAfter();
    expected.erase("new");
    expected["later/"];
    EXPECT_EQ(MountedZip(kept).tree(), expected);
}

TEST_P(FailingContainer, AFailedCopyIsOvercomeAlsoAfterMoreChanges) {
    replaceContainer(archiveBefore());
    MountedZip mounted(failing);
    auto hold = change(mounted);
    plan->failCall(1, {ProviderOperation::StreamClose});
    // The first close is that of a stream for reading, whose failure nobody needs to know of; so all fail.
    plan->failCall(1, {ProviderOperation::StreamClose}, Afterwards::FailsOn);
    EXPECT_THROW(hold->close(), Exception);
    hold.reset();
    EXPECT_EQ(mounted.tree(), treeAfter());
    EXPECT_THROW(mounted.moveFolder("/papers", "/e/papers"), Exception);
    EXPECT_THROW(mounted.append("/e/papers/x", "+"), Exception);
    plan->countOnly();
    mounted.write("/a", "A");
    const Contents expected{{"a", "A"},   {"b", "bytes of a"}, {"e/papers/x", "4++"}, {"e/papers/new/", ""},
                            {"new", "5"}, {"e/", ""}};
    EXPECT_EQ(archiveProblems(archive(), expected), "");
    EXPECT_TRUE(temporaryFiles().empty());
}

TEST_P(FailingContainer, AFailedCopyLeavesTheRecordOfTheChangesAndEveryTime) {
    const ScopedTimeZone zone("XYZ-5");
    replaceContainer(archiveBefore());
    MountedZip mounted(failing);
    const auto timesOf = [&] {
        std::vector<boost::posix_time::ptime> times;
        for (const char* path : {"/a", "/b", "/new", "/papers/x"}) {
            times.push_back(mounted.provider().getFileAttributes(mounted.at(path)).getLastModified());
        }
        for (const char* path : {"/papers", "/papers/new", "/e"}) {
            times.push_back(mounted.provider().getFolderAttributes(mounted.at(path)).getLastModified());
        }
        return times;
    };
    auto hold = change(mounted);
    auto reader = mounted.reader("/new");
    const auto times = timesOf();
    plan->failCall(1, {ProviderOperation::StreamWrite}, Afterwards::FailsOn);
    EXPECT_THROW(hold->close(), Exception);
    EXPECT_EQ(timesOf(), times);
    EXPECT_THROW(mounted.createFile("/later"), Exception);
    EXPECT_EQ(timesOf(), times);
    // The record still leads to the working file that the reader has.
    EXPECT_THROW(mounted.append("/new", "+"), Exception);
    EXPECT_EQ(readAll(*reader), "5+");
    plan->countOnly();
    mounted.removeFile("/later");
    auto expected = treeAfter();
    expected["new"] = "5+";
    EXPECT_EQ(mounted.tree(), expected);
    EXPECT_EQ(MountedZip(container).tree(), expected);
    // An entry that was there before has moved by the zone's offset once, at the save that succeeded.
    const boost::posix_time::time_duration offset(5, 0, 0);
    EXPECT_EQ(mounted.provider().getFileAttributes(mounted.at("/a")).getLastModified(), times[0] + offset);
}

TEST_P(FailingContainer, AContainerThatCannotBeOpenedForWritingIsAsItWasAndNoArchiveIsKept) {
    replaceContainer(archiveBefore());
    const auto before = archive();
    MountedZip mounted(failing);
    auto hold = change(mounted);
    plan->failCall(1, {ProviderOperation::OpenStream});
    EXPECT_TRUE(reports(ErrorCode::LocalFileSystem, container.getLocation(), [&] { hold->close(); }));
    hold.reset();
    EXPECT_EQ(archive(), before);
    EXPECT_EQ(temporaryArchives(), 0u);
    expectThatNothingIsLost(mounted);
}

TEST_P(FailingContainer, AContainerThatFailsWhileItIsFirstReadIsReadAgain) {
    replaceContainer(archiveBefore());
    for (std::uint64_t call = 1;; ++call) {
        MountedZip mounted(failing);
        plan->failCall(call);
        try {
            mounted.list();
        } catch (const std::exception&) {
        }
        const bool failed = plan->failures() > 0;
        plan->countOnly();
        if (!failed) {
            ASSERT_GT(call, 5u);
            break;
        }
        SCOPED_TRACE(call);
        mounted.createFolder("/made");
        EXPECT_EQ(MountedZip(container).read("/docs/x"), "4");
        replaceContainer(archiveBefore());
    }
}

TEST_P(FailingContainer, ReadingInSmallPiecesChangesNothing) {
    replaceContainer(archiveBefore());
    plan->limitReads(7);
    MountedZip mounted(failing);
    change(mounted)->close();
    EXPECT_EQ(mounted.tree(), treeAfter());
}

INSTANTIATE_TEST_SUITE_P(Containers, FailingContainer,
                         testing::Values(Place::TakesBackWhatWasNotClosed, Place::WritesInPlace),
                         testing::PrintToStringParamName());

} // namespace

} // namespace kx::test
