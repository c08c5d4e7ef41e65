#include "ZipProviderTest.h"

#include <fl/filesystem/FsysExceptionBase.h>
#include <foundation/core/except/IInternalException.h>
#include <storage/zipprovider/src/EntryExistsException.h>
#include <storage/zipprovider/src/EntryNotFoundException.h>
#include <storage/zipprovider/src/FolderNotEmptyException.h>
#include <storage/zipprovider/src/MiniZipException.h>
#include <storage/zipprovider/src/WorkingEntryOpenException.h>
#include <storage/zipprovider/src/instantiations.h>
#include <support/archives/ArchiveBuilder.h>

#include <filesystem>
#include <vector>

namespace kx::test {

namespace {

using fl::filesystem::FsysExceptionBase;
using foundation::storage::provider::ByteStreamOpenOptions;
using foundation::storage::provider::StreamAccess;
using foundation::storage::provider::StreamDisposition;
using foundation::storage::provider::StreamPositioning;
using foundation::storage::provider::StreamTruncation;
using storage::zipprovider::EntryExistsException;
using storage::zipprovider::EntryNotFoundException;
using storage::zipprovider::FolderNotEmptyException;
using storage::zipprovider::MiniZipException;
using storage::zipprovider::WorkingEntryOpenException;
using storage::zipprovider::ZipEntryPath;

constexpr ByteStreamOpenOptions existing{StreamAccess::Write, StreamDisposition::OpenExisting,
                                         StreamTruncation::Keep, StreamPositioning::Position};

/// docs/a.txt, docs/b.txt, docs/sub/, empty/, and bad.txt, whose deflated data are no deflate stream.
std::string sampleArchive() {
    ArchiveBuilder builder;
    builder.add("docs/a.txt", "alpha").add("docs/b.txt", "beta").add("docs/sub/").add("empty/");
    builder.add("bad.txt", "these bytes cannot be had");
    builder.last().rawData = std::string(40, '\xFF');
    return builder.build();
}

class ZipProviderErrors : public ZipProviderTest {
protected:
    ZipProviderErrors() { mount(sampleArchive()); }

    /// Puts a folder in the place of the only working file, which then can be asked about but not opened.
    void breakTheWorkingFile() {
        const auto files = temporaryFiles();
        ASSERT_EQ(files.size(), 1u);
        const auto file = temporary.path() / files.front();
        std::filesystem::remove(file);
        std::filesystem::create_directory(file);
    }

