#include "LocalFilesTest.h"
#include "OtherProcess.h"
#include "SimulatedCrash.h"

#include <algorithm>
#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <zlib.h>

namespace kx::test {

namespace fs = std::filesystem;
using storage::fileprovider::recoverFile;

namespace {

constexpr const char* markName = "user.kxvfs.save";
constexpr uid_t stranger = 65123;

constexpr std::size_t phaseInJournal = 12;
constexpr std::size_t markedInJournal = 16;
constexpr std::size_t deviceInJournal = 20;
constexpr std::size_t inodeInJournal = 28;
constexpr std::size_t stagingInodeInJournal = 52;
constexpr std::size_t birthTimeInJournal = 60;
constexpr char growingPhase = 2;
constexpr char overwritingPhase = 3;

std::uint64_t deviceIn(const std::string& journal) {
    std::uint64_t device = 0;
    for (std::size_t i = 0; i < sizeof device; ++i) {
        device |= std::uint64_t{static_cast<unsigned char>(journal.at(deviceInJournal + i))} << (8 * i);
    }
    return device;
}

void putNumber(std::string& journal, std::size_t at, std::uint64_t number) {
    for (std::size_t i = 0; i < sizeof number; ++i) {
        journal.at(at + i) = static_cast<char>(number >> (8 * i) & 0xFFU);
    }
}

/// The plain calls of the system, which another user can make too.
class InOneRun : public storage::fileprovider::SystemCalls {
public:
    explicit InOneRun(storage::fileprovider::SystemRun run) : m_run(std::move(run)) {}
    storage::fileprovider::SystemRun run() override { return m_run; }

private:
    const storage::fileprovider::SystemRun m_run;
};

/// Puts a link to another folder in the place of a folder, before a path that ends so is opened.
class RedirectedFolder final : public InOneRun {
public:
    RedirectedFolder(storage::fileprovider::SystemRun run, fs::path from, fs::path to, std::string opened)
        : InOneRun(std::move(run)), m_from(std::move(from)), m_to(std::move(to)),
          m_opened(std::move(opened)) {}
    ~RedirectedFolder() override {
        if (m_redirected) {
            fs::remove(m_from);
            fs::rename(aside(), m_from);
        }
    }

    int open(const char* path, int flags, mode_t mode) override {
        if (!m_redirected && std::string_view(path).ends_with(m_opened)) {
            m_redirected = true;
            fs::rename(m_from, aside());
            fs::create_symlink(m_to, m_from);
        }
        return SystemCalls::open(path, flags, mode);
    }
    int setOwner(int file, uid_t user, gid_t group) override {
        m_given.push_back(fs::read_symlink("/proc/self/fd/" + std::to_string(file)).parent_path());
        return SystemCalls::setOwner(file, user, group);
    }
    bool redirected() const { return m_redirected; }
    /// The folders in which something was given to a user.
    const std::vector<fs::path>& given() const { return m_given; }

private:
    fs::path aside() const { return m_from.native() + ".aside"; }

    const fs::path m_from;
    const fs::path m_to;
    const std::string m_opened;
    bool m_redirected = false;
    std::vector<fs::path> m_given;
};

/// Gives a journal that was changed the checksum that it has to have.
std::string sealed(std::string journal) {
    journal.resize(journal.size() - 4);
    const auto sum = ::crc32_z(0, reinterpret_cast<const Bytef*>(journal.data()), journal.size());
    for (unsigned shift = 0; shift < 32; shift += 8) {
        journal += static_cast<char>(sum >> shift & 0xFFU);
    }
    return journal;
}

} // namespace

/// The recovery of a file is killed, which a power failure had garbled in the middle of a save; the system
/// runs on, and somebody else recovers the file.
class InterruptedRecovery : public LocalFilesTest {
protected:
    std::shared_ptr<SimulatedCrash> makeCalls() const {
        return std::make_shared<SimulatedCrash>(std::vector<fs::path>{folder(), stateFolder()});
    }

    /// Lets the system stop in the middle of a save, and start again.
    void stopSystem() {
        for (const auto& name : namesIn(folder())) {
            fs::remove(file(name));
        }
        spit(file("a"), m_old);
        fs::create_hard_link(file("a"), file("link"));
        const auto calls = makeCalls();
        calls->crashBeforeFirst("truncate");
        EXPECT_THROW(writeFile(*LocalFileProvider::create(options(calls)), iri("a"), m_new), Exception);
        calls->garble(1);
        calls->losePower([](auto) { return false; });
        m_garbled = slurp(file("a"));
        ASSERT_TRUE(m_garbled != m_old && m_garbled != m_new);
        m_run = makeCalls();
    }

    std::shared_ptr<SimulatedCrash> callsInThisRun() const {
        auto calls = makeCalls();
        calls->goOnIn(*m_run);
        return calls;
    }

