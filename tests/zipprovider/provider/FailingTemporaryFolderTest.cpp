#include "../FileSizeLimit.h"
#include "HookedProvider.h"
#include "ZipProviderTest.h"

#include <fl/filesystem/FsysExceptionBase.h>
#include <storage/zipprovider/src/MiniZipException.h>
#include <storage/zipprovider/src/instantiations.h>
#include <support/archives/ArchiveBuilder.h>

#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kx::test {

namespace {

using fl::filesystem::FsysExceptionBase;
using storage::zipprovider::MiniZipException;

class FailingTemporaryFolder : public ZipProviderTest {};

TEST_F(FailingTemporaryFolder, AnArchiveThatCannotBeBuiltLeavesTheContainerAndNoFile) {
    const auto large = randomBytes(300'000, 1);
    mount({{"large", large}, {"a", "1"}});
    const auto before = archive();
    {
        const FileSizeLimit full(100'000);
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

TEST_F(FailingTemporaryFolder, AnArchiveWhoseDirectoryDoesNotFitLeavesTheContainer) {
    const std::vector<std::pair<std::string, std::string>> contents{{"a", randomBytes(5'000, 1)}};
    mount(contents);
    zip.createFolder("/f");
    const auto whole = archive().size();
    for (auto room = whole - 100; room < whole; ++room) {
        mount(contents);
        const auto before = archive();
        const FileSizeLimit full(room);
        EXPECT_TRUE(throwsUntranslated<MiniZipException>(
            "sanitized.zip: MiniZipWriteHandle: Problem closing zip file: File too large",
            [&] { zip.createFolder("/f"); }))
            << room << " of " << whole << " bytes";
        EXPECT_EQ(archive(), before);
    }
}

TEST_F(FailingTemporaryFolder, AModifiedEntryThatDoesNotFitFailsTheSaveAndIsSavedLater) {
    const auto large = randomBytes(90'000, 1);
    mount({{"one", large}});
    {
        const FileSizeLimit full(100'000);
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
        const FileSizeLimit full(100'000);
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
        const FileSizeLimit full(4'000);
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
        const FileSizeLimit full(4'000);
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
    const FileSizeLimit full(4'000);
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
