#include "../ScopedTimeZone.h"
#include "HookedProvider.h"
#include "InPlaceProvider.h"
#include "ZipProviderTest.h"

#include <fl/filesystem/FsysExceptionBase.h>
#include <storage/zipprovider/src/MiniZipException.h>
#include <storage/zipprovider/src/instantiations.h>
#include <support/FaultInjectingProvider.h>
#include <support/archives/ArchiveBuilder.h>

#include <boost/date_time/posix_time/posix_time.hpp>

#include <sys/resource.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <ostream>
#include <set>
#include <vector>

namespace kx::test {

namespace {

using fl::filesystem::FsysExceptionBase;
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

/// Files cannot grow beyond a limit while this lives, as on a full disk.
class FullDisk {
public:
    explicit FullDisk(rlim_t bytes) {
        ::getrlimit(RLIMIT_FSIZE, &m_before);
        m_handler = std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{bytes, m_before.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FullDisk() {
        ::setrlimit(RLIMIT_FSIZE, &m_before);
        std::signal(SIGXFSZ, m_handler);
    }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;

private:
    rlimit m_before{};
    void (*m_handler)(int);
};

class FailingTemporaryFolder : public ZipProviderTest {};

TEST_F(FailingTemporaryFolder, AnArchiveThatCannotBeBuiltLeavesTheContainerAndNoFile) {
    const auto large = randomBytes(300'000, 1);
    mount({{"large", large}, {"a", "1"}});
    const auto before = archive();
    {
        const FullDisk full(100'000);
        EXPECT_TRUE(throwsUntranslated<MiniZipException>(
            "sanitized.zip: MiniZipWriteHandle: Problem closing zip file: File too large",
            [&] { zip.createFolder("/f"); }));
    }
    EXPECT_EQ(archive(), before);
    EXPECT_TRUE(temporaryFiles().empty());
    EXPECT_TRUE(zip.isFolder("/f"));
    zip.removeFile("/a");
    expectArchive({{"large", large}, {"f/", ""}});
}

TEST_F(FailingTemporaryFolder, AModifiedEntryThatDoesNotFitFailsTheSaveAndIsSavedLater) {
    const auto large = randomBytes(90'000, 1);
    mount({{"one", large}});
    {
        const FullDisk full(100'000);
        const auto stream = zip.writer("/two");
        writeAll(*stream, large);
        EXPECT_TRUE(throwsUntranslated<MiniZipException>(
            "sanitized.zip: MiniZipWriteHandle: Problem closing zip file: File too large",
            [&] { stream->close(); }));
    }
    EXPECT_EQ(zip.read("/two"), large);
    zip.createFolder("/f");
    expectArchive({{"one", large}, {"two", large}, {"f/", ""}});
    EXPECT_TRUE(temporaryFiles().empty());
}

TEST_F(FailingTemporaryFolder, AWriteThatDoesNotFitIsReportedAtOnce) {
    zip.write("/a", "1");
    {
        const FullDisk full(100'000);
        const auto stream = zip.writer("/two");
        EXPECT_THROW(writeAll(*stream, randomBytes(200'000, 1)), FsysExceptionBase);
    }
    EXPECT_FALSE(zip.isFile("/two"));
    expectArchive({{"a", "1"}});
}

TEST_F(FailingTemporaryFolder, AStreamWhoseWriteHasFailedSavesNothingOfItAndSaysSo) {
    mount({{"a", "1"}, {"b", "2"}});
    const auto old = zip.writer("/a");
    const auto made = zip.writer("/c");
    for (const auto* stream : {&old, &made}) {
        writeAll(**stream, std::string(1'000, 'x'));
        const FullDisk full(4'000);
        EXPECT_THROW(writeAll(**stream, std::string(8'000, 'x')), FsysExceptionBase);
    }
    zip.createFolder("/f");
    for (const auto* stream : {&old, &made}) {
        // There is room again, but what was not written is missing.
        writeAll(**stream, "end");
        EXPECT_THROW((*stream)->close(), FsysExceptionBase);
        EXPECT_NO_THROW((*stream)->close());
    }
    expectArchive({{"a", "1"}, {"b", "2"}, {"f/", ""}});
}

TEST_F(FailingTemporaryFolder, WhatWasClosedStaysWhenThereIsNoRoomToPutItAside) {
    auto hold = zip.writer("/hold");
    const auto bytes = randomBytes(5'000, 1);
    zip.write("/a", bytes);
    {
        const FullDisk full(4'000);
        EXPECT_THROW(zip.writer("/a"), FsysExceptionBase);
    }
    hold->close();
    hold.reset();
    expectArchive({{"a", bytes}, {"hold", ""}});
    EXPECT_TRUE(temporaryFiles().empty());
}

TEST_F(FailingTemporaryFolder, AnEntryWhoseWorkingFileHasNoRoomIsNotOpened) {
    // The copy looks at what it writes to before each piece, so only the last piece is the file's own
    // failure.
    mount({{"pieces", randomBytes(300'000, 1)}, {"piece", randomBytes(5'000, 1)}});
    zip.list();
    const FullDisk full(4'000);
    EXPECT_TRUE(reports(ErrorCode::ContainerUnreadable, zip.at("/pieces"), [&] { zip.reader("/pieces"); }));
    EXPECT_THROW(zip.writer("/pieces"), MiniZipException);
    EXPECT_TRUE(reports(ErrorCode::LocalFileSystem, zip.at("/piece"), [&] { zip.reader("/piece"); }));
    EXPECT_THROW(zip.writer("/piece"), FsysExceptionBase);
    EXPECT_TRUE(temporaryFiles().empty());
}

TEST_F(FailingTemporaryFolder, WithoutATemporaryFolderNothingIsSavedUntilItIsBack) {
    mount({{"a", "1"}});
    const auto before = archive();
    {
        const ScopedVariable nowhere("TMPDIR", "/proc");
        EXPECT_THROW(zip.removeFile("/a"), std::exception);
    }
    EXPECT_EQ(archive(), before);
    zip.createFolder("/f");
    expectArchive({{"f/", ""}});
}

TEST_F(FailingTemporaryFolder, ASaveThatIsDoneIsNoFailureThoughItsTemporaryArchiveCannotBeRemoved) {
    const auto folder = temporary.path() / "folder";
    std::filesystem::create_directory(folder);
    const ScopedVariable variable("TMPDIR", folder.string());
    const auto hooked = std::make_shared<HookedProvider>(memory);
    MountedZip mounted(StorageItem(hooked, container.getLocation()));
    mounted.list();
    bool blocked = false;
    hooked->callBefore([&](ProviderOperation called) {
        if (called == ProviderOperation::StreamWrite) {
            blocked = true;
        } else if (called == ProviderOperation::StreamClose && blocked) {
            // Nothing can be looked up behind a symbolic link to itself.
            std::filesystem::rename(folder, temporary.path() / "moved away");
            std::filesystem::create_symlink(folder, folder);
            hooked->callBefore({});
        }
    });
    EXPECT_NO_THROW(mounted.createFolder("/f"));
    EXPECT_TRUE(std::filesystem::is_symlink(folder));
    std::filesystem::remove(folder);
    EXPECT_EQ(MountedZip(container).tree(), (Contents{{"f/", ""}}));
}

TEST_F(FailingTemporaryFolder, ATemporaryArchiveThatIsCutWhileItIsCopiedDoesNotReachTheContainer) {
    replaceContainer(simpleArchive({{"a", "1"}}));
    const auto before = archive();
    const auto hooked = std::make_shared<HookedProvider>(memory);
    MountedZip mounted(StorageItem(hooked, container.getLocation()));
    const auto large = randomBytes(1'000'000, 1);
    auto stream = mounted.writer("/large");
    writeAll(*stream, large);
    hooked->beforeNext(ProviderOperation::StreamWrite, [&] {
        for (const auto& name : temporaryFiles()) {
            if (name.ends_with("sanitized.zip")) {
                std::filesystem::resize_file(temporary.path() / name, 500'000);
            }
        }
    });
    EXPECT_TRUE(throwsUntranslated<MiniZipException>("the temporary archive could not be read to the end",
                                                     [&] { stream->close(); }));
    stream.reset();
    EXPECT_EQ(archive(), before);
    mounted.createFolder("/f");
    EXPECT_EQ(archiveProblems(archive(), {{"a", "1"}, {"large", large}, {"f/", ""}}), "");
    EXPECT_TRUE(temporaryFiles().empty());
}

TEST_F(FailingTemporaryFolder, AVanishedWorkingFileFailsTheSaveUntilItsEntryIsRemoved) {
    mount({{"a", "1"}});
    auto stream = zip.writer("/b");
    std::filesystem::remove(temporary.path() / temporaryFiles().at(0));
    EXPECT_THROW(stream->close(), FsysExceptionBase);
    stream.reset();
    EXPECT_THROW(zip.createFolder("/f"), FsysExceptionBase);
    zip.removeFile("/b");
    expectArchive({{"a", "1"}, {"f/", ""}});
    EXPECT_TRUE(temporaryFiles().empty());
}

TEST_F(FailingTemporaryFolder, AStreamWhoseCloseFailedDoesNotCountAsOpen) {
    using FileSystem =
        storage::zipprovider::ZipFileSystem<storage::zipprovider::HostItem, storage::zipprovider::HostDevice>;
    const auto files = std::make_shared<const FileSystem>(container);
    auto stream = files->checkOutEntry(storage::zipprovider::ZipEntryPath(u"/a"), ByteStreamOpenOptions{});
    writeAll(*stream, "1");
    files->flushContents();
    std::filesystem::remove(temporary.path() / temporaryFiles().at(0));
    EXPECT_THROW(stream->close(), FsysExceptionBase);
    stream.reset();
    files->createFolder(storage::zipprovider::ZipEntryPath(u"/f"));
    EXPECT_EQ(MountedZip(container).tree(), (Contents{{"a", "1"}, {"f/", ""}}));
}

} // namespace

} // namespace kx::test
