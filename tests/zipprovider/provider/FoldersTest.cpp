#include "ZipProviderTest.h"

#include <foundation/storage/provider/FolderAttributes.h>
#include <storage/zipprovider/src/MiniZipException.h>
#include <storage/zipprovider/src/TimeSource.h>
#include <storage/zipprovider/src/instantiations.h>
#include <support/archives/ArchiveBuilder.h>
#include <support/archives/ArchiveShapes.h>

#include <boost/date_time/posix_time/posix_time.hpp>

#include <functional>

namespace kx::test {

namespace {

using boost::posix_time::ptime;
using boost::posix_time::time_from_string;
using storage::zipprovider::MiniZipException;
using storage::zipprovider::ZipEntryPath;

/// Folders, removal and moves.
class ZipProviderFolders : public ZipProviderTest {
protected:
    using FileSystem =
        storage::zipprovider::ZipFileSystem<storage::zipprovider::HostItem, storage::zipprovider::HostDevice>;

    ZipProviderFolders() {
        mount({{"docs/a.txt", "alpha"},
               {"docs/b.txt", "beta"},
               {"docs/sub/", ""},
               {"docs/sub/c.txt", "gamma"},
               {"empty/", ""},
               {"top", "delta"}});
        m_before = memory->callCount(ProviderOperation::OpenStream);
    }

    std::uint64_t rebuilds() const { return memory->callCount(ProviderOperation::OpenStream) - m_before; }

    ptime folderTime(const char* path) {
        return zip.provider().getFolderAttributes(zip.at(path)).getLastModified();
    }
    ptime fileTime(const char* path) {
        return zip.provider().getFileAttributes(zip.at(path)).getLastModified();
    }

