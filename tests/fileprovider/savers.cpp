#include "LocalFilesTest.h"
#include "SimulatedCrash.h"

#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <unistd.h>

namespace kx::test {

namespace fs = std::filesystem;
using storage::fileprovider::recoverFile;
using storage::fileprovider::SystemCalls;

namespace {

bool isJournal(std::string_view path) {
    return path.find(".kxvfs-journal") != std::string_view::npos;
}

/// Lets something happen, or fail, at one point of a save.
class Interfering final : public SystemCalls {
public:
    /// The errno that making a draft of a journal fails with.
    int draftError = 0;
    /// The same for putting a journal into a free place, for reserving space and for removing a journal.
    int installError = 0;
    int allocateError = 0;
    int unlinkError = 0;
    /// Called once, when a draft of a journal is made.
    std::function<void()> onDraft;
    /// Called once, when space is reserved.
    std::function<void()> onAllocate;
    /// Called once, before the first file is synced.
    std::function<void()> onSync;

    int open(const char* path, int flags, mode_t mode) override {
        if ((flags & O_CREAT) != 0 && isJournal(path)) {
            callOnce(onDraft);
            if (fails(draftError)) {
                return -1;
            }
        }
        return SystemCalls::open(path, flags, mode);
    }
    int renameToFree(const char* from, const char* to) override {
        return isJournal(to) && fails(installError) ? -1 : SystemCalls::renameToFree(from, to);
    }
    int allocate(int file, off_t position, off_t length) override {
        callOnce(onAllocate);
        return fails(allocateError) ? -1 : SystemCalls::allocate(file, position, length);
    }
    int unlink(const char* path) override {
        return std::string_view(path).ends_with("journal") && fails(unlinkError) ? -1
                                                                                 : SystemCalls::unlink(path);
    }
    int sync(int file) override {
        callOnce(onSync);
        return SystemCalls::sync(file);
    }

private:
    static bool fails(int error) {
        errno = error;
        return error != 0;
    }
    static void callOnce(std::function<void()>& function) {
        if (const auto once = std::exchange(function, nullptr)) {
            once();
        }
    }
};

} // namespace

/// Several save one file, or change it in the middle of a save.
class SeveralSavers : public LocalFilesTest {
protected:
    SeveralSavers() { spit(file("a"), m_old); }

    void link() { fs::create_hard_link(file("a"), file("link")); }

    void stopBeforeFirst(std::string_view call, const std::string& bytes) {
        const auto calls = std::make_shared<SimulatedCrash>(std::vector<fs::path>{folder(), stateFolder()});
        calls->crashBeforeFirst(call);
        EXPECT_THROW(writeFile(*LocalFileProvider::create(options(calls)), iri("a"), bytes), Exception);
        EXPECT_TRUE(calls->crashed());
    }

    std::shared_ptr<LocalFileProvider> providerWith(const std::shared_ptr<Interfering>& calls) {
        return LocalFileProvider::create(options(calls));
    }

    fs::path journal() const { return file(".a.kxvfs-journal"); }

