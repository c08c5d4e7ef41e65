#include "LocalFilesTest.h"
#include "OtherProcess.h"
#include "SimulatedCrash.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace kx::test {

namespace fs = std::filesystem;
using storage::fileprovider::recoverFile;

namespace {

constexpr uid_t stranger = 65123;

/// Writes into a file without cutting it.
void patch(const fs::path& path, off_t position, std::string_view bytes) {
    const int file = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
    EXPECT_EQ(::pwrite(file, bytes.data(), bytes.size(), position), static_cast<ssize_t>(bytes.size()));
    EXPECT_EQ(::close(file), 0);
}

std::string padded(std::string_view head, std::size_t size, char filler) {
    std::string bytes(head);
    bytes.resize(size, filler);
    return bytes;
}

/// A file that this user may write, but not read.
class Unreadable final : public storage::fileprovider::SystemCalls {
public:
    explicit Unreadable(fs::path path) : m_path(std::move(path)) {}
    int open(const char* path, int flags, mode_t mode) override {
        if (path == m_path && (flags & O_PATH) == 0 && (flags & O_ACCMODE) != O_WRONLY) {
            errno = EACCES;
            return -1;
        }
        return SystemCalls::open(path, flags, mode);
    }

private:
    const fs::path m_path;
};

} // namespace

/// Other programs change a file after a save of it was interrupted.
class ForeignChange : public LocalFilesTest {
protected:
    ForeignChange() { startWith(m_old); }

    void startWith(const std::string& bytes) {
        for (const auto& name : namesIn(folder())) {
            fs::remove(file(name));
        }
        spit(file("a"), bytes);
        fs::create_hard_link(file("a"), file("link"));
    }

    std::shared_ptr<SimulatedCrash> makeCalls() const {
        return std::make_shared<SimulatedCrash>(std::vector<fs::path>{folder(), stateFolder()});
    }

    void stopBeforeFirst(std::string_view call, const std::string& bytes,
                         const std::shared_ptr<SimulatedCrash>& calls) {
        calls->crashBeforeFirst(call);
        EXPECT_THROW(writeFile(*LocalFileProvider::create(options(calls)), iri("a"), bytes), Exception);
        EXPECT_TRUE(calls->crashed());
    }

    /// Space is reserved, and no byte is overwritten.
    void stopWhenPrepared() { stopBeforeFirst("setAttribute", m_new, makeCalls()); }

    void stopWhileOverwriting(bool attributes = true) {
        const auto calls = makeCalls();
        if (!attributes) {
            calls->withoutAttributes();
        }
        stopBeforeFirst("copyRange", m_new, calls);
    }

    /// Makes "a" anew, as the file of this number.
    bool makeFileWithNumber(ino_t inode) {
        for (int i = 0; i < 500; ++i) {
            const auto path = file("try" + std::to_string(i));
            spit(path, m_old);
            if (statusOf(path).st_ino == inode) {
                fs::rename(path, file("a"));
                return true;
            }
        }
        return false;
    }

    void expectRefusal(const std::string& foreign) {
        for (const auto& operation :
             std::vector<std::function<void()>>{[&] { recover("a"); }, [&] { read("a"); }}) {
            const auto text = expectError(ErrorCode::LocalFileSystem, operation);
            EXPECT_NE(text.find("another program changed the file since"), std::string::npos) << text;
        }
        EXPECT_TRUE(slurp(file("a")) == foreign);
        EXPECT_TRUE(fs::exists(file(".a.kxvfs-journal")));
    }

