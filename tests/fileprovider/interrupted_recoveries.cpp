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

constexpr std::size_t markedInJournal = 16;
constexpr std::size_t deviceInJournal = 20;

std::uint64_t deviceIn(const std::string& journal) {
    std::uint64_t device = 0;
    for (std::size_t i = 0; i < sizeof device; ++i) {
        device |= std::uint64_t{static_cast<unsigned char>(journal.at(deviceInJournal + i))} << (8 * i);
    }
    return device;
}

/// The plain calls of the system, which another user can make too.
class InOneRun : public storage::fileprovider::SystemCalls {
public:
    explicit InOneRun(storage::fileprovider::SystemRun run) : m_run(std::move(run)) {}
    storage::fileprovider::SystemRun run() override { return m_run; }

private:
    const storage::fileprovider::SystemRun m_run;
};

/// Puts a link to another folder in the place of a folder, before something is opened in it or it itself.
class RedirectedFolder final : public InOneRun {
public:
    RedirectedFolder(storage::fileprovider::SystemRun run, fs::path from, fs::path to, bool early)
        : InOneRun(std::move(run)), m_from(std::move(from)), m_to(std::move(to)), m_early(early) {}
    ~RedirectedFolder() override {
        if (m_redirected) {
            fs::remove(m_from);
            fs::rename(aside(), m_from);
        }
    }

    int open(const char* path, int flags, mode_t mode) override {
        const bool isFolder = (flags & O_PATH) != 0 && (flags & O_DIRECTORY) != 0;
        const bool isDraft = (flags & O_CREAT) != 0 && std::string_view(path).ends_with("journal0");
        if (!m_redirected && (m_early ? isFolder : isDraft)) {
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
    const bool m_early;
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
    for (const bool early : {true, false}) {
        const TemporaryFolder other;
        ASSERT_NO_FATAL_FAILURE(stopSystem());
        ASSERT_NO_FATAL_FAILURE(giveToStranger());
        const auto calls = std::make_shared<RedirectedFolder>(m_run->run(), folder(), other.path(), early);
        try {
            recoverFile(iri("a"), options(calls));
        } catch (const Exception&) {
            EXPECT_TRUE(calls->redirected());
        }
        ASSERT_TRUE(calls->redirected());
        EXPECT_EQ(calls->given().size(), early ? 0U : 1U);
        EXPECT_EQ(std::count(calls->given().begin(), calls->given().end(), other.path()), 0);
        EXPECT_EQ(namesIn(other.path()), std::vector<std::string>()) << early;
    }
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