    void expectUntouched() {
        EXPECT_EQ(archive(), m_before);
        EXPECT_TRUE(temporaryFiles().empty());
    }

private:
    const std::string m_before = sampleArchive();
};

TEST_F(ZipProviderErrors, CreatingAFileReportsWhatExistsAndWhatIsMissing) {
    EXPECT_TRUE(
        reports(ErrorCode::AlreadyExists, zip.at("/docs/a.txt"), [&] { zip.createFile("/docs/a.txt"); }));
    EXPECT_TRUE(reports(ErrorCode::AlreadyExists, zip.at("/docs"), [&] { zip.createFile("/docs"); }));
    EXPECT_TRUE(reports(ErrorCode::AlreadyExists, zip.at("/"), [&] { zip.createFile("/"); }));
    EXPECT_TRUE(reports(ErrorCode::NotFound, zip.at("/no/a.txt"), [&] { zip.createFile("/no/a.txt"); }));
    EXPECT_TRUE(
        reports(ErrorCode::NotFound, zip.at("/docs/a.txt/x"), [&] { zip.createFile("/docs/a.txt/x"); }));
    expectUntouched();
}

TEST_F(ZipProviderErrors, CreatingAFolderReportsWhatExistsAndWhatIsMissing) {
    EXPECT_TRUE(reports(ErrorCode::AlreadyExists, zip.at("/docs"), [&] { zip.createFolder("/docs"); }));
    EXPECT_TRUE(
        reports(ErrorCode::AlreadyExists, zip.at("/docs/a.txt"), [&] { zip.createFolder("/docs/a.txt"); }));
    EXPECT_TRUE(reports(ErrorCode::AlreadyExists, zip.at("/"), [&] { zip.createFolder("/"); }));
    EXPECT_TRUE(reports(ErrorCode::NotFound, zip.at("/no/sub"), [&] { zip.createFolder("/no/sub"); }));
    EXPECT_TRUE(
        reports(ErrorCode::NotFound, zip.at("/docs/a.txt/x"), [&] { zip.createFolder("/docs/a.txt/x"); }));
    expectUntouched();
}

TEST_F(ZipProviderErrors, RemovingAFileReportsWhatIsMissing) {
    EXPECT_TRUE(reports(ErrorCode::NotFound, zip.at("/docs/c.txt"), [&] { zip.removeFile("/docs/c.txt"); }));
    EXPECT_TRUE(reports(ErrorCode::NotFound, zip.at("/no/a.txt"), [&] { zip.removeFile("/no/a.txt"); }));
    EXPECT_TRUE(reports(ErrorCode::NotFound, zip.at("/docs"), [&] { zip.removeFile("/docs"); }));
    EXPECT_TRUE(reports(ErrorCode::NotFound, zip.at("/"), [&] { zip.removeFile("/"); }));
    expectUntouched();
}

TEST_F(ZipProviderErrors, RemovingAFolderReportsWhatIsMissingAndWhatIsNotEmpty) {
    EXPECT_TRUE(reports(ErrorCode::FolderNotEmpty, zip.at("/docs"), [&] { zip.removeFolder("/docs"); }));
    EXPECT_TRUE(reports(ErrorCode::NotFound, zip.at("/no"), [&] { zip.removeFolder("/no"); }));
    EXPECT_TRUE(reports(ErrorCode::NotFound, zip.at("/no/sub"), [&] { zip.removeFolder("/no/sub"); }));
    EXPECT_TRUE(
        reports(ErrorCode::NotFound, zip.at("/docs/a.txt"), [&] { zip.removeFolder("/docs/a.txt"); }));
    EXPECT_TRUE(reports(ErrorCode::NotFound, zip.at("/"), [&] { zip.removeFolder("/"); }));
    expectUntouched();
}

TEST_F(ZipProviderErrors, MovingAFileReportsTheDestinationWhateverIsWrong) {
    const auto move = [&](const char* from, const char* to, MoveOption option) {
        return [=, this] { zip.moveFile(from, to, option); };
    };
    using enum foundation::storage::provider::MoveOption;
    for (const auto option : {FailIfExists, AllowCopy}) {
        EXPECT_TRUE(reports(ErrorCode::AlreadyExists, zip.at("/docs/b.txt"),
                            move("/docs/a.txt", "/docs/b.txt", option)));
    }
    for (const auto option : {FailIfExists, ReplaceExisting, AllowCopy, ReplaceExistingAllowCopy}) {
        EXPECT_TRUE(
            reports(ErrorCode::AlreadyExists, zip.at("/empty"), move("/docs/a.txt", "/empty", option)));
        EXPECT_TRUE(reports(ErrorCode::AlreadyExists, zip.at("/"), move("/docs/a.txt", "/", option)));
        EXPECT_TRUE(reports(ErrorCode::NotFound, zip.at("/x"), move("/docs/c.txt", "/x", option)));
        EXPECT_TRUE(reports(ErrorCode::NotFound, zip.at("/x"), move("/no/a.txt", "/x", option)));
        EXPECT_TRUE(reports(ErrorCode::NotFound, zip.at("/x"), move("/docs", "/x", option)));
        EXPECT_TRUE(reports(ErrorCode::NotFound, zip.at("/no/x"), move("/docs/a.txt", "/no/x", option)));
        EXPECT_TRUE(reports(ErrorCode::NotFound, zip.at("/docs/b.txt/x"),
                            move("/docs/a.txt", "/docs/b.txt/x", option)));
    }
    expectUntouched();
}

TEST_F(ZipProviderErrors, MovingAFolderReportsTheDestinationWhateverIsWrong) {
    const auto move = [&](const char* from, const char* to, MoveOption option) {
        return [=, this] { zip.moveFolder(from, to, option); };
    };
    using enum foundation::storage::provider::MoveOption;
    for (const auto option : {FailIfExists, AllowCopy}) {
        EXPECT_TRUE(reports(ErrorCode::AlreadyExists, zip.at("/bad.txt"), move("/docs", "/bad.txt", option)));
    }
    for (const auto option : {FailIfExists, ReplaceExisting, AllowCopy, ReplaceExistingAllowCopy}) {
        EXPECT_TRUE(reports(ErrorCode::AlreadyExists, zip.at("/empty"), move("/docs", "/empty", option)));
        EXPECT_TRUE(reports(ErrorCode::AlreadyExists, zip.at("/"), move("/docs", "/", option)));
        EXPECT_TRUE(reports(ErrorCode::NotFound, zip.at("/x"), move("/no", "/x", option)));
        EXPECT_TRUE(reports(ErrorCode::NotFound, zip.at("/x"), move("/no/sub", "/x", option)));
        EXPECT_TRUE(reports(ErrorCode::NotFound, zip.at("/x"), move("/bad.txt", "/x", option)));
        EXPECT_TRUE(reports(ErrorCode::NotFound, zip.at("/x"), move("/", "/x", option)));
        EXPECT_TRUE(reports(ErrorCode::NotFound, zip.at("/no/x"), move("/docs", "/no/x", option)));
        EXPECT_TRUE(reports(ErrorCode::NotFound, zip.at("/bad.txt/x"), move("/docs", "/bad.txt/x", option)));
        EXPECT_TRUE(reports(ErrorCode::NotFound, zip.at("/docs/x"), move("/docs", "/docs/x", option)));
        EXPECT_TRUE(
            reports(ErrorCode::NotFound, zip.at("/docs/sub/x"), move("/docs", "/docs/sub/x", option)));
    }
    expectUntouched();
}

TEST_F(ZipProviderErrors, AttributesOfWhatIsMissingAreNotFound) {
    for (const auto* path : {"/docs/c.txt", "/no/a.txt", "/docs", "/"}) {
        EXPECT_TRUE(reports(ErrorCode::NotFound, zip.at(path),
                            [&] { zip.provider().getFileAttributes(zip.at(path)); }));
    }
    for (const auto* path : {"/no", "/no/sub", "/docs/a.txt", ""}) {
        EXPECT_TRUE(reports(ErrorCode::NotFound, zip.at(path),
                            [&] { zip.provider().getFolderAttributes(zip.at(path)); }));
    }
}

TEST_F(ZipProviderErrors, AttributesOfAFileWhoseWorkingFileIsGoneAreALocalFailure) {
    const auto stream = zip.writer("/docs/a.txt");
    std::filesystem::remove(temporary.path() / temporaryFiles().at(0));
    EXPECT_TRUE(reports(ErrorCode::LocalFileSystem, zip.at("/docs/a.txt"), [&] { zip.size("/docs/a.txt"); }));
}

TEST_F(ZipProviderErrors, OpeningForWritingReportsWhatExistsAndWhatIsMissing) {
    const auto open = [&](const char* path, const ByteStreamOpenOptions& options) {
        return [=, this] { zip.writer(path, options); };
    };
    EXPECT_TRUE(reports(ErrorCode::NotFound, zip.at("/no/a.txt"), open("/no/a.txt", {})));
    EXPECT_TRUE(reports(ErrorCode::NotFound, zip.at("/docs/a.txt/x"), open("/docs/a.txt/x", {})));
    EXPECT_TRUE(reports(ErrorCode::NotFound, zip.at("/docs/c.txt"), open("/docs/c.txt", existing)));
    EXPECT_TRUE(reports(ErrorCode::AlreadyExists, zip.at("/docs"), open("/docs", {})));
    EXPECT_TRUE(reports(ErrorCode::AlreadyExists, zip.at("/docs"), open("/docs", existing)));
    EXPECT_TRUE(reports(ErrorCode::AlreadyExists, zip.at("/"), open("/", {})));
    expectUntouched();
    EXPECT_FALSE(zip.isFile("/docs/c.txt"));
}

TEST_F(ZipProviderErrors, OpeningDamagedDataForWritingPassesTheZipFailureOn) {
    EXPECT_TRUE(throwsUntranslated<MiniZipException>(
        "Error in trying to create working file entry in ZipFileSystem::buildSharedWorkingFileEntry",
        [&] { zip.writer("/bad.txt", existing); }));
    expectUntouched();
}

TEST_F(ZipProviderErrors, OpeningForWritingPassesLocalFailuresOn) {
    {
        const ScopedVariable nowhere("TMPDIR", "/proc");
        EXPECT_TRUE(throwsUntranslated<FsysExceptionBase>("cannot create a temporary file in /proc",
                                                          [&] { zip.writer("/docs/a.txt"); }));
        EXPECT_TRUE(throwsUntranslated<FsysExceptionBase>("cannot create a temporary file in /proc",
                                                          [&] { zip.createFile("/docs/c.txt"); }));
    }
    EXPECT_FALSE(zip.isFile("/docs/c.txt"));
    expectUntouched();
    const auto reader = zip.reader("/docs/a.txt");
    breakTheWorkingFile();
    EXPECT_TRUE(throwsUntranslated<WorkingEntryOpenException>("Working entry /docs/a.txt could not be opened",
                                                              [&] { zip.writer("/docs/a.txt"); }));
}

TEST_F(ZipProviderErrors, AnOpeningThatFailedChangesNothing) {
    auto reader = zip.reader("/docs/a.txt");
    breakTheWorkingFile();
    EXPECT_THROW(zip.writer("/docs/a.txt"), WorkingEntryOpenException);
    reader.reset();
    EXPECT_EQ(zip.read("/docs/a.txt"), "alpha");
    // No stream counts as open, so a change is saved at once.
    zip.removeFile("/bad.txt");
    expectArchive({{"docs/a.txt", "alpha"}, {"docs/b.txt", "beta"}, {"docs/sub/", ""}, {"empty/", ""}});
    EXPECT_TRUE(temporaryFiles().empty());
}

TEST_F(ZipProviderErrors, TruncatingAndAppendingTogetherIsRefusedAndChangesNothing) {
    const ByteStreamOpenOptions senseless{StreamAccess::Write, StreamDisposition::OpenOrCreate,
                                          StreamTruncation::Truncate, StreamPositioning::Append};
    EXPECT_THROW(zip.writer("/docs/a.txt", senseless), WorkingEntryOpenException);
    EXPECT_THROW(zip.writer("/docs/c.txt", senseless), WorkingEntryOpenException);
    EXPECT_FALSE(zip.isFile("/docs/c.txt"));
    EXPECT_EQ(zip.read("/docs/a.txt"), "alpha");
    expectUntouched();
}

TEST_F(ZipProviderErrors, WhatExistsAndWhatIsMissingIsToldBeforeTheOpenModeIsLookedAt) {
    const auto open = [&](const char* path, StreamDisposition disposition) {
        return [=, this] {
            zip.writer(path, {StreamAccess::Write, disposition, StreamTruncation::Truncate,
                              StreamPositioning::Append});
        };
    };
    EXPECT_TRUE(reports(ErrorCode::NotFound, zip.at("/no/a.txt"),
                        open("/no/a.txt", StreamDisposition::OpenOrCreate)));
    EXPECT_TRUE(
        reports(ErrorCode::AlreadyExists, zip.at("/docs"), open("/docs", StreamDisposition::OpenOrCreate)));
    EXPECT_TRUE(reports(ErrorCode::NotFound, zip.at("/docs/c.txt"),
                        open("/docs/c.txt", StreamDisposition::OpenExisting)));
    expectUntouched();
}

TEST_F(ZipProviderErrors, OpeningForReadingReportsEveryKindOfFailureWithItsCode) {
    const auto open = [&](const char* path) { return [=, this] { zip.reader(path); }; };
    EXPECT_TRUE(reports(ErrorCode::NotFound, zip.at("/docs/c.txt"), open("/docs/c.txt")));
    EXPECT_TRUE(reports(ErrorCode::NotFound, zip.at("/no/a.txt"), open("/no/a.txt")));
    EXPECT_TRUE(reports(ErrorCode::NotFound, zip.at("/docs"), open("/docs")));
    EXPECT_TRUE(reports(ErrorCode::ContainerUnreadable, zip.at("/bad.txt"), open("/bad.txt")));
    {
        const ScopedVariable nowhere("TMPDIR", "/proc");
        EXPECT_TRUE(reports(ErrorCode::LocalFileSystem, zip.at("/docs/a.txt"), open("/docs/a.txt")));
    }
    EXPECT_TRUE(temporaryFiles().empty());
    const auto first = zip.reader("/docs/a.txt");
    breakTheWorkingFile();
    EXPECT_TRUE(reports(ErrorCode::LocalFileSystem, zip.at("/docs/a.txt"), open("/docs/a.txt")));
}

TEST_F(ZipProviderErrors, ListingAFolderThatIsMissingIsNotFound) {
    auto& provider = zip.provider();
    for (const auto* path : {"/no", "/no/sub", "/docs/no"}) {
        const auto location = zip.at(path);
        EXPECT_TRUE(reports(ErrorCode::NotFound, location, [&] { provider.listAll(location); }));
        EXPECT_TRUE(reports(ErrorCode::NotFound, location, [&] { provider.listFiles(location); }));
        EXPECT_TRUE(reports(ErrorCode::NotFound, location, [&] { provider.listFolders(location); }));
    }
}

TEST_F(ZipProviderErrors, AContainerThatIsNotWritableRefusesChangesBeforeAnythingElse) {
    memory->setReadOnly(true);
    const auto refused = [&](const char* path, const std::function<void()>& work) {
        return reports(ErrorCode::NotWritable, zip.at(path), work);
    };
    // Parents are missing, names exist: none of that counts, and the archive is not even read.
    EXPECT_TRUE(refused("/no/a", [&] { zip.createFile("/no/a"); }));
    EXPECT_TRUE(refused("/no/sub", [&] { zip.createFolder("/no/sub"); }));
    EXPECT_TRUE(refused("/docs", [&] { zip.createFolder("/docs"); }));
    EXPECT_TRUE(refused("/no/a", [&] { zip.removeFile("/no/a"); }));
    EXPECT_TRUE(refused("/docs", [&] { zip.removeFolder("/docs"); }));
    EXPECT_TRUE(refused("/docs/a.txt", [&] { zip.moveFile("/docs/a.txt", "/no/b"); }));
    EXPECT_TRUE(refused("/docs", [&] { zip.moveFolder("/docs", "/no/b"); }));
    EXPECT_TRUE(refused("/docs/a.txt", [&] { zip.writer("/docs/a.txt", existing); }));
    EXPECT_EQ(memory->callCount(ProviderOperation::OpenReadStream), 0u);
    expectUntouched();
}

TEST_F(ZipProviderErrors, WritabilityIsAskedAfreshAtEachChange) {
    memory->setReadOnly(true);
    EXPECT_TRUE(reports(ErrorCode::NotWritable, zip.at("/new"), [&] { zip.createFolder("/new"); }));
    memory->setReadOnly(false);
    zip.removeFile("/bad.txt");
    memory->setReadOnly(true);
    EXPECT_TRUE(reports(ErrorCode::NotWritable, zip.at("/new"), [&] { zip.createFolder("/new"); }));
    memory->setReadOnly(false);
    zip.createFolder("/new");
    EXPECT_TRUE(MountedZip(container).isFolder("/new"));
}

TEST_F(ZipProviderErrors, TheContainersOwnFailuresPassUnchanged) {
    memory->removeFile(container.getLocation());
    const auto missing = [&](const std::function<void()>& work) {
        return reports(ErrorCode::NotFound, container.getLocation(), work);
    };
    EXPECT_TRUE(missing([&] { zip.isFile("/docs/a.txt"); }));
    EXPECT_TRUE(missing([&] { zip.list(); }));
    EXPECT_TRUE(missing([&] { zip.size("/docs/a.txt"); }));
    EXPECT_TRUE(missing([&] { zip.reader("/docs/a.txt"); }));
    EXPECT_TRUE(missing([&] { zip.writer("/docs/a.txt"); }));
    EXPECT_TRUE(missing([&] { zip.createFile("/x"); }));
    EXPECT_TRUE(missing([&] { zip.createFolder("/x"); }));
    EXPECT_TRUE(missing([&] { zip.removeFile("/x"); }));
    EXPECT_TRUE(missing([&] { zip.moveFile("/x", "/y"); }));
    EXPECT_TRUE(zip.isFolder("/"));
    // What failed is tried again.
    memory->createFile(container.getLocation());
    EXPECT_TRUE(zip.list().empty());
}

TEST_F(ZipProviderErrors, FailuresOfTheSaveThatAChangeCausesPassUnchanged) {
    ArchiveBuilder builder;
    builder.add("docs/a.txt", "alpha").add("secret", "cannot be read");
    builder.last().flags = flag::encrypted;
    mount(builder.build());
    const auto saveFails = [&](const std::function<void()>& work) {
        return throwsUntranslated<MiniZipException>(
            "cannot rebuild mem:///plans.zip: its entry /secret is encrypted and cannot be carried over",
            work);
    };
    EXPECT_TRUE(saveFails([&] { zip.createFile("/x"); }));
    EXPECT_TRUE(saveFails([&] { zip.createFolder("/y"); }));
    EXPECT_TRUE(saveFails([&] { zip.moveFile("/x", "/z"); }));
    EXPECT_TRUE(saveFails([&] { zip.moveFolder("/y", "/w"); }));
    EXPECT_TRUE(saveFails([&] { zip.removeFile("/z"); }));
    EXPECT_TRUE(saveFails([&] { zip.removeFolder("/w"); }));
    EXPECT_EQ(archive(), builder.build());
}

TEST_F(ZipProviderErrors, LocalFailuresOfTheSaveThatAChangeCausesPassUnchanged) {
    mount({{"docs/a.txt", "alpha"}, {"docs/", ""}});
    const auto before = archive();
    {
        const ScopedVariable nowhere("TMPDIR", "/proc");
        const auto saveFails = [&](const std::function<void()>& work) {
            return throwsUntranslated<MiniZipException>("/proc/zipProvider-", work);
        };
        EXPECT_TRUE(saveFails([&] { zip.createFolder("/y"); }));
        EXPECT_TRUE(saveFails([&] { zip.moveFile("/docs/a.txt", "/z"); }));
        EXPECT_TRUE(saveFails([&] { zip.moveFolder("/y", "/w"); }));
        EXPECT_TRUE(saveFails([&] { zip.removeFile("/z"); }));
        EXPECT_TRUE(saveFails([&] { zip.removeFolder("/w"); }));
    }
    EXPECT_EQ(archive(), before);
    zip.createFolder("/saved");
    expectArchive({{"docs/", ""}, {"saved/", ""}});
}

/// The exceptions below the host's, which tell more than a code.
class ZipFileSystemErrors : public ZipProviderErrors {
protected:
    using FileSystem =
        storage::zipprovider::ZipFileSystem<storage::zipprovider::HostItem, storage::zipprovider::HostDevice>;