    /// Recovers the file until that is killed before the changing call of this number; whether it was.
    bool isKilledBefore(std::uint64_t number) {
        const auto calls = callsInThisRun();
        calls->crashBefore(number);
        try {
            recoverFile(iri("a"), options(calls));
        } catch (const Exception&) {
            EXPECT_TRUE(calls->crashed());
        }
        return calls->crashed();
    }

    void giveToStranger() {
        ASSERT_EQ(::chmod(stateFolder().c_str(), 0755), 0);
        for (const auto& path : {folder(), file("a"), journal(), staging()}) {
            ASSERT_EQ(::chown(path.c_str(), stranger, stranger), 0);
        }
    }

    std::vector<std::string> copies() const {
        auto names = namesIn(folder());
        const auto isOther = [](const auto& name) { return name.find(".before-recovery") == name.npos; };
        names.erase(std::remove_if(names.begin(), names.end(), isOther), names.end());
        return names;
    }

    void expectWholeCopies(std::size_t least) {
        EXPECT_GE(copies().size(), least);
        for (const auto& name : copies()) {
            EXPECT_TRUE(slurp(file(name)) == m_garbled)
                << name << ", " << fs::file_size(file(name)) << " bytes";
        }
    }

    fs::path journal() const { return file(".a.kxvfs-journal"); }
    fs::path staging() const { return file(".a.kxvfs-new0"); }

