#include "ZipProviderTest.h"

#include <storage/zipprovider/src/MiniZipException.h>
#include <support/archives/ArchiveBuilder.h>

#include <boost/date_time/posix_time/posix_time.hpp>

namespace kx::test {

namespace {

using boost::posix_time::seconds;
using boost::posix_time::time_from_string;
using storage::zipprovider::MiniZipException;

/// What could not be read is not overwritten.
class ZipProviderGuards : public ZipProviderTest {
protected:
    /// Every kind of change is refused with this cause, the container stays as it is, and so do the changes.
    void expectEveryChangeRefused(std::string_view cause) {
        const auto before = archive();
        const auto refused = [&](const std::function<void()>& work) {
            return throwsUntranslated<MiniZipException>(cause, work);
        };
        EXPECT_TRUE(refused([&] { zip.createFolder("/made"); }));
        EXPECT_TRUE(refused([&] { zip.write("/written", "1"); }));
        EXPECT_TRUE(refused([&] { zip.createFile("/created"); }));
        EXPECT_TRUE(refused([&] { zip.moveFile("/created", "/moved"); }));
        EXPECT_TRUE(refused([&] { zip.moveFolder("/made", "/shifted"); }));
        EXPECT_TRUE(refused([&] { zip.removeFile("/moved"); }));
        EXPECT_EQ(archive(), before);
        EXPECT_TRUE(zip.isFolder("/shifted"));
        EXPECT_EQ(zip.read("/written"), "1");
        zip.unmount();
        EXPECT_EQ(archive(), before);
        EXPECT_TRUE(temporaryFiles().empty());
        EXPECT_EQ(memory->openStreamCount(), 0u);
    }
};

TEST_F(ZipProviderGuards, AFileThatIsNoArchiveIsNeverOverwritten) {
    mount("This is a letter, not an archive.");
    EXPECT_TRUE(zip.list().empty());
    expectEveryChangeRefused("cannot rebuild mem:///plans.zip: it is not a ZIP archive, or its end record is "
                             "damaged, and overwriting it would lose the rest");
}

TEST_F(ZipProviderGuards, AnArchiveWhoseEndIsMissingIsNeverOverwritten) {
    auto bytes = simpleArchive({{"a", "1"}, {"b", "2"}});
    bytes.resize(bytes.size() - 22);
    mount(bytes);
    expectEveryChangeRefused("cannot rebuild mem:///plans.zip: it is not a ZIP archive");
}

TEST_F(ZipProviderGuards, AnArchiveThatEndsWithinItsEndRecordIsNeverOverwritten) {
    auto bytes = simpleArchive({{"a", "1"}, {"b", "2"}});
    bytes.resize(bytes.size() - 18);
    mount(bytes);
    expectEveryChangeRefused("cannot rebuild mem:///plans.zip: its end record is cut off");
}

TEST_F(ZipProviderGuards, AnArchiveThatEndsWithinItsZip64EndRecordIsNeverOverwritten) {
    // The locator leads into the comment, where the beginning of another Zip64 end record stands.
    ArchiveBuilder builder;
    builder.add("a", "1").add("b", "2");
    builder.end().zip64 = true;
    builder.end().comment = std::string("PK\x06\x06", 4) + std::string(20, '\0');
    ArchiveLayout layout;
    builder.build(&layout);
    builder.end().zip64RecordOffset = layout.endRecord + 22;
    mount(builder.build());
    EXPECT_TRUE(zip.list().empty());
    expectEveryChangeRefused("cannot rebuild mem:///plans.zip: its end record is cut off");
}

TEST_F(ZipProviderGuards, AnEmptyArchiveBehindOtherBytesCanBeWritten) {
    mount("#!/bin/sh\nexit 0\n" + ArchiveBuilder().build());
    zip.write("/a", "1");
    expectArchive({{"a", "1"}});
}

TEST_F(ZipProviderGuards, WhatStandsBehindTheEndRecordOfAnEmptyArchiveIsNeverOverwritten) {
    mount(ArchiveBuilder().build() + "This is a letter.");
    EXPECT_TRUE(zip.list().empty());
    expectEveryChangeRefused("cannot rebuild mem:///plans.zip: it is not a ZIP archive");
}

TEST_F(ZipProviderGuards, AnArchiveWhoseDirectoryBreaksOffIsListedAsFarAsItGoesAndNeverOverwritten) {
    ArchiveBuilder builder;
    builder.add("a", "1").add("b", "2").add("c", "3");
    builder.entry(1).central.signature = 0x12345678;
    mount(builder.build());
    EXPECT_EQ(zip.list(), (std::vector<std::string>{"a"}));
    EXPECT_EQ(zip.read("/a"), "1");
    expectEveryChangeRefused("cannot rebuild mem:///plans.zip: only 1 of the 3 entries could be read");
}

TEST_F(ZipProviderGuards, AnArchiveThatDeclaresMoreEntriesThanItHasIsNeverOverwritten) {
    ArchiveBuilder builder;
    builder.add("a", "1").add("b", "2");
    builder.end().entries = 5;
    builder.end().entriesOnDisk = 5;
    mount(builder.build());
    expectEveryChangeRefused("cannot rebuild mem:///plans.zip: only 2 of the 5 entries could be read");
}

TEST_F(ZipProviderGuards, AnArchiveThatHoldsMoreEntriesThanItDeclaresIsNeverOverwritten) {
    ArchiveBuilder builder;
    builder.add("a", "1").add("b", "2").add("c", "3");
    builder.end().entries = 2;
    builder.end().entriesOnDisk = 2;
    mount(builder.build());
    expectEveryChangeRefused("cannot rebuild mem:///plans.zip: it holds more entries than the 2 that its end "
                             "record declares");
}

TEST_F(ZipProviderGuards, AnEntryWithoutANameKeepsTheArchiveFromBeingOverwritten) {
    ArchiveBuilder builder;
    builder.add("a", "1").add("", "nameless").add("b", "2");
    mount(builder.build());
    EXPECT_EQ(zip.list(), (std::vector<std::string>{"a", "b"}));
    expectEveryChangeRefused("cannot rebuild mem:///plans.zip: only 2 of the 3 entries could be read");
}

TEST_F(ZipProviderGuards, AnEncryptedEntryIsNeverLost) {
    ArchiveBuilder builder;
    builder.add("open", "1").add("vault/secret", "cannot be read");
    builder.last().flags = flag::encrypted;
    mount(builder.build());
    EXPECT_TRUE(
        reports(ErrorCode::ContainerUnreadable, zip.at("/vault/secret"), [&] { zip.read("/vault/secret"); }));
    expectEveryChangeRefused(
        "cannot rebuild mem:///plans.zip: its entry /vault/secret is encrypted and cannot "
        "be carried over");
}

TEST_F(ZipProviderGuards, AnEncryptedEntryCanBeRemovedAndThenAllIsSaved) {
    ArchiveBuilder builder;
    builder.add("open", "1").add("secret", "cannot be read");
    builder.last().flags = flag::encrypted;
    mount(builder.build());
    EXPECT_THROW(zip.createFolder("/made"), MiniZipException);
    zip.removeFile("/secret");
    expectArchive({{"open", "1"}, {"made/", ""}});
}

TEST_F(ZipProviderGuards, AnEntryThatCannotBeReadKeepsTheArchiveFromBeingOverwritten) {
    ArchiveBuilder builder;
    builder.add("good", "1").add("folder/bad", "cannot be had");
    builder.last().rawData = std::string(40, '\xFF');
    mount(builder.build());
    expectEveryChangeRefused(
        "cannot rebuild mem:///plans.zip: its entry /folder/bad cannot be carried over: Error "
        "on return of unzReadCurrentFile in MiniZipEntrySerializer::doRead");
}

TEST_F(ZipProviderGuards, AnEntryOfAnotherMethodKeepsTheArchiveFromBeingOverwritten) {
    ArchiveBuilder builder;
    builder.add("good", "1").add("modern", "");
    builder.last().method = Method::Lzma;
    builder.last().rawData = "some bytes";
    builder.last().uncompressedSize = 100;
    mount(builder.build());
    expectEveryChangeRefused(
        "cannot rebuild mem:///plans.zip: its entry /modern cannot be carried over: Error "
        "while calling unzOpenCurrentFile in MiniZipEntrySerializer::doOpen");
}

TEST_F(ZipProviderGuards, AnEntryWhoseNameIsNotUtf8KeepsTheArchiveFromBeingOverwritten) {
    mount({{"good", "1"}, {"gr\xFC\xDF", "2"}});
    EXPECT_EQ(zip.list().size(), 2u);
    expectEveryChangeRefused(
        "cannot rebuild mem:///plans.zip: its entry /gr\xEF\xBF\xBD\xEF\xBF\xBD cannot be "
        "carried over: Error while calling unzLocateFile in MiniZipEntrySerializer::doOpen");
}

TEST_F(ZipProviderGuards, AnEntryThatYieldsLessThanItDeclaresKeepsTheArchiveFromBeingOverwritten) {
    ArchiveBuilder builder;
    builder.add("short", "four");
    builder.last().central.uncompressedSize = 1000;
    builder.last().local.uncompressedSize = 1000;
    mount(builder.build());
    expectEveryChangeRefused("cannot rebuild mem:///plans.zip: its entry /short cannot be carried over");
}

TEST_F(ZipProviderGuards, WhatAnotherProgramHasChangedMeanwhileIsNotOverwritten) {
    mount({{"a", "1"}});
    zip.list();
    const auto theirs = simpleArchive({{"a", "1"}, {"theirs", "must stay"}});
    replaceContainer(theirs);
    expectEveryChangeRefused(
        "cannot rebuild mem:///plans.zip: another program has changed it since it was read");
    EXPECT_EQ(archive(), theirs);
}

TEST_F(ZipProviderGuards, AChangeOfTheSameSizeIsNoticedByItsTime) {
    mount({{"a", "1"}});
    zip.list();
    replaceContainer(simpleArchive({{"a", "2"}}));
    memory->setTime(container.getLocation(), time_from_string("2030-01-01 00:00:00"));
    EXPECT_TRUE(throwsUntranslated<MiniZipException>("another program has changed it",
                                                     [&] { zip.createFolder("/made"); }));
    EXPECT_EQ(MountedZip(container).read("/a"), "2");
}

TEST_F(ZipProviderGuards, AContainerThatVanishedIsNotMadeAnew) {
    mount({{"a", "1"}});
    zip.list();
    const auto stream = zip.writer("/b");
    memory->removeFile(container.getLocation());
    EXPECT_TRUE(reports(ErrorCode::NotFound, container.getLocation(), [&] { stream->close(); }));
    EXPECT_FALSE(container.exists());
}

TEST_F(ZipProviderGuards, AnotherProgramsChangeBeforeTheFirstUseIsJustRead) {
    mount({{"a", "1"}});
    replaceContainer(simpleArchive({{"b", "2"}}));
    zip.createFolder("/made");
    expectArchive({{"b", "2"}, {"made/", ""}});
}

TEST_F(ZipProviderGuards, ATimeStampAloneIsNoChange) {
    mount({{"a", "1"}});
    zip.list();
    const auto time = container.getFileAttributes().getLastModified();
    memory->setTime(container.getLocation(), time + seconds(1));
    zip.createFolder("/made");
    expectArchive({{"a", "1"}, {"made/", ""}});
    memory->setTime(container.getLocation(), time - seconds(100));
    zip.createFolder("/again");
    expectArchive({{"a", "1"}, {"made/", ""}, {"again/", ""}});
}

TEST_F(ZipProviderGuards, ChangesOfTheProviderItselfAreNoForeignOnes) {
    for (int i = 0; i < 20; ++i) {
        zip.write("/file" + std::to_string(i % 3), std::to_string(i));
        zip.createFolder("/folder" + std::to_string(i));
    }
    EXPECT_EQ(MountedZip(container).tree().size(), 23u);
}

TEST_F(ZipProviderGuards, OfTwoProvidersOverOneContainerTheSecondToSaveIsRefused) {
    mount({{"a", "1"}});
    MountedZip other(container);
    other.list();
    zip.list();
    zip.write("/mine", "1");
    EXPECT_TRUE(throwsUntranslated<MiniZipException>("another program has changed it",
                                                     [&] { other.write("/theirs", "2"); }));
    other.unmount();
    expectArchive({{"a", "1"}, {"mine", "1"}});
}

TEST_F(ZipProviderGuards, AnEmptyContainerIsAnEmptyArchiveThatMayBeWritten) {
    mount(std::string());
    EXPECT_TRUE(zip.list().empty());
    EXPECT_TRUE(zip.isFolder("/"));
    zip.createFolder("/made");
    expectArchive({{"made/", ""}});
}

TEST_F(ZipProviderGuards, BytesInFrontOfTheArchiveAreNoDamage) {
    ArchiveBuilder builder;
    builder.leading("#!/bin/sh\nexit 0\n").add("a", "1");
    mount(builder.build());
    EXPECT_EQ(zip.read("/a"), "1");
    zip.createFolder("/made");
    expectArchive({{"a", "1"}, {"made/", ""}});
}

} // namespace

} // namespace kx::test