    const Contents m_old{{"docs/a.txt", "alpha"},     {"docs/b.txt", "beta"}, {"docs/sub/", ""},
                         {"docs/sub/c.txt", "gamma"}, {"empty/", ""},         {"top", "delta"}};

private:
    std::uint64_t m_before = 0;
};

TEST_F(ZipProviderFolders, AFolderIsMadeAsAnEntryThatKeepsItWhenItIsEmpty) {
    zip.createFolder("/made");
    zip.createFolder("/made/inner/");
    EXPECT_EQ(rebuilds(), 2u);
    auto expected = m_old;
    expected["made/"];
    expected["made/inner/"];
    expectArchive(expected);
    EXPECT_TRUE(temporaryFiles().empty());
}

TEST_F(ZipProviderFolders, AFolderHasTheTimeWhenItWasMade) {
    const ScopedTime standing;
    const auto time = time_from_string("2022-03-04 05:06:08");
    const auto hold = zip.writer("/hold");
    zip.createFolder("/made");
    EXPECT_EQ(folderTime("/made"), time);
    EXPECT_EQ(folderTime("/"), zip.provider().getFolderAttributes(zip.at("/")).getLastModified());
    hold->close();
    for (const auto& entry : seenEntries(archive())) {
        if (entry.name == "made/") {
            EXPECT_EQ(entry.modified, (std::array<int, 6>{2022, 3, 4, 5, 6, 8}));
        }
    }
}

TEST_F(ZipProviderFolders, WithoutAnOpenStreamEveryChangeIsSavedBeforeItReturns) {
    zip.removeFile("/top");
    EXPECT_EQ(rebuilds(), 1u);
    zip.moveFile("/docs/a.txt", "/a.txt");
    EXPECT_EQ(rebuilds(), 2u);
    zip.moveFolder("/docs", "/papers");
    EXPECT_EQ(rebuilds(), 3u);
    zip.createFolder("/made");
    EXPECT_EQ(rebuilds(), 4u);
    zip.removeFolder("/empty");
    EXPECT_EQ(rebuilds(), 5u);
    expectArchive({{"a.txt", "alpha"},
                   {"papers/b.txt", "beta"},
                   {"papers/sub/", ""},
                   {"papers/sub/c.txt", "gamma"},
                   {"made/", ""}});
    EXPECT_TRUE(temporaryFiles().empty());
}

TEST_F(ZipProviderFolders, WithAnOpenStreamChangesShowAtOnceAndAreSavedTogether) {
    const auto before = archive();
    const auto hold = zip.writer("/hold");
    zip.removeFile("/top");
    zip.moveFile("/docs/a.txt", "/a.txt");
    zip.moveFolder("/docs", "/papers");
    zip.createFolder("/made");
    zip.removeFolder("/empty");
    const Contents expected{{"a.txt", "alpha"},  {"papers/b.txt", "beta"},
                            {"papers/sub/", ""}, {"papers/sub/c.txt", "gamma"},
                            {"made/", ""},       {"hold", ""}};
    auto tree = expected;
    tree["papers/"];
    EXPECT_EQ(zip.tree(), tree);
    EXPECT_EQ(archive(), before);
    EXPECT_EQ(rebuilds(), 0u);
    hold->close();
    EXPECT_EQ(rebuilds(), 1u);
    expectArchive(expected);
}

TEST_F(ZipProviderFolders, RemovingAFolderThatHoldsEntriesChangesNothing) {
    const auto before = archive();
    EXPECT_TRUE(reports(ErrorCode::FolderNotEmpty, zip.at("/docs"), [&] { zip.removeFolder("/docs"); }));
    EXPECT_EQ(archive(), before);
    EXPECT_EQ(rebuilds(), 0u);
    expectArchive(m_old);
}

TEST_F(ZipProviderFolders, AFolderIsRemovedOnceItIsEmptied) {
    const auto hold = zip.writer("/hold");
    zip.removeFile("/docs/sub/c.txt");
    zip.removeFolder("/docs/sub");
    zip.removeFile("/docs/a.txt");
    zip.moveFile("/docs/b.txt", "/b.txt");
    zip.removeFolder("/docs");
    zip.createFolder("/short");
    zip.removeFolder("/short");
    EXPECT_FALSE(zip.isFolder("/docs"));
    EXPECT_TRUE(reports(ErrorCode::NotFound, zip.at("/docs/x"), [&] { zip.createFile("/docs/x"); }));
    hold->close();
    expectArchive({{"b.txt", "beta"}, {"empty/", ""}, {"top", "delta"}, {"hold", ""}});
}

TEST_F(ZipProviderFolders, AFolderWithoutAnEntryOfItsOwnGoesWithWhatImpliedIt) {
    zip.removeFile("/docs/a.txt");
    zip.removeFile("/docs/b.txt");
    zip.removeFile("/docs/sub/c.txt");
    EXPECT_TRUE(zip.isFolder("/docs/sub"));
    zip.removeFolder("/docs/sub");
    EXPECT_FALSE(zip.isFolder("/docs"));
    expectArchive({{"empty/", ""}, {"top", "delta"}});
}

TEST_F(ZipProviderFolders, TheLastEntryLeavesAValidArchive) {
    mount({{"a", "1"}});
    zip.removeFile("/a");
    EXPECT_EQ(archive().size(), 22u);
    expectArchive({});
    zip.write("/b", "2");
    expectArchive({{"b", "2"}});
}

TEST_F(ZipProviderFolders, AFileIsMovedToAnotherFolderAndKeepsItsTime) {
    const auto time = fileTime("/docs/a.txt");
    zip.moveFile("/docs/a.txt", "/empty/renamed.txt");
    EXPECT_EQ(fileTime("/empty/renamed.txt"), time);
    auto expected = m_old;
    expected.erase("docs/a.txt");
    expected["empty/renamed.txt"] = "alpha";
    expectArchive(expected);
}

TEST_F(ZipProviderFolders, AMoveGivesTheTimeToTheTwoFoldersAlone) {
    const ScopedTime standing;
    const auto time = time_from_string("2022-03-04 05:06:08");
    const auto other = folderTime("/docs/sub");
    const auto own = fileTime("/docs/a.txt");
    const auto hold = zip.writer("/hold");
    zip.moveFile("/docs/a.txt", "/empty/a.txt");
    EXPECT_EQ(folderTime("/docs"), time);
    EXPECT_EQ(folderTime("/empty"), time);
    EXPECT_EQ(folderTime("/docs/sub"), other);
    EXPECT_EQ(fileTime("/empty/a.txt"), own);
    zip.moveFolder("/docs/sub", "/empty/sub");
    EXPECT_EQ(folderTime("/empty/sub"), other);
}

TEST_F(ZipProviderFolders, AnExistingFileIsReplacedByEveryOptionButTheTwoThatRefuse) {
    for (const auto option : {0u, 4u}) {
        EXPECT_TRUE(reports(ErrorCode::AlreadyExists, zip.at("/top"),
                            [&] { zip.moveFile("/docs/a.txt", "/top", MoveOption{option}); }));
    }
    expectArchive(m_old);
    for (const auto option : {1u, 2u, 3u, 5u, 6u, 8u, 0x80000000u, 0xFFFFFFFFu}) {
        mount({{"a", "new"}, {"b", "old"}});
        zip.moveFile("/a", "/b", MoveOption{option});
        EXPECT_EQ(MountedZip(container).tree(), (Contents{{"b", "new"}})) << option;
    }
}

TEST_F(ZipProviderFolders, AMovedFolderReplacesAFileWhenAskedTo) {
    EXPECT_TRUE(reports(ErrorCode::AlreadyExists, zip.at("/top"), [&] { zip.moveFolder("/docs", "/top"); }));
    zip.moveFolder("/docs", "/top", MoveOption::ReplaceExisting);
    expectArchive({{"top/a.txt", "alpha"},
                   {"top/b.txt", "beta"},
                   {"top/sub/", ""},
                   {"top/sub/c.txt", "gamma"},
                   {"empty/", ""}});
}

TEST_F(ZipProviderFolders, AMoveOntoItselfLosesNothing) {
    for (const auto option : {MoveOption::FailIfExists, MoveOption::AllowCopy}) {
        EXPECT_TRUE(
            reports(ErrorCode::AlreadyExists, zip.at("/top"), [&] { zip.moveFile("/top", "/top", option); }));
        EXPECT_TRUE(reports(ErrorCode::AlreadyExists, zip.at("/docs"),
                            [&] { zip.moveFolder("/docs", "/docs", option); }));
    }
    for (const auto option : {MoveOption::ReplaceExisting, MoveOption::ReplaceExistingAllowCopy}) {
        zip.moveFile("/top", "/top", option);
        zip.moveFile("/docs/a.txt", "//docs/a.txt/", option);
        zip.moveFolder("/docs", "/docs/", option);
    }
    EXPECT_EQ(rebuilds(), 0u);
    expectArchive(m_old);
    const auto writer = zip.writer("/top", ByteStreamOpenOptions::append());
    zip.moveFile("/top", "/top", MoveOption::ReplaceExisting);
    writeAll(*writer, "+");
    writer->close();
    EXPECT_EQ(MountedZip(container).read("/top"), "delta+");
}

TEST_F(ZipProviderFolders, AFolderIsNotMovedIntoItself) {
    for (const auto* to : {"/docs/x", "/docs/sub/x", "/docs/a.txt/x", "/docs/no/x"}) {
        EXPECT_TRUE(reports(ErrorCode::NotFound, zip.at(to), [&] { zip.moveFolder("/docs", to); })) << to;
    }
    zip.moveFolder("/docs", "/docs-of-mine");
    EXPECT_EQ(zip.read("/docs-of-mine/sub/c.txt"), "gamma");
}

TEST_F(ZipProviderFolders, EntriesWhoseNamesBeginAlikeAreNotMovedAlong) {
    mount({{"a/x", "1"}, {"a-b/x", "2"}, {"a.txt", "3"}, {"ab/x", "4"}, {"a/", ""}});
    zip.moveFolder("/a", "/z");
    expectArchive({{"z/x", "1"}, {"a-b/x", "2"}, {"a.txt", "3"}, {"ab/x", "4"}, {"z/", ""}});
}

TEST_F(ZipProviderFolders, NamesAreExchangedThroughAThirdOne) {
    const auto hold = zip.writer("/hold");
    zip.moveFile("/docs/a.txt", "/tmp");
    zip.moveFile("/docs/b.txt", "/docs/a.txt");
    zip.moveFile("/tmp", "/docs/b.txt");
    EXPECT_EQ(zip.read("/docs/a.txt"), "beta");
    EXPECT_EQ(zip.read("/docs/b.txt"), "alpha");
    hold->close();
    EXPECT_EQ(MountedZip(container).read("/docs/a.txt"), "beta");
    EXPECT_EQ(MountedZip(container).read("/docs/b.txt"), "alpha");
}

TEST_F(ZipProviderFolders, AMoveThatIsUndoneLeavesTheArchiveAsItWas) {
    const auto hold = zip.writer("/hold");
    zip.moveFolder("/docs", "/x");
    zip.moveFile("/x/a.txt", "/y");
    zip.moveFile("/y", "/x/a.txt");
    zip.moveFolder("/x", "/docs");
    zip.removeFile("/hold");
    hold->close();
    expectArchive(m_old);
}

TEST_F(ZipProviderFolders, CreatedAndWrittenEntriesMoveBeforeTheyAreSaved) {
    const auto hold = zip.writer("/hold");
    zip.createFolder("/new");
    zip.createFolder("/new/inner");
    zip.write("/new/file", "1");
    zip.append("/docs/a.txt", "+");
    zip.moveFolder("/new", "/docs/new");
    zip.moveFolder("/docs", "/papers");
    zip.removeFile("/top");
    hold->close();
    expectArchive({{"papers/a.txt", "alpha+"},
                   {"papers/b.txt", "beta"},
                   {"papers/sub/", ""},
                   {"papers/sub/c.txt", "gamma"},
                   {"papers/new/", ""},
                   {"papers/new/inner/", ""},
                   {"papers/new/file", "1"},
                   {"empty/", ""},
                   {"hold", ""}});
}

TEST_F(ZipProviderFolders, MovingCarriedOverEntriesNeedsNoWorkingFiles) {
    mount(wideArchive(10, 400));
    const auto hold = zip.writer("/hold");
    EXPECT_EQ(temporaryFiles().size(), 1u);
    for (unsigned folder = 0; folder < 10; ++folder) {
        const auto name = wideArchiveFile(folder, 0);
        zip.moveFolder("/" + name.substr(0, name.find('/')), "/moved" + std::to_string(folder));
    }
    EXPECT_EQ(temporaryFiles().size(), 1u);
    EXPECT_EQ(zip.list("/moved3").size(), 400u);
    hold->close();
    EXPECT_EQ(temporaryFiles().size(), 1u);
    zip.removeFile("/hold");
    Contents expected;
    for (unsigned folder = 0; folder < 10; ++folder) {
        for (unsigned file = 0; file < 400; ++file) {
            const auto name = wideArchiveFile(folder, file);
            expected["moved" + std::to_string(folder) + name.substr(name.find('/'))] = name;
        }
    }
    EXPECT_EQ(archiveProblems(archive(), expected), "");
    zip.createFolder("/all");
    zip.moveFolder("/moved7", "/all/seven");
    const auto name = wideArchiveFile(7, 399);
    EXPECT_EQ(zip.read("/all/seven" + name.substr(name.find('/'))), name);
}

TEST_F(ZipProviderFolders, MovedEntriesAreNamedWithoutALeadingSlash) {
    mount({{"/abs/f", "1"}, {"/abs/g", "2"}});
    zip.moveFile("/abs/f", "/abs/h");
    EXPECT_EQ(storedNames(archive()), (std::vector<std::string>{"/abs/g", "abs/h"}));
    zip.moveFolder("/abs", "/rel");
    EXPECT_EQ(storedNames(archive()), (std::vector<std::string>{"rel/g", "rel/h"}));
}

TEST_F(ZipProviderFolders, ANameThatNoArchiveCanHoldIsRefusedAndKeepsNothingElseFromBeingSaved) {
    const auto before = archive();
    const auto refused = [](std::string_view cause, const std::function<void()>& work) {
        return throwsUntranslated<MiniZipException>(cause, work);
    };
    const auto tooLong = "/" + std::string(70'000, 'x');
    constexpr auto length = "its name takes more than 65535 bytes";
    EXPECT_TRUE(refused(length, [&] { zip.write(tooLong, "1"); }));
    EXPECT_TRUE(refused(length, [&] { zip.createFile(tooLong); }));
    EXPECT_TRUE(refused(length, [&] { zip.createFolder(tooLong); }));
    EXPECT_TRUE(refused(length, [&] { zip.moveFile("/docs/a.txt", tooLong); }));
    EXPECT_TRUE(refused(length, [&] { zip.moveFolder("/docs", tooLong); }));
    // A folder's name ends in a slash.
    EXPECT_TRUE(refused(length, [&] { zip.createFolder("/" + std::string(65'535, 'x')); }));
    const auto files = std::make_shared<const FileSystem>(container);
    const ZipEntryPath withNul(std::u16string(u"/a\0b", 4));
    EXPECT_TRUE(refused("cannot store the entry /a\xE2\x90\x80"
                        "b: its name has a NUL in it",
                        [&] { files->createFolder(withNul); }));
    EXPECT_EQ(archive(), before);
    const std::string longest(65'535, 'x');
    zip.write("/" + longest, "1");
    EXPECT_EQ(MountedZip(container).read("/" + longest), "1");
    // Few other programs open a file of that name.
    zip.removeFile("/" + longest);
    expectArchive(m_old);
}

TEST_F(ZipProviderFolders, AFolderIsNotMovedToWhereNamesBelowItWouldBeTooLong) {
    const std::string name(40'000, 'x');
    zip.createFolder("/carried");
    zip.createFile("/carried/" + name);
    zip.createFolder("/made");
    zip.createFolder("/written");
    const auto hold = zip.writer("/hold");
    zip.createFolder("/made/" + name);
    zip.write("/written/" + name, "1");
    const auto tree = zip.tree();
    for (const char* folder : {"/carried", "/made", "/written"}) {
        EXPECT_TRUE(throwsUntranslated<MiniZipException>("its name takes more than 65535 bytes", [&] {
            zip.moveFolder(folder, "/" + std::string(30'000, 'y'));
        }));
    }
    EXPECT_EQ(zip.tree(), tree);
    hold->close();
    EXPECT_EQ(MountedZip(container).tree(), tree);
    zip.removeFile("/carried/" + name);
    zip.removeFolder("/made/" + name);
    zip.removeFile("/written/" + name);
}

TEST_F(ZipProviderFolders, AFileWithEntriesBelowItLosesNoneOfThem) {
    mount({{"x", "file"}, {"x/y", "below"}, {"d/y", "other"}});
    EXPECT_EQ(zip.list(), (std::vector<std::string>{"d/", "x"}));
    EXPECT_TRUE(reports(ErrorCode::AlreadyExists, zip.at("/x"),
                        [&] { zip.moveFolder("/d", "/x", MoveOption::ReplaceExisting); }));
    EXPECT_EQ(zip.read("/x/y"), "below");
    const auto hold = zip.writer("/hold");
    zip.moveFile("/x", "/z");
    EXPECT_EQ(zip.list(), (std::vector<std::string>{"d/", "hold", "x/", "z"}));
    EXPECT_TRUE(reports(ErrorCode::AlreadyExists, zip.at("/x"), [&] { zip.createFolder("/x"); }));
    hold->close();
    expectArchive({{"z", "file"}, {"x/y", "below"}, {"d/y", "other"}, {"hold", ""}});
}

TEST_F(ZipProviderFolders, AFileNamedLikeItsFolderShowsInTheFolderAbove) {
    mount({{"x/x", "inner"}});
    EXPECT_TRUE(zip.isFile("/x"));
    EXPECT_EQ(zip.read("/x/x"), "inner");
    EXPECT_TRUE(throwsUntranslated<std::runtime_error>("Retrieval of original entry name broke",
                                                       [&] { zip.read("/x"); }));
    zip.write("/other", "stays");
    EXPECT_TRUE(throwsUntranslated<std::runtime_error>("Retrieval of original entry name broke", [&] {
        zip.moveFile("/x", "/other", MoveOption::ReplaceExisting);
    }));
    EXPECT_EQ(archiveProblems(archive(), {{"x/x", "inner"}, {"other", "stays"}}), "");
}

TEST_F(ZipProviderFolders, AFolderAndAFileOfItsNameInItAreNeverLost) {
    mount({{"other", "stays"}});
    const auto hold = zip.writer("/hold");
    zip.createFolder("/x");
    zip.write("/x/x", "inner");
    hold->close();
    // The file stands in front of the folder's entry, so x shows as a file.
    const Contents expected{{"other", "stays"}, {"hold", ""}, {"x/", ""}, {"x/x", "inner"}};
    EXPECT_EQ(archiveProblems(archive(), expected), "");
    EXPECT_TRUE(zip.isFile("/x"));
    EXPECT_EQ(zip.read("/x/x"), "inner");
    const auto broke = [](const std::function<void()>& work) {
        return throwsUntranslated<std::runtime_error>("Retrieval of original entry name broke", work);
    };
    EXPECT_TRUE(broke([&] { zip.read("/x"); }));
    EXPECT_TRUE(broke([&] { zip.write("/x", "goes nowhere"); }));
    EXPECT_TRUE(broke([&] { zip.moveFile("/x", "/other", MoveOption::ReplaceExisting); }));
    zip.removeFile("/hold");
    EXPECT_EQ(archiveProblems(archive(), {{"other", "stays"}, {"x/", ""}, {"x/x", "inner"}}), "");
}

} // namespace

} // namespace kx::test