    const std::string m_old = randomBytes(9000, 1);
    const std::string m_new = randomBytes(20'000, 2);
};

TEST_F(ForeignChange, ASaveThatOnlyReservedSpaceLeavesSizeAndBytesAsTheyWere) {
    stopWhenPrepared();
    EXPECT_EQ(slurp(file("a")), m_old);
    const auto reserved = statusOf(file("a")).st_blocks;
    EXPECT_EQ(recover("a"), RecoveryOutcome::DiscardedUnfinishedSave);
    EXPECT_EQ(slurp(file("a")), m_old);
    EXPECT_LE(statusOf(file("a")).st_blocks, reserved);
    expectNothingLeft();
}

TEST_F(ForeignChange, WhatWasWrittenOverAPreparedFileStays) {
    for (const std::size_t size : {0U, 5000U, 9000U, 15'000U, 20'000U, 50'000U}) {
        startWith(m_old);
        stopWhenPrepared();
        const auto foreign = randomBytes(size, 3);
        spit(file("a"), foreign);
        EXPECT_EQ(read("a"), foreign) << size;
        EXPECT_EQ(recover("a"), RecoveryOutcome::Nothing);
        EXPECT_EQ(slurp(file("a")), foreign) << size;
        expectNothingLeft();
    }
}

TEST_F(ForeignChange, WhatWasAppendedToAPreparedFileStays) {
    stopWhenPrepared();
    const auto foreign = m_old + std::string(3000, '\0');
    spit(file("a"), foreign);
    EXPECT_EQ(recover("a"), RecoveryOutcome::DiscardedUnfinishedSave);
    EXPECT_EQ(slurp(file("a")), foreign);
    expectNothingLeft();
}

TEST_F(ForeignChange, WhatAPowerFailureLeftOfUnsyncedBytesIsCopiedAndFinishedOver) {
    const auto calls = makeCalls();
    stopBeforeFirst("truncate", m_new, calls);
    calls->garble(1);
    calls->losePower([](auto) { return false; });
    const auto garbled = slurp(file("a"));
    ASSERT_TRUE(garbled != m_new && garbled != m_old);
    const auto report = storage::fileprovider::recoverFile(iri("a"), options());
    EXPECT_EQ(report.outcome, RecoveryOutcome::FinishedSave);
    const auto copy = file("a.before-recovery");
    EXPECT_TRUE(std::any_of(report.details.begin(), report.details.end(), [&](const std::string& detail) {
        return detail.find(copy.string() + " is a copy") != std::string::npos;
    }));
    EXPECT_EQ(slurp(copy), garbled);
    EXPECT_EQ(statusOf(copy).st_mode & 0777U, 0600U);
    EXPECT_EQ(slurp(file("a")), m_new);
    expectNothingLeft();
}

TEST_F(ForeignChange, ACopyOfWhatAPowerFailureLeftReplacesNoOther) {
    spit(file("a.before-recovery"), "other");
    const auto calls = makeCalls();
    stopBeforeFirst("truncate", m_new, calls);
    calls->garble(1);
    calls->losePower([](auto) { return false; });
    const auto garbled = slurp(file("a"));
    EXPECT_EQ(recover("a"), RecoveryOutcome::FinishedSave);
    EXPECT_EQ(slurp(file("a.before-recovery")), "other");
    EXPECT_EQ(slurp(file("a.before-recovery1")), garbled);
}

TEST_F(ForeignChange, WhatWasWrittenAfterAPowerFailureIsRefused) {
    const auto calls = makeCalls();
    stopBeforeFirst("truncate", m_new, calls);
    calls->garble(1);
    calls->losePower([](auto) { return false; });
    const auto foreign = randomBytes(12'000, 3);
    spit(file("a"), foreign);
    expectRefusal(foreign);
}

TEST_F(ForeignChange, ZerosThatAreReservedByWritingAreCutOffUnlessSomethingElseStandsThere) {
    for (const bool changed : {false, true}) {
        startWith(m_old);
        const auto calls = makeCalls();
        calls->withoutAllocation();
        stopBeforeFirst("setAttribute", m_new, calls);
        auto present = m_old + std::string(11'000, '\0');
        ASSERT_EQ(slurp(file("a")), present);
        if (changed) {
            patch(file("a"), 12'000, "x");
            present[12'000] = 'x';
        }
        EXPECT_EQ(recover("a"), RecoveryOutcome::DiscardedUnfinishedSave);
        EXPECT_EQ(slurp(file("a")), changed ? present : m_old);
        expectNothingLeft();
    }
}

TEST_F(ForeignChange, WhatWasWrittenOverAHalfOverwrittenFileIsNotOverwritten) {
    for (const bool attributes : {true, false}) {
        for (const std::size_t size : {100U, 9000U, 15'000U, 20'000U, 50'000U}) {
            SCOPED_TRACE(testing::Message() << size << " bytes, attributes " << attributes);
            startWith(m_old);
            stopWhileOverwriting(attributes);
            const auto foreign = randomBytes(size, 3);
            spit(file("a"), foreign);
            expectRefusal(foreign);
        }
    }
}

TEST_F(ForeignChange, AFewBytesThatWereChangedInAHalfOverwrittenFileAreNoticed) {
    for (const off_t position : {100, 3000, 8000}) {
        SCOPED_TRACE(position);
        startWith(m_old);
        stopWhileOverwriting();
        patch(file("a"), position, randomBytes(64, 3));
        expectRefusal(slurp(file("a")));
    }
}

TEST_F(ForeignChange, SmallFilesWithTheSameHeadAreToldApart) {
    const std::string head = "PK\x03\x04\x14";
    for (const std::size_t size : {60U, 300U, 700U}) {
        const auto before = padded(head, size, 'o');
        const auto after = padded(head, size + 40, 'n');
        startWith(before);
        stopBeforeFirst("copyRange", after, makeCalls());
        const auto foreign = padded(head, size + 20, 'f');
        spit(file("a"), foreign);
        expectRefusal(foreign);
    }
}

TEST_F(ForeignChange, LargeFilesAreToldApartBySamples) {
    const auto before = randomBytes(5'000'000, 1);
    const auto after = randomBytes(5'500'000, 2);
    startWith(before);
    stopBeforeFirst("copyRange", after, makeCalls());
    const auto half = slurp(file("a"));
    const auto foreign = randomBytes(5'200'000, 3);
    spit(file("a"), foreign);
    expectRefusal(foreign);
    spit(file("a"), half);
    EXPECT_EQ(recover("a"), RecoveryOutcome::FinishedSave);
    EXPECT_TRUE(slurp(file("a")) == after);
    expectNothingLeft();
}

TEST_F(ForeignChange, AFileThatGotTheNumberOfTheRemovedOneIsNotTakenForIt) {
    for (const bool overwriting : {true, false}) {
        startWith(m_old);
        const auto inode = statusOf(file("a")).st_ino;
        if (overwriting) {
            stopWhileOverwriting(false);
        } else {
            stopWhenPrepared();
        }
        fs::remove(file("a"));
        fs::remove(file("link"));
        if (!makeFileWithNumber(inode)) {
            GTEST_SKIP() << "the file system gives the number of a removed file to none so soon";
        }
        EXPECT_EQ(recover("a"), RecoveryOutcome::LeftAlone);
        EXPECT_EQ(read("a"), m_old);
    }
}

TEST_F(ForeignChange, WhatASaveHasWrittenBehindAFileThatMayNotBeReadIsCutOff) {
    const auto unreadable = options(std::make_shared<Unreadable>(file("a")));
    for (const char* call : {"setAttribute", "rename"}) {
        startWith(m_old);
        const auto calls = makeCalls();
        calls->withoutAllocation();
        // Before the journal says "growing" there is nothing to cut off.
        stopBeforeFirst(call, m_new, calls);
        EXPECT_EQ(slurp(file("a")), call[0] == 's' ? m_old + std::string(11'000, '\0') : m_old);
        EXPECT_EQ(recoverFile(iri("a"), unreadable).outcome, RecoveryOutcome::DiscardedUnfinishedSave);
        EXPECT_EQ(slurp(file("a")), m_old);
        writeFile(*LocalFileProvider::create(unreadable), iri("a"), m_new);
        EXPECT_EQ(slurp(file("link")), m_new);
        expectNothingLeft();
    }
    startWith(m_old);
    const auto calls = makeCalls();
    calls->withoutAllocation();
    stopBeforeFirst("setAttribute", m_new, calls);
    const auto foreign = m_old + std::string(30'000, '\0');
    spit(file("a"), foreign);
    EXPECT_EQ(recoverFile(iri("a"), unreadable).outcome, RecoveryOutcome::DiscardedUnfinishedSave);
    EXPECT_EQ(slurp(file("a")), foreign) << "its size is none that the save gave it";
    expectNothingLeft();
}

TEST_F(ForeignChange, WhoMayOnlyWriteAFileUndoesWhatWasWrittenBehindItAndSavesIt) {
    class WithoutAllocation : public storage::fileprovider::SystemCalls {
    public:
        int allocate(int, off_t, off_t) override {
            errno = EOPNOTSUPP;
            return -1;
        }
    };
    class EndingAtTheMark final : public WithoutAllocation {
    public:
        int setAttribute(int, const char*, const void*, std::size_t, int) override { ::_exit(0); }
    };
    if (!isSuperuser()) {
        GTEST_SKIP() << "only the superuser may act as another user";
    }
    ASSERT_EQ(::chmod(folder().c_str(), 0777), 0);
    ASSERT_EQ(::chmod(file("a").c_str(), 0622), 0);
    const auto saveWith = [&](const std::shared_ptr<storage::fileprovider::SystemCalls>& calls) {
        OtherProcess saver(
            [&]() -> std::string {
                writeFile(*LocalFileProvider::create(options(calls)), iri("a"), m_new);
                return "saved";
            },
            stranger);
        return saver.result();
    };
    EXPECT_EQ(saveWith(std::make_shared<EndingAtTheMark>()), "");
    EXPECT_EQ(slurp(file("a")), m_old + std::string(11'000, '\0'));
    EXPECT_EQ(saveWith(std::make_shared<WithoutAllocation>()), "saved");
    EXPECT_EQ(slurp(file("link")), m_new);
    EXPECT_EQ(workingFilesIn(folder()), std::vector<std::string>());
}

TEST_F(ForeignChange, AFileThatMayNotBeReadIsComparedBySize) {
    const auto unreadable = options(std::make_shared<Unreadable>(file("a")));
    stopWhileOverwriting();
    spit(file("a"), randomBytes(50'000, 3));
    expectError(ErrorCode::LocalFileSystem, [&] { recoverFile(iri("a"), unreadable); });
    spit(file("a"), randomBytes(15'000, 3));
    EXPECT_EQ(recoverFile(iri("a"), unreadable).outcome, RecoveryOutcome::FinishedSave);
    EXPECT_EQ(slurp(file("link")), m_new);
    writeFile(*LocalFileProvider::create(unreadable), iri("a"), m_old);
    EXPECT_EQ(slurp(file("link")), m_old);
    expectNothingLeft();
}

} // namespace kx::test
