#include "ZipProviderTest.h"

#include <fl/i18n/utf8.h>
#include <foundation/storage/provider/FileAttributes.h>
#include <storage/zipprovider/src/MiniZipException.h>
#include <support/archives/ArchiveBuilder.h>

#include <boost/date_time/posix_time/posix_time.hpp>

#include <stdexcept>

namespace kx::test {

namespace {

using boost::posix_time::time_from_string;
using foundation::storage::provider::FolderAttributes;

std::vector<std::string> namesOf(foundation::storage::provider::IFolderEntryIterator& entries) {
    std::vector<std::string> names;
    for (const auto& name : listNames(entries)) {
        names.push_back(fl::i18n::toUtf8(name));
    }
    return names;
}

class ZipProviderQueries : public ZipProviderTest {};

TEST_F(ZipProviderQueries, TheRootIsAFolderEvenInAnArchiveWithoutEntries) {
    EXPECT_TRUE(zip.isFolder("/"));
    EXPECT_FALSE(zip.isFile("/"));
    mount(ArchiveBuilder().build());
    EXPECT_TRUE(zip.isFolder("/"));
    EXPECT_FALSE(zip.isFile("/"));
    EXPECT_TRUE(zip.list().empty());
}

TEST_F(ZipProviderQueries, EverySpellingOfTheRootIsTheRoot) {
    mount({{"a", "1"}});
    EXPECT_TRUE(zip.isFolder("///"));
    EXPECT_EQ(zip.list("//"), (std::vector<std::string>{"a"}));
    EXPECT_FALSE(zip.isFolder(""));
    EXPECT_FALSE(zip.isFile(""));
    EXPECT_TRUE(reports(ErrorCode::NotFound, zip.at(""), [&] { zip.list(""); }));
}

TEST_F(ZipProviderQueries, IsFileOnAPathWhoseParentIsMissingIsFalseWithoutAnError) {
    mount({{"docs/a.txt", "1"}});
    EXPECT_FALSE(zip.isFile("/nothing/here/a.txt"));
    EXPECT_FALSE(zip.isFolder("/nothing/here"));
}

TEST_F(ZipProviderQueries, AFileIsNoFolderAndAFolderNoFile) {
    mount({{"docs/a.txt", "1"}, {"empty/", ""}});
    EXPECT_TRUE(zip.isFile("/docs/a.txt"));
    EXPECT_FALSE(zip.isFolder("/docs/a.txt"));
    EXPECT_TRUE(zip.isFolder("/docs"));
    EXPECT_TRUE(zip.isFolder("/docs/"));
    EXPECT_FALSE(zip.isFile("/docs"));
    EXPECT_TRUE(zip.isFolder("/empty"));
    EXPECT_FALSE(zip.isFile("/docs/b.txt"));
}

TEST_F(ZipProviderQueries, LetterCaseMatters) {
    mount({{"Docs/A.txt", "1"}});
    EXPECT_TRUE(zip.isFile("/Docs/A.txt"));
    EXPECT_FALSE(zip.isFile("/docs/A.txt"));
    EXPECT_FALSE(zip.isFile("/Docs/a.txt"));
    EXPECT_TRUE(reports(ErrorCode::NotFound, zip.at("/Docs/a.txt"), [&] { zip.read("/Docs/a.txt"); }));
}

TEST_F(ZipProviderQueries, DotAndDotDotAreOrdinaryNames) {
    mount({{"../outside.txt", "1"}, {"./inside.txt", "2"}});
    EXPECT_EQ(zip.list(), (std::vector<std::string>{"./", "../"}));
    EXPECT_EQ(zip.read("/../outside.txt"), "1");
    EXPECT_EQ(zip.read("/./inside.txt"), "2");
    EXPECT_FALSE(zip.isFile("/inside.txt"));
}

TEST_F(ZipProviderQueries, FileAttributesAreSizeTimeAndTheContainersWritability) {
    ArchiveBuilder builder;
    builder.add("docs/a.txt", "four");
    builder.last().modified = DosTime::of(2021, 7, 8, 9, 10, 12);
    mount(builder.build());
    const auto attributes = zip.provider().getFileAttributes(zip.at("/docs/a.txt"));
    EXPECT_EQ(attributes.getSize(), 4u);
    EXPECT_EQ(attributes.getLastModified(), time_from_string("2021-07-08 09:10:12"));
    EXPECT_TRUE(attributes.isWritable());
}

TEST_F(ZipProviderQueries, FolderAttributesAreTheTimeOfItsEntryOrOfTheFirstEntryBelow) {
    ArchiveBuilder builder;
    builder.add("implied/a.txt", "1");
    builder.last().modified = DosTime::of(2001, 1, 1, 1, 1, 2);
    builder.add("implied/b.txt", "2");
    builder.last().modified = DosTime::of(2002, 2, 2, 2, 2, 2);
    builder.add("stored/");
    builder.last().modified = DosTime::of(2003, 3, 3, 3, 3, 4);
    mount(builder.build());
    EXPECT_EQ(zip.provider().getFolderAttributes(zip.at("/implied")).getLastModified(),
              time_from_string("2001-01-01 01:01:02"));
    const FolderAttributes stored = zip.provider().getFolderAttributes(zip.at("/stored"));
    EXPECT_EQ(stored.getLastModified(), time_from_string("2003-03-03 03:03:04"));
    EXPECT_TRUE(stored.isWritable());
}

TEST_F(ZipProviderQueries, TheRootHasTheContainersOwnTimeAlsoInAnEmptyArchive) {
    const auto time = time_from_string("2011-12-13 14:15:16");
    memory->setTime(container.getLocation(), time);
    EXPECT_EQ(zip.provider().getFolderAttributes(zip.at("/")).getLastModified(), time);
    memory->setTime(container.getLocation(), time_from_string("2020-01-01 00:00:00"));
    EXPECT_EQ(zip.provider().getFolderAttributes(zip.at("/")).getLastModified(), time);
}

TEST_F(ZipProviderQueries, AttributesKeepTheWritabilityOfTheMomentWhenTheArchiveWasRead) {
    mount({{"docs/a.txt", "1"}});
    memory->setReadOnly(true);
    EXPECT_FALSE(zip.provider().getFileAttributes(zip.at("/docs/a.txt")).isWritable());
    memory->setReadOnly(false);
    EXPECT_FALSE(zip.provider().getFileAttributes(zip.at("/docs/a.txt")).isWritable());
    EXPECT_FALSE(zip.provider().getFolderAttributes(zip.at("/docs")).isWritable());
    EXPECT_FALSE(zip.provider().getFolderAttributes(zip.at("/")).isWritable());
    zip.createFolder("/made");
    zip.remount();
    EXPECT_TRUE(zip.provider().getFolderAttributes(zip.at("/")).isWritable());
}

TEST_F(ZipProviderQueries, ListingsShowFilesFoldersOrBothInTheOrderOfNames) {
    mount({{"b.txt", ""}, {"a/x", ""}, {"B", ""}, {"a.txt", ""}, {"a-b/", ""}});
    EXPECT_EQ(zip.list(), (std::vector<std::string>{"B", "a/", "a-b/", "a.txt", "b.txt"}));
    EXPECT_EQ(namesOf(*zip.provider().listFiles(zip.at("/"))),
              (std::vector<std::string>{"B", "a.txt", "b.txt"}));
    EXPECT_EQ(namesOf(*zip.provider().listFolders(zip.at("/"))), (std::vector<std::string>{"a", "a-b"}));
}

TEST_F(ZipProviderQueries, ARunningListingShowsTheFolderAsItWas) {
    mount({{"docs/a.txt", "1"}, {"docs/b.txt", "2"}});
    const auto entries = zip.provider().listAll(zip.at("/docs"));
    zip.removeFile("/docs/b.txt");
    zip.write("/docs/c.txt", "3");
    EXPECT_EQ(namesOf(*entries), (std::vector<std::string>{"a.txt", "b.txt"}));
    EXPECT_EQ(zip.list("/docs"), (std::vector<std::string>{"a.txt", "c.txt"}));
}

TEST_F(ZipProviderQueries, AListingOutlivesTheProvider) {
    mount({{"docs/a.txt", "1"}});
    const auto entries = zip.provider().listAll(zip.at("/docs"));
    zip.unmount();
    EXPECT_EQ(namesOf(*entries), (std::vector<std::string>{"a.txt"}));
}

TEST_F(ZipProviderQueries, AReadStreamOutlivesTheProvider) {
    mount({{"docs/a.txt", "text"}});
    const auto stream = zip.reader("/docs/a.txt");
    zip.unmount();
    EXPECT_EQ(readAll(*stream), "text");
}

TEST_F(ZipProviderQueries, APathThatEndsInASlashIsNotOpenedAndTheArchiveNotTouched) {
    mount({{"docs/a.txt", "1"}});
    const auto touched = memory->callCount(ProviderOperation::OpenReadStream);
    EXPECT_TRUE(reports(ErrorCode::NotFound, zip.at("/docs/a.txt/"), [&] { zip.reader("/docs/a.txt/"); }));
    EXPECT_TRUE(reports(ErrorCode::NotFound, zip.at("/"), [&] { zip.reader("/"); }));
    EXPECT_EQ(memory->callCount(ProviderOperation::OpenReadStream), touched);
    EXPECT_EQ(memory->callCount(ProviderOperation::GetFileAttributes), 0u);
}

TEST_F(ZipProviderQueries, OpeningTheEmptyPathIsTheStandardOutOfRangeError) {
    EXPECT_TRUE(throwsUntranslated<std::out_of_range>("invalid string position", [&] { zip.reader(""); }));
}

TEST_F(ZipProviderQueries, QueriesListingsAndReadingWorkOnAReadOnlyContainer) {
    mount({{"docs/a.txt", "text"}});
    memory->setReadOnly(true);
    EXPECT_TRUE(zip.isFile("/docs/a.txt"));
    EXPECT_TRUE(zip.isFolder("/docs"));
    EXPECT_EQ(zip.list("/docs"), (std::vector<std::string>{"a.txt"}));
    EXPECT_EQ(zip.read("/docs/a.txt"), "text");
    EXPECT_EQ(zip.size("/docs/a.txt"), 4u);
    EXPECT_FALSE(zip.provider().getFolderAttributes(zip.at("/docs")).isWritable());
}

TEST_F(ZipProviderQueries, AProviderThatIsNotUsedTouchesNothing) {
    zip.remount();
    zip.unmount();
    EXPECT_EQ(memory->callCount(ProviderOperation::GetFileAttributes), 0u);
    EXPECT_EQ(memory->callCount(ProviderOperation::OpenReadStream), 0u);
    EXPECT_EQ(memory->callCount(ProviderOperation::OpenStream), 0u);
}

TEST_F(ZipProviderQueries, ReadingLeavesNeitherFilesNorOpenStreamsBehind) {
    mount({{"docs/a.txt", "text"}});
    {
        const auto stream = zip.reader("/docs/a.txt");
        EXPECT_EQ(temporaryFiles().size(), 1u);
    }
    EXPECT_TRUE(temporaryFiles().empty());
    EXPECT_EQ(memory->openStreamCount(), 0u);
}

TEST_F(ZipProviderQueries, AnOpenStreamKeepsItsBytesWhenTheArchiveIsRebuilt) {
    mount({{"a.txt", "old"}, {"b.txt", "1"}});
    const auto stream = zip.reader("/a.txt");
    zip.removeFile("/b.txt");
    EXPECT_EQ(readAll(*stream), "old");
    EXPECT_EQ(zip.read("/a.txt"), "old");
}

TEST_F(ZipProviderQueries, AnArchiveWithADateThatDoesNotExistFailsEveryQueryAndIsNeverOverwritten) {
    ArchiveBuilder builder;
    builder.add("undated", "text");
    builder.last().modified = DosTime{};
    const auto bytes = builder.build();
    mount(bytes);
    EXPECT_TRUE(throwsUntranslated<std::out_of_range>("range", [&] { zip.list(); }));
    EXPECT_TRUE(throwsUntranslated<std::out_of_range>("range", [&] { zip.createFolder("/x"); }));
    EXPECT_TRUE(throwsUntranslated<std::out_of_range>("range", [&] { zip.writer("/x"); }));
    zip.unmount();
    EXPECT_EQ(archive(), bytes);
}

} // namespace

} // namespace kx::test
