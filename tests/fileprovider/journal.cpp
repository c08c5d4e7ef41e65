#include <storage/fileprovider/src/Journal.h>
#include <storage/fileprovider/src/WorkingNames.h>
#include <support/contents.h>

#include <gtest/gtest.h>

#include <set>

namespace kx::test {

using namespace storage::fileprovider;

namespace {

Journal sample() {
    Journal journal;
    journal.phase = CopyOverPhase::Overwriting;
    journal.marked = true;
    journal.device = 0x0123456789ABCDEFU;
    journal.inode = 0xFEDCBA9876543210U;
    journal.oldSize = 1;
    journal.newSize = std::uint64_t{1} << 40;
    journal.stagingInode = 77;
    journal.birthTime = 0xA0B0C0D0E0F00000U;
    journal.id = "0123456789abcdef";
    journal.bootId = "";
    journal.target = "/home/me/\xC3\xA4\n\xFF.zip";
    journal.stagingName = ".a.kxvfs-new0";
    journal.oldSamples = std::string("\0\1\2\xFF", 4);
    return journal;
}

} // namespace

TEST(SaveJournal, ReadsBackWhatWasWritten) {
    EXPECT_EQ(decodeJournal(encodeJournal(sample())), sample());
    auto other = sample();
    other.phase = CopyOverPhase::Prepared;
    other.marked = false;
    EXPECT_EQ(decodeJournal(encodeJournal(other)), other);
    EXPECT_NE(encodeJournal(other), encodeJournal(sample()));
}

TEST(SaveJournal, NoticesEveryChangedByte) {
    const auto bytes = encodeJournal(sample());
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        auto damaged = bytes;
        damaged[i] = static_cast<char>(damaged[i] ^ 0x20);
        EXPECT_FALSE(decodeJournal(damaged)) << i;
    }
}

TEST(SaveJournal, NoticesMissingAndAdditionalBytes) {
    const auto bytes = encodeJournal(sample());
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        EXPECT_FALSE(decodeJournal(std::string_view(bytes).substr(0, size))) << size;
    }
    EXPECT_FALSE(decodeJournal(bytes + '\0'));
    EXPECT_FALSE(decodeJournal(std::string(1000, '\0')));
    EXPECT_FALSE(decodeJournal(randomBytes(1000, 1)));
}

TEST(SaveJournal, NamesNoStagingFileInAnotherFolder) {
    for (const auto* name :
         {"", "a", "../.a.kxvfs-new0", "/etc/passwd", "f/.a.kxvfs-new0", ".a.kxvfs-journal"}) {
        auto journal = sample();
        journal.stagingName = name;
        EXPECT_FALSE(decodeJournal(encodeJournal(journal))) << name;
    }
}

TEST(SaveJournal, HasNoNameThatEndsBeforeItsEnd) {
    auto journal = sample();
    journal.stagingName = std::string("passwd\0.kxvfs-new0", 18);
    EXPECT_FALSE(decodeJournal(encodeJournal(journal)));
    journal = sample();
    journal.target += '\0';
    EXPECT_FALSE(decodeJournal(encodeJournal(journal)));
}

TEST(WorkingFileNames, StandBesideTheTarget) {
    const auto names = WorkingNames::beside("/home/me/plans.zip");
    EXPECT_EQ(names.folder(), "/home/me");
    EXPECT_EQ(names.staging(3), "/home/me/.plans.zip.kxvfs-new3");
    EXPECT_EQ(names.journal(), "/home/me/.plans.zip.kxvfs-journal");
    EXPECT_EQ(names.journalDraft(3), "/home/me/.plans.zip.kxvfs-journal3");
    EXPECT_EQ(journalDraftFor(names.staging(12)), names.journalDraft(12));
    EXPECT_EQ(copyDraftFor(names.staging(12)), "/home/me/.plans.zip.kxvfs-copy12");
    EXPECT_EQ(WorkingNames::beside("/a").staging(0), "/.a.kxvfs-new0");
}

TEST(WorkingFileNames, FitTheFileSystemAndDifferForLongNames) {
    std::set<std::string> names;
    for (const auto* end : {"1", "2", "\xC3\xA4"}) {
        for (std::size_t length = 215; length <= 253; ++length) {
            std::string target = "/f/";
            while (target.size() < length + 3) {
                target += "\xC3\xA4";
            }
            const auto name = WorkingNames::beside(target + end).journalDraft(9999);
            EXPECT_LE(name.size() - 3, 255U);
            names.insert(name);
        }
    }
    // Two bytes a character: each length stands for two.
    EXPECT_GE(names.size(), 3U * 19);
}

TEST(WorkingFileNames, AreToldFromTheUsersNames) {
    for (const auto* name : {".a.kxvfs-new0", ".a.kxvfs-new123", ".a.kxvfs-journal", ".a.kxvfs-journal7",
                             ".a.kxvfs-copy0", ".kxvfs-new.kxvfs-new0"}) {
        EXPECT_TRUE(isWorkingName(name)) << name;
    }
    for (const auto* name :
         {"", ".", "a", "a.kxvfs-new0", ".kxvfs-new0", ".a.kxvfs-new", ".a.kxvfs-newx", ".a.kxvfs-new1x",
          ".a.kxvfs-journals", ".a.kxvfs-copy", ".a.kxvfs-", ".a.kxvfs-lock"}) {
        EXPECT_FALSE(isWorkingName(name)) << name;
    }
}

} // namespace kx::test