    const std::string m_old = randomBytes(9000, 1);
    const std::string m_new = randomBytes(40'000, 2);
    std::string m_garbled;
    std::shared_ptr<SimulatedCrash> m_run;
};

TEST_F(InterruptedRecovery, IsGoneOnWithWhereverItWasKilledAndEveryCopyIsWhole) {
    std::uint64_t number = 1;
    ASSERT_NO_FATAL_FAILURE(stopSystem());
    for (; isKilledBefore(number); ++number) {
        SCOPED_TRACE(testing::Message() << "killed before call " << number);
        expectWholeCopies(0);
        const bool unfinished = fs::exists(journal());
        EXPECT_EQ(recoverFile(iri("a"), options(callsInThisRun())).outcome,
                  unfinished ? RecoveryOutcome::FinishedSave : RecoveryOutcome::DiscardedUnfinishedSave);
        EXPECT_TRUE(slurp(file("a")) == m_new);
        expectWholeCopies(1);
        expectNothingLeft();
        ASSERT_NO_FATAL_FAILURE(stopSystem());
    }
    EXPECT_GT(number, 15U);
}

TEST_F(InterruptedRecovery, WhatItHasLeftOfACopyGoesWithTheSave) {
    ASSERT_NO_FATAL_FAILURE(stopSystem());
    // It makes the copy and writes its first half or so.
    ASSERT_TRUE(isKilledBefore(3));
    EXPECT_EQ(copies(), std::vector<std::string>());
    EXPECT_EQ(workingFilesIn(folder()).size(), 3U);
    fs::remove(journal());
    ::removexattr(file("a").c_str(), markName);
    EXPECT_EQ(readFile(*LocalFileProvider::create(options(callsInThisRun())), iri("a")), m_garbled);
    EXPECT_EQ(copies(), std::vector<std::string>());
    expectNothingLeft();
}

TEST_F(InterruptedRecovery, LeavesNothingForOneThatFindsTheFileWhole) {
    bool killed = true;
    for (std::uint64_t number = 1; killed; ++number) {
        SCOPED_TRACE(testing::Message() << "killed before call " << number);
        ASSERT_NO_FATAL_FAILURE(stopSystem());
        killed = isKilledBefore(number);
        // From somebody's backup.
        spit(file("a"), m_new);
        EXPECT_EQ(readFile(*LocalFileProvider::create(options(callsInThisRun())), iri("a")), m_new);
        expectWholeCopies(0);
        expectNothingLeft();
    }
}

TEST_F(InterruptedRecovery, HasRenewedTheJournalForTheDeviceAndTheBytesThatItFound) {
    bool renewed = false;
    ASSERT_NO_FATAL_FAILURE(stopSystem());
    const auto present = deviceIn(slurp(journal()));
    for (std::uint64_t number = 1; !renewed || fs::exists(journal()); ++number) {
        SCOPED_TRACE(testing::Message() << "killed before call " << number);
        ASSERT_NO_FATAL_FAILURE(stopSystem());
        ASSERT_EQ(deviceIn(slurp(journal())), present);
        // A device may have another number after the system has started again.
        auto before = slurp(journal());
        before.at(deviceInJournal) = static_cast<char>(before.at(deviceInJournal) ^ 1);
        before = sealed(before);
        spit(journal(), before);
        ASSERT_NE(deviceIn(before), present);
        isKilledBefore(number);
        if (!fs::exists(journal())) {
            break;
        }
        const auto record = slurp(journal());
        renewed = renewed || record != before;
        if (slurp(file("a")) != m_garbled) {
            EXPECT_TRUE(record != before) << "the file was overwritten first";
            EXPECT_EQ(deviceIn(record), present);
        }
        EXPECT_EQ(recoverFile(iri("a"), options(callsInThisRun())).outcome, RecoveryOutcome::FinishedSave);
        EXPECT_TRUE(slurp(file("link")) == m_new);
        expectNothingLeft();
    }
    EXPECT_TRUE(renewed);
}

TEST_F(InterruptedRecovery, HasRenewedTheJournalForTheRunSoThatWhatSomebodyElseWritesIsKept) {
    ASSERT_NO_FATAL_FAILURE(stopSystem());
    const auto before = slurp(journal());
    const auto times = fs::last_write_time(file("a"));
    std::uint64_t number = 1;
    while (isKilledBefore(number) && slurp(file("a")) == m_garbled) {
        ASSERT_NO_FATAL_FAILURE(stopSystem());
        ++number;
    }
    ASSERT_TRUE(slurp(journal()) != before);
    // A program that gives what it writes a time from before this run of the system.
    const auto foreign = randomBytes(m_garbled.size(), 3);
    spit(file("a"), foreign);
    fs::last_write_time(file("a"), times);
    const auto text =
        expectError(ErrorCode::LocalFileSystem, [&] { recoverFile(iri("a"), options(callsInThisRun())); });
    EXPECT_NE(text.find("another program changed the file since"), std::string::npos) << text;
    EXPECT_TRUE(slurp(file("a")) == foreign);
}

TEST_F(InterruptedRecovery, OfAnotherUsersSaveIsGoneOnWithBySuperuserAndUser) {
    if (!isSuperuser()) {
        GTEST_SKIP() << "only the superuser recovers for others";
    }
    for (const bool user : {false, true}) {
        bool killed = true;
        for (std::uint64_t number = 1; killed; ++number) {
            SCOPED_TRACE(testing::Message() << "killed before call " << number << ", then by user " << user);
            ASSERT_NO_FATAL_FAILURE(stopSystem());
            ASSERT_NO_FATAL_FAILURE(giveToStranger());
            killed = isKilledBefore(number);
            if (fs::exists(journal())) {
                EXPECT_EQ(statusOf(journal()).st_uid, stranger);
            }
            if (user) {
                OtherProcess next(
                    [&]() -> std::string {
                        recoverFile(iri("a"), options(std::make_shared<InOneRun>(m_run->run())));
                        return "recovered";
                    },
                    stranger);
                EXPECT_EQ(next.result(), "recovered");
            } else {
                EXPECT_NO_THROW(recoverFile(iri("a"), options(callsInThisRun())));
            }
            EXPECT_TRUE(slurp(file("a")) == m_new);
            EXPECT_EQ(statusOf(file("a")).st_uid, stranger);
            expectWholeCopies(1);
            expectNothingLeft();
        }
    }
}

TEST_F(InterruptedRecovery, MakesNothingOfTheUsersInAFolderThatHePutsInThePlaceOfHis) {
    if (!isSuperuser()) {
        GTEST_SKIP() << "only the superuser recovers for others";
    }
    const auto folderName = '/' + folder().filename().string();
    for (const std::string& opened : {folderName, std::string("-copy0"), std::string("-journal0")}) {
        SCOPED_TRACE(opened);
        const TemporaryFolder other;
        ASSERT_NO_FATAL_FAILURE(stopSystem());
        ASSERT_NO_FATAL_FAILURE(giveToStranger());
        const auto calls = std::make_shared<RedirectedFolder>(m_run->run(), folder(), other.path(), opened);
        try {
            recoverFile(iri("a"), options(calls));
        } catch (const Exception&) {
            EXPECT_TRUE(calls->redirected());
        }
        ASSERT_TRUE(calls->redirected());
        EXPECT_EQ(calls->given().size(), opened == "-journal0" ? 1U : 0U);
        EXPECT_EQ(std::count(calls->given().begin(), calls->given().end(), other.path()), 0);
        EXPECT_EQ(namesIn(other.path()), std::vector<std::string>());
    }
}

TEST_F(InterruptedRecovery, WritesNoFileThatAUserPutsInThePlaceOfHis) {
    if (!isSuperuser()) {
        GTEST_SKIP() << "only the superuser recovers for others";
    }
    ASSERT_NO_FATAL_FAILURE(stopSystem());
    ASSERT_NO_FATAL_FAILURE(giveToStranger());
    const auto mark = attributeOf(file("a"), markName);
    if (mark.empty()) {
        GTEST_SKIP() << "the file system has no extended attributes";
    }
    const TemporaryFolder other;
    spit(other.path() / "a", m_old);
    auto record = slurp(journal());
    putNumber(record, inodeInJournal, statusOf(other.path() / "a").st_ino);
    putNumber(record, birthTimeInJournal, 0);
    for (const char phase : {growingPhase, overwritingPhase}) {
        SCOPED_TRACE(int{phase});
        const TemporaryFolder elsewhere;
        const auto place = elsewhere.path() / journal().filename();
        const auto contents = elsewhere.path() / staging().filename();
        fs::copy_file(staging(), contents);
        putNumber(record, stagingInodeInJournal, statusOf(contents).st_ino);
        record.at(phaseInJournal) = phase;
        spit(place, sealed(record));
        for (const auto& path : {place, contents}) {
            ASSERT_EQ(::chown(path.c_str(), stranger, stranger), 0);
        }
        const auto changed = mark.substr(0, mark.find(':') + 1) + place.string();
        ASSERT_TRUE(setAttributeOf(file("a"), markName, changed));
        fs::remove(journal());
        const auto victim = phase == growingPhase ? m_old + std::string(50, '\0') : m_old;
        spit(other.path() / "a", victim);
        const auto calls =
            std::make_shared<RedirectedFolder>(m_run->run(), folder(), other.path(), contents.string());
        expectError(ErrorCode::Busy, [&] { recoverFile(iri("a"), options(calls)); });
        EXPECT_TRUE(calls->redirected());
        EXPECT_TRUE(slurp(other.path() / "a") == victim);
        EXPECT_EQ(namesIn(other.path()), std::vector<std::string>{"a"});
    }
}

TEST_F(InterruptedRecovery, OverwritesNothingWhenAnotherOneHasPutItsDraftInThePlaceOfTheCopys) {
    class OtherRecovery final : public InOneRun {
    public:
        using InOneRun::InOneRun;
        int renameToFree(const char* from, const char* to) override {
            if (std::string_view(from).ends_with("-copy0")) {
                fs::remove(from);
                spit(from, "begun");
            }
            return InOneRun::renameToFree(from, to);
        }
    };
    ASSERT_NO_FATAL_FAILURE(stopSystem());
    const auto text = expectError(ErrorCode::LocalFileSystem, [&] {
        recoverFile(iri("a"), options(std::make_shared<OtherRecovery>(m_run->run())));
    });
    EXPECT_NE(text.find("a.before-recovery before that save is finished"), std::string::npos) << text;
    EXPECT_TRUE(slurp(file("a")) == m_garbled);
    EXPECT_EQ(recoverFile(iri("a"), options(callsInThisRun())).outcome, RecoveryOutcome::FinishedSave);
    EXPECT_TRUE(slurp(file("a.before-recovery1")) == m_garbled);
    EXPECT_TRUE(slurp(file("a")) == m_new);
}

TEST_F(InterruptedRecovery, RemovesNoFileThatIsNamedLikeNoJournal) {
    ASSERT_NO_FATAL_FAILURE(stopSystem());
    const auto mark = attributeOf(file("a"), markName);
    if (mark.empty()) {
        GTEST_SKIP() << "the file system has no extended attributes";
    }
    fs::rename(journal(), file(".a"));
    ASSERT_TRUE(
        setAttributeOf(file("a"), markName, mark.substr(0, mark.find(':') + 1) + file(".a").string()));
    const auto text =
        expectError(ErrorCode::LocalFileSystem, [&] { recoverFile(iri("a"), options(callsInThisRun())); });
    EXPECT_NE(text.find("is damaged"), std::string::npos) << text;
    EXPECT_TRUE(fs::exists(file(".a")));
    EXPECT_TRUE(slurp(file("a")) == m_garbled);
}

TEST_F(InterruptedRecovery, MakesNobodysJournalOneThatIsTrusted) {
    if (!isSuperuser()) {
        GTEST_SKIP() << "only the superuser recovers for others";
    }
    ASSERT_NO_FATAL_FAILURE(stopSystem());
    for (const auto& path : {journal(), staging()}) {
        ASSERT_EQ(::chown(path.c_str(), stranger, stranger), 0);
    }
    if (::removexattr(file("a").c_str(), markName) != 0) {
        GTEST_SKIP() << "the file system has no extended attributes";
    }
    auto record = slurp(journal());
    record.at(markedInJournal) = 0;
    spit(journal(), sealed(record));
    expectError(ErrorCode::AccessDenied, [&] { recoverFile(iri("a"), options(callsInThisRun())); });
    EXPECT_EQ(statusOf(journal()).st_uid, stranger);
    EXPECT_TRUE(slurp(file("a")) == m_garbled);
    EXPECT_EQ(copies(), std::vector<std::string>());
}

} // namespace kx::test