    const std::string m_old = randomBytes(9000, 1);
    const std::string m_new = randomBytes(20'000, 2);
    const std::string m_other = randomBytes(30'000, 3);
};

TEST_F(SeveralSavers, OneThatCannotWriteItsJournalLeavesThatOfTheOtherAlone) {
    link();
    for (const bool draft : {true, false}) {
        const auto calls = std::make_shared<Interfering>();
        (draft ? calls->draftError : calls->installError) = ENOSPC;
        const auto stream = providerWith(calls)->openStream(iri("a"), {});
        writeAll(*stream, m_other);
        stopBeforeFirst("copyRange", m_new);
        const auto half = slurp(file("a"));
        const auto record = slurp(journal());
        expectError(ErrorCode::NoSpace, [&] { stream->close(); });
        EXPECT_EQ(slurp(file("a")), half);
        EXPECT_EQ(slurp(journal()), record);
        EXPECT_EQ(recover("a"), RecoveryOutcome::FinishedSave);
        EXPECT_EQ(slurp(file("a")), m_new);
        expectNothingLeft();
    }
}

TEST_F(SeveralSavers, OneThatBeganBeforeTheOtherEndedDoesNotCutTheFileToItsFormerSize) {
    link();
    const auto calls = std::make_shared<Interfering>();
    calls->onDraft = [&] { save("a", m_other); };
    calls->allocateError = ENOSPC;
    expectError(ErrorCode::NoSpace, [&] { writeFile(*providerWith(calls), iri("a"), m_new); });
    EXPECT_EQ(slurp(file("a")), m_other);
    expectNothingLeft();
    calls->onDraft = [&] { save("a", m_old); };
    calls->allocateError = 0;
    writeFile(*providerWith(calls), iri("a"), m_new);
    EXPECT_EQ(slurp(file("link")), m_new);
    expectNothingLeft();
}

TEST_F(SeveralSavers, OneThatKeepsContentsRefusesWhenAnotherSaveEndsWhileItBegins) {
    link();
    const auto sameSize = randomBytes(m_old.size(), 4);
    for (const bool interrupted : {true, false}) {
        spit(file("a"), m_old);
        const auto& other = interrupted ? m_new : sameSize;
        const auto calls = std::make_shared<Interfering>();
        calls->onDraft = [&] { interrupted ? stopBeforeFirst("copyRange", other) : save("a", other); };
        expectError(ErrorCode::Busy, [&] {
            writeFile(*providerWith(calls), iri("a"), "more", ByteStreamOpenOptions::append());
        });
        EXPECT_EQ(slurp(file("link")), other);
        expectNothingLeft();
    }
}

TEST_F(SeveralSavers, OneThatKeepsContentsGoesOnWhenAnotherSaveIsUndoneWhileItBegins) {
    link();
    const auto calls = std::make_shared<Interfering>();
    calls->onDraft = [&] { stopBeforeFirst("setAttribute", m_new); };
    writeFile(*providerWith(calls), iri("a"), "more", ByteStreamOpenOptions::append());
    EXPECT_EQ(slurp(file("link")), m_old + "more");
    expectNothingLeft();
}

TEST_F(SeveralSavers, OneThroughAnotherHardLinkDoesNotTakeTheFileFromTheOther) {
    if (!setAttributeOf(file("a"), "user.kxvfs.save", "x")) {
        GTEST_SKIP() << "no extended attributes";
    }
    link();
    save("a", m_old);
    ASSERT_EQ(slurp(file("link")), m_old);
    for (const bool early : {true, false}) {
        const auto calls = std::make_shared<Interfering>();
        (early ? calls->onDraft : calls->onAllocate) = [&] { stopBeforeFirst("copyRange", m_new); };
        writeFile(*providerWith(calls), iri("link"), m_other);
        EXPECT_EQ(slurp(file("a")), m_other);
        expectNothingLeft();
        (early ? calls->onDraft : calls->onAllocate) = [&] { stopBeforeFirst("copyRange", m_new); };
        expectError(ErrorCode::Busy, [&] {
            writeFile(*providerWith(calls), iri("link"), "more", ByteStreamOpenOptions::append());
        });
        EXPECT_EQ(slurp(file("a")), m_new);
        expectNothingLeft();
    }
}

TEST_F(SeveralSavers, ASaveThatIsUndoneKeepsTheTimeOfModification) {
    link();
    const auto before = fs::last_write_time(file("a")) - std::chrono::hours(1);
    fs::last_write_time(file("a"), before);
    const auto calls = std::make_shared<Interfering>();
    calls->onAllocate = [&] { calls->draftError = ENOSPC; };
    expectError(ErrorCode::NoSpace, [&] { writeFile(*providerWith(calls), iri("a"), m_new); });
    EXPECT_EQ(fs::last_write_time(file("a")), before);
    stopBeforeFirst("setAttribute", m_new);
    EXPECT_EQ(recover("a"), RecoveryOutcome::DiscardedUnfinishedSave);
    EXPECT_EQ(fs::last_write_time(file("a")), before);
    EXPECT_EQ(slurp(file("a")), m_old);
    EXPECT_LT(statusOf(file("a")).st_blocks * 512, static_cast<off_t>(m_new.size()));
    expectNothingLeft();
}

TEST_F(SeveralSavers, AJournalThatCannotBeRemovedIsNamedAndWaitedForByNobody) {
    link();
    stopBeforeFirst("unlink", m_new);
    const auto calls = std::make_shared<Interfering>();
    calls->unlinkError = EPERM;
    const auto provider = providerWith(calls);
    EXPECT_EQ(readFile(*provider, iri("a")), m_new);
    const auto report = recoverFile(iri("a"), options(calls));
    EXPECT_EQ(report.outcome, RecoveryOutcome::LeftAlone);
    ASSERT_EQ(report.details.size(), 1U);
    EXPECT_NE(report.details[0].find(journal().string()), std::string::npos) << report.details[0];
    const auto text = expectError(ErrorCode::Busy, [&] { writeFile(*provider, iri("a"), m_other); });
    EXPECT_NE(text.find("; remove " + journal().string()), std::string::npos) << text;
    EXPECT_EQ(slurp(file("a")), m_new);
    calls->unlinkError = 0;
    writeFile(*provider, iri("a"), m_other);
    EXPECT_EQ(slurp(file("link")), m_other);
    expectNothingLeft();
}

TEST_F(SeveralSavers, AJournalInTheWayIsToldFromOtherLeftovers) {
    link();
    const auto setAside = [&](bool back) {
        for (const auto& name : namesIn(back ? folder() / "aside" : stateFolder())) {
            fs::rename((back ? folder() / "aside" : stateFolder()) / name,
                       (back ? stateFolder() : folder() / "aside") / name);
        }
    };
    fs::create_directory(file("aside"));
    {
        const auto calls = std::make_shared<SimulatedCrash>(std::vector<fs::path>{stateFolder()});
        calls->denyCreationIn(folder());
        calls->crashBeforeFirst("copyRange");
        EXPECT_THROW(writeFile(*LocalFileProvider::create(options(calls)), iri("a"), m_new), Exception);
    }
    setAside(false);
    for (const auto* name : {"a", "link"}) {
        fs::remove(file(name));
    }
    spit(file("a"), m_old);
    link();
    {
        const auto calls = std::make_shared<SimulatedCrash>(std::vector<fs::path>{stateFolder()});
        calls->crashBeforeFirst("copyRange");
        EXPECT_THROW(writeFile(*LocalFileProvider::create(options(calls)), iri("a"), m_new), Exception);
    }
    setAside(true);
    for (const auto* name : {"a", "link"}) {
        fs::remove(file(name));
    }
    spit(file("a"), "restored");
    link();
    ASSERT_EQ(recoverFile(iri("a"), options()).details.size(), 2U);
    const auto text = expectError(ErrorCode::Busy, [&] { save("a", m_other); });
    EXPECT_NE(text.find("left " + journal().string()), std::string::npos) << text;
    EXPECT_EQ(text.find(stateFolder().string()), std::string::npos) << text;
    EXPECT_EQ(slurp(file("a")), "restored");
}

TEST_F(SeveralSavers, AHardLinkThatIsMadeDuringTheSaveStaysOne) {
    const auto calls = std::make_shared<Interfering>();
    calls->onSync = [&] { link(); };
    writeFile(*providerWith(calls), iri("a"), m_new);
    EXPECT_EQ(statusOf(file("a")).st_ino, statusOf(file("link")).st_ino);
    EXPECT_EQ(slurp(file("link")), m_new);
    expectNothingLeft();
}

TEST_F(SeveralSavers, ASymbolicLinkThatIsPutInThePlaceOfTheFileStays) {
    spit(file("other"), "other");
    const auto calls = std::make_shared<Interfering>();
    calls->onSync = [&] {
        fs::remove(file("a"));
        fs::create_symlink("other", file("a"));
    };
    expectError(ErrorCode::Busy, [&] { writeFile(*providerWith(calls), iri("a"), m_new); });
    EXPECT_EQ(fs::read_symlink(file("a")), "other");
    EXPECT_EQ(slurp(file("other")), "other");
    expectNothingLeft();
}

TEST_F(SeveralSavers, ASymbolicLinkToNothingThatIsPutInThePlaceOfAMissingFileIsNotWaitedFor) {
    const auto stream = files().openStream(iri("missing"), {});
    fs::create_symlink("nowhere", file("missing"));
    expectError(ErrorCode::Busy, [&] { stream->close(); });
    EXPECT_EQ(fs::read_symlink(file("missing")), "nowhere");
}

TEST_F(SeveralSavers, PermissionsThatChangeDuringTheSaveAreKept) {
    const auto calls = std::make_shared<Interfering>();
    calls->onSync = [&] { ASSERT_EQ(::chmod(file("a").c_str(), 0604), 0); };
    writeFile(*providerWith(calls), iri("a"), m_new);
    EXPECT_EQ(slurp(file("a")), m_new);
    EXPECT_EQ(statusOf(file("a")).st_mode & 07777U, 0604U);
}

TEST_F(SeveralSavers, AChangeDuringTheSaveOfKeptContentsIsNotOverwritten) {
    for (const bool linked : {false, true}) {
        if (linked) {
            link();
        }
        const auto calls = std::make_shared<Interfering>();
        calls->onSync = [&] { spit(file("a"), m_other); };
        expectError(ErrorCode::Busy, [&] {
            writeFile(*providerWith(calls), iri("a"), "more", ByteStreamOpenOptions::append());
        });
        EXPECT_EQ(slurp(file("a")), m_other);
        expectNothingLeft();
    }
}

TEST_F(SeveralSavers, AFileMovedOverOneWithAnInterruptedSaveCanBeSaved) {
    using foundation::storage::provider::MoveOption;
    link();
    spit(file("b"), "moved");
    fs::create_hard_link(file("b"), file("link of b"));
    stopBeforeFirst("copyRange", m_new);
    files().moveFile(iri("b"), iri("a"), MoveOption::ReplaceExisting);
    EXPECT_EQ(slurp(file("link")), m_new);
    expectNothingLeft();
    save("a", m_other);
    EXPECT_EQ(slurp(file("link of b")), m_other);
    expectNothingLeft();
}

TEST_F(SeveralSavers, WhatCannotBeMadeWholeCanBeReplaced) {
    using foundation::storage::provider::MoveOption;
    link();
    stopBeforeFirst("copyRange", m_new);
    fs::remove(file(".a.kxvfs-new0"));
    expectError(ErrorCode::LocalFileSystem, [&] { read("a"); });
    spit(file("b"), "moved");
    files().moveFile(iri("b"), iri("a"), MoveOption::ReplaceExisting);
    EXPECT_EQ(read("a"), "moved");
    EXPECT_FALSE(fs::exists(file("b")));
    fs::create_directory(file("f"));
    files().moveFolder(iri("f"), iri("link"), MoveOption::ReplaceExisting);
    EXPECT_TRUE(fs::is_directory(file("link")));
}

TEST_F(SeveralSavers, AFolderMovedOverAFileWithAnInterruptedSaveLeavesTheOtherLinkWhole) {
    using foundation::storage::provider::MoveOption;
    link();
    fs::create_directory(file("f"));
    stopBeforeFirst("copyRange", m_new);
    files().moveFolder(iri("f"), iri("a"), MoveOption::ReplaceExisting);
    EXPECT_TRUE(fs::is_directory(file("a")));
    EXPECT_EQ(slurp(file("link")), m_new);
    expectNothingLeft();
}

} // namespace kx::test