    const std::shared_ptr<const FileSystem> files = std::make_shared<const FileSystem>(container);

    static ZipEntryPath path(const char16_t* text) { return ZipEntryPath(text); }
};

TEST_F(ZipFileSystemErrors, AMissingParentFolderIsNamedAndNotTheEntry) {
    const auto named = [](const std::function<void()>& work) {
        return throwsUntranslated<EntryNotFoundException>("Entry /no/sub could not be found", work);
    };
    const auto inside = path(u"/no/sub/x");
    const auto a = path(u"/docs/a.txt");
    EXPECT_TRUE(named([&] { files->checkOutEntry(inside); }));
    EXPECT_TRUE(named([&] { files->checkOutEntry(inside, ByteStreamOpenOptions{}); }));
    EXPECT_TRUE(named([&] { files->createFolder(inside); }));
    EXPECT_TRUE(named([&] { files->removeFile(inside); }));
    EXPECT_TRUE(named([&] { files->removeFolder(inside); }));
    EXPECT_TRUE(named([&] { files->moveFile(inside, a, MoveOption::FailIfExists); }));
    EXPECT_TRUE(named([&] { files->moveFile(a, inside, MoveOption::FailIfExists); }));
    EXPECT_TRUE(named([&] { files->moveFolder(inside, a, MoveOption::FailIfExists); }));
    EXPECT_TRUE(named([&] { files->moveFolder(path(u"/docs"), inside, MoveOption::FailIfExists); }));
}

TEST_F(ZipFileSystemErrors, AMissingEntryIsNamedItself) {
    const auto named = [](const std::function<void()>& work) {
        return throwsUntranslated<EntryNotFoundException>("Entry /docs/x could not be found", work);
    };
    const auto x = path(u"/docs/x");
    EXPECT_TRUE(named([&] { files->checkOutEntry(x); }));
    EXPECT_TRUE(named([&] { files->checkOutEntry(x, existing); }));
    EXPECT_TRUE(named([&] { files->removeFile(x); }));
    EXPECT_TRUE(named([&] { files->removeFolder(x); }));
    EXPECT_TRUE(named([&] { files->moveFile(x, path(u"/y"), MoveOption::FailIfExists); }));
    EXPECT_TRUE(named([&] { files->moveFolder(x, path(u"/y"), MoveOption::FailIfExists); }));
    EXPECT_TRUE(named([&] { files->getFileSize(x); }));
    EXPECT_TRUE(named([&] { files->getFileLastModified(x); }));
    EXPECT_TRUE(named([&] { files->getFolderLastModified(x); }));
}

TEST_F(ZipFileSystemErrors, AttributeQueriesNameTheEntryAlsoWhenItsParentIsMissing) {
    const auto named = [](const std::function<void()>& work) {
        return throwsUntranslated<EntryNotFoundException>("Entry /no/sub/x could not be found", work);
    };
    EXPECT_TRUE(named([&] { files->getFileSize(path(u"/no/sub/x")); }));
    EXPECT_TRUE(named([&] { files->getFileLastModified(path(u"/no/sub/x")); }));
    EXPECT_TRUE(named([&] { files->getFolderLastModified(path(u"/no/sub/x")); }));
}

TEST_F(ZipFileSystemErrors, WhatExistsOrIsNotEmptyIsNamed) {
    const auto exists = [](const char* name, const std::function<void()>& work) {
        return throwsUntranslated<EntryExistsException>(std::string("Entry ") + name + " already exists",
                                                        work);
    };
    EXPECT_TRUE(exists("/docs", [&] { files->checkOutEntry(path(u"/docs"), ByteStreamOpenOptions{}); }));
    EXPECT_TRUE(exists("/docs", [&] { files->createFolder(path(u"/docs")); }));
    EXPECT_TRUE(exists("/bad.txt", [&] { files->createFolder(path(u"/bad.txt")); }));
    EXPECT_TRUE(exists(
        "/docs", [&] { files->moveFile(path(u"/bad.txt"), path(u"/docs"), MoveOption::ReplaceExisting); }));
    EXPECT_TRUE(exists("/bad.txt", [&] {
        files->moveFile(path(u"/docs/a.txt"), path(u"/bad.txt"), MoveOption::FailIfExists);
    }));
    EXPECT_TRUE(throwsUntranslated<FolderNotEmptyException>("Folder /docs is not empty",
                                                            [&] { files->removeFolder(path(u"/docs")); }));
}

TEST_F(ZipFileSystemErrors, EveryFailureIsTheFrameworksInternalExceptionToo) {
    using foundation::core::except::IInternalException;
    EXPECT_THROW(files->removeFile(path(u"/docs/x")), IInternalException);
    EXPECT_THROW(files->createFolder(path(u"/docs")), IInternalException);
    EXPECT_THROW(files->removeFolder(path(u"/docs")), IInternalException);
    EXPECT_THROW(files->checkOutEntry(path(u"/bad.txt")), IInternalException);
}

} // namespace

} // namespace kx::test
