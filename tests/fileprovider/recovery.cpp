#include "LocalFilesTest.h"
#include "OtherProcess.h"
#include "SimulatedCrash.h"

#include <algorithm>
#include <atomic>
#include <thread>
#include <unistd.h>

namespace kx::test {

namespace fs = std::filesystem;
using storage::fileprovider::recoverFile;

namespace {

constexpr const char* markName = "user.kxvfs.save";
constexpr uid_t stranger = 65123;

} // namespace

class LocalFileRecovery : public LocalFilesTest {
protected:
    LocalFileRecovery() {
        spit(file("a"), m_old);
        fs::create_hard_link(file("a"), file("link"));
    }

    std::shared_ptr<SimulatedCrash> makeCalls() const {
        return std::make_shared<SimulatedCrash>(std::vector<fs::path>{folder(), stateFolder()});
    }

    /// The process that saves stops when half of the first piece is copied.
    void stopWhileOverwriting(bool attributes = true) {
        const auto calls = makeCalls();
        calls->crashBeforeFirst("copyRange");
        if (!attributes) {
            calls->withoutAttributes();
        }
        EXPECT_THROW(writeFile(*LocalFileProvider::create(options(calls)), iri("a"), m_new), Exception);
        EXPECT_NE(slurp(file("a")), m_old);
        EXPECT_NE(slurp(file("a")), m_new);
    }

    fs::path journal() const { return file(".a.kxvfs-journal"); }
    fs::path staging() const { return file(".a.kxvfs-new0"); }

    const std::string m_old = randomBytes(9000, 1);
    const std::string m_new = randomBytes(20'000, 2);
};

TEST_F(LocalFileRecovery, FinishesAlsoInTheOutermostFolder) {
    class EndingInTheCopy final : public storage::fileprovider::SystemCalls {
    public:
        ssize_t copyRange(int from, off_t fromPosition, int to, off_t toPosition, std::size_t) override {
            static_cast<void>(SystemCalls::copyRange(from, fromPosition, to, toPosition, 1000));
            ::_exit(0);
        }
    };
    if (!isSuperuser()) {
        GTEST_SKIP() << "only the superuser may make a folder the outermost one";
    }
    const auto outermost = StorageIRI::fromLocalPath(u"/a");
    OtherProcess saver([&]() -> std::string {
        if (::chroot(folder().c_str()) != 0 || ::chdir("/") != 0) {
            return "no folder can be made the outermost one";
        }
        writeFile(*LocalFileProvider::create(options(std::make_shared<EndingInTheCopy>())), outermost, m_new);
        return "saved";
    });
    EXPECT_EQ(saver.result(), "");
    EXPECT_EQ(slurp(file("a")), m_new.substr(0, 1000) + m_old.substr(1000));
    OtherProcess recoverer([&]() -> std::string {
        if (::chroot(folder().c_str()) != 0 || ::chdir("/") != 0) {
            return "no folder can be made the outermost one";
        }
        return recoverFile(outermost, options()).outcome == RecoveryOutcome::FinishedSave ? "finished"
                                                                                          : "not";
    });
    EXPECT_EQ(recoverer.result(), "finished");
    EXPECT_EQ(slurp(file("link")), m_new);
    expectNothingLeft();
}

TEST_F(LocalFileRecovery, SaysThatNothingWasLeft) {
    const auto report = recoverFile(iri("a"), options());
    EXPECT_EQ(report.outcome, RecoveryOutcome::Nothing);
    EXPECT_TRUE(report.details.empty());
    EXPECT_EQ(recover("missing"), RecoveryOutcome::Nothing);
    EXPECT_EQ(slurp(file("a")), m_old);
}

TEST_F(LocalFileRecovery, FinishesAnInterruptedOverwriting) {
    stopWhileOverwriting();
    const auto report = recoverFile(iri("a"), options());
    EXPECT_EQ(report.outcome, RecoveryOutcome::FinishedSave);
    ASSERT_EQ(report.details.size(), 1U);
    EXPECT_NE(report.details[0].find("20000 bytes"), std::string::npos) << report.details[0];
    EXPECT_EQ(slurp(file("a")), m_new);
    EXPECT_EQ(attributeOf(file("a"), markName), "");
    expectNothingLeft();
    EXPECT_EQ(recover("a"), RecoveryOutcome::Nothing);
}

TEST_F(LocalFileRecovery, OpeningForReadingFinishesIt) {
    stopWhileOverwriting();
    EXPECT_EQ(read("a"), m_new);
    expectNothingLeft();
}

TEST_F(LocalFileRecovery, OpeningForWritingFinishesItBeforeItCopiesWhatIsKept) {
    stopWhileOverwriting();
    save("a", "more", ByteStreamOpenOptions::append());
    EXPECT_EQ(slurp(file("link")), m_new + "more");
    expectNothingLeft();
}

TEST_F(LocalFileRecovery, CopyingTheFileFinishesIt) {
    stopWhileOverwriting();
    files().copyFile(iri("a"), iri("copy"), foundation::storage::provider::MoveOption::FailIfExists);
    EXPECT_EQ(slurp(file("copy")), m_new);
    EXPECT_EQ(slurp(file("a")), m_new);
}

TEST_F(LocalFileRecovery, MovingTheFileFinishesIt) {
    stopWhileOverwriting();
    files().moveFile(iri("a"), iri("moved"), foundation::storage::provider::MoveOption::FailIfExists);
    EXPECT_EQ(slurp(file("moved")), m_new);
    expectNothingLeft();
}

TEST_F(LocalFileRecovery, RemovingOneLinkLeavesTheOtherWhole) {
    stopWhileOverwriting();
    files().removeFile(iri("a"));
    EXPECT_EQ(slurp(file("link")), m_new);
    expectNothingLeft();
}

TEST_F(LocalFileRecovery, IsFoundThroughAnotherLinkInAnotherFolder) {
    if (!setAttributeOf(file("a"), "user.any", "x")) {
        GTEST_SKIP() << "the file system has no extended attributes";
    }
    fs::create_directory(file("f"));
    fs::create_hard_link(file("a"), file("f") / "other name");
    stopWhileOverwriting();
    EXPECT_EQ(readFile(files(), iri("f").child(u"other name")), m_new);
    expectNothingLeft();
}

TEST_F(LocalFileRecovery, IsFoundAfterTheFolderWasRenamed) {
    fs::create_directory(file("f"));
    spit(file("f") / "a", m_old);
    fs::create_hard_link(file("f") / "a", file("f") / "link");
    const auto calls = makeCalls();
    calls->crashBeforeFirst("copyRange");
    EXPECT_THROW(writeFile(*LocalFileProvider::create(options(calls)), iri("f").child(u"a"), m_new),
                 Exception);
    fs::rename(file("f"), file("g"));
    EXPECT_EQ(readFile(files(), iri("g").child(u"a")), m_new);
    EXPECT_EQ(workingFilesIn(file("g")), std::vector<std::string>());
}

TEST_F(LocalFileRecovery, WorksWithoutExtendedAttributes) {
    stopWhileOverwriting(false);
    EXPECT_EQ(attributeOf(file("a"), markName), "");
    EXPECT_EQ(recover("a"), RecoveryOutcome::FinishedSave);
    EXPECT_EQ(slurp(file("a")), m_new);
    expectNothingLeft();
}

TEST_F(LocalFileRecovery, RefusesADamagedJournalAndKeepsEverything) {
    stopWhileOverwriting();
    auto bytes = slurp(journal());
    bytes[40] = static_cast<char>(bytes[40] ^ 1);
    spit(journal(), bytes);
    const auto before = namesIn(folder());
    for (const auto& operation : std::vector<std::function<void()>>{
             [&] { recover("a"); }, [&] { read("a"); }, [&] { save("a", "x"); }, [&] { read("link"); }}) {
        const auto text = expectError(ErrorCode::LocalFileSystem, operation);
        EXPECT_NE(text.find("journal"), std::string::npos) << text;
    }
    EXPECT_EQ(namesIn(folder()), before);
    EXPECT_EQ(slurp(staging()), m_new);
}

TEST_F(LocalFileRecovery, LeavesAloneWhatDoesNotBelongToTheFile) {
    stopWhileOverwriting();
    fs::remove(file("a"));
    spit(file("a"), "a restored backup");
    EXPECT_EQ(recover("a"), RecoveryOutcome::LeftAlone);
    EXPECT_EQ(read("a"), "a restored backup");
    EXPECT_EQ(slurp(staging()), m_new);
    EXPECT_TRUE(fs::exists(journal()));
    save("a", "saved again");
    EXPECT_EQ(slurp(file("a")), "saved again");
    EXPECT_EQ(slurp(staging()), m_new);
}

TEST_F(LocalFileRecovery, TheOtherLinkIsMadeWholeAfterOneWasReplaced) {
    if (!setAttributeOf(file("a"), "user.any", "x")) {
        GTEST_SKIP() << "the file system has no extended attributes";
    }
    stopWhileOverwriting();
    fs::remove(file("a"));
    spit(file("a"), "a restored backup");
    EXPECT_EQ(read("link"), m_new);
    EXPECT_EQ(read("a"), "a restored backup");
    expectNothingLeft();
}

TEST_F(LocalFileRecovery, RefusesAFileThatChangedInSizeSince) {
    stopWhileOverwriting();
    fs::resize_file(file("a"), 50'000);
    const auto text = expectError(ErrorCode::LocalFileSystem, [&] { read("a"); });
    EXPECT_NE(text.find("changed the file since"), std::string::npos) << text;
    EXPECT_EQ(slurp(staging()), m_new);
}

TEST_F(LocalFileRecovery, SaysWhenTheNewContentsAreGone) {
    stopWhileOverwriting();
    fs::remove(staging());
    const auto text = expectError(ErrorCode::LocalFileSystem, [&] { read("a"); });
    EXPECT_NE(text.find(staging().string()), std::string::npos) << text;
}

TEST_F(LocalFileRecovery, SaysWhenTheNewContentsAreNotThoseOfTheJournal) {
    stopWhileOverwriting();
    fs::resize_file(staging(), 15'000);
    const auto text = expectError(ErrorCode::LocalFileSystem, [&] { read("a"); });
    EXPECT_NE(text.find("does not hold the new contents"), std::string::npos) << text;
    EXPECT_TRUE(fs::exists(journal()));
}

TEST_F(LocalFileRecovery, SaysWhenAnotherFileStandsInThePlaceOfTheNewContents) {
    stopWhileOverwriting();
    spit(file("other"), randomBytes(20'000, 3));
    fs::rename(file("other"), staging());
    const auto text = expectError(ErrorCode::LocalFileSystem, [&] { read("a"); });
    EXPECT_NE(text.find("does not hold the new contents"), std::string::npos) << text;
    EXPECT_TRUE(fs::exists(journal()));
}

TEST_F(LocalFileRecovery, SaysWhenTheJournalOfAMarkedFileIsGone) {
    stopWhileOverwriting();
    if (attributeOf(file("a"), markName).empty()) {
        GTEST_SKIP() << "the file system has no extended attributes";
    }
    fs::remove(journal());
    const auto text = expectError(ErrorCode::LocalFileSystem, [&] { read("link"); });
    EXPECT_NE(text.find(journal().string()), std::string::npos) << text;
    EXPECT_NE(text.find(markName), std::string::npos) << text;
}

TEST_F(LocalFileRecovery, AJournalThatNamesTheNewContentsOfAnotherSaveIsDamaged) {
    stopWhileOverwriting(false);
    fs::rename(journal(), file(".b.kxvfs-journal"));
    spit(file("b"), m_old);
    const auto text = expectError(ErrorCode::LocalFileSystem, [&] { read("b"); });
    EXPECT_NE(text.find(".b.kxvfs-journal"), std::string::npos) << text;
    EXPECT_EQ(slurp(staging()), m_new);
}

TEST_F(LocalFileRecovery, AMarkThatNamesNoJournalIsNone) {
    for (const auto& mark : {std::string("id"), std::string("id:journal"),
                             std::string("id:") + journal().string() + '\0' + "x"}) {
        if (!setAttributeOf(file("a"), markName, mark)) {
            GTEST_SKIP() << "the file system has no extended attributes";
        }
        EXPECT_EQ(read("a"), m_old);
    }
}

TEST_F(LocalFileRecovery, UndoingOneSaveLeavesTheMarkOfAnother) {
    const auto calls = makeCalls();
    calls->crashBeforeFirst("setAttribute");
    EXPECT_THROW(writeFile(*LocalFileProvider::create(options(calls)), iri("a"), m_new), Exception);
    const std::string mark = "other:" + file("gone").string();
    if (!setAttributeOf(file("a"), markName, mark)) {
        GTEST_SKIP() << "the file system has no extended attributes";
    }
    expectError(ErrorCode::LocalFileSystem, [&] { read("a"); });
    EXPECT_EQ(attributeOf(file("a"), markName), mark);
}

TEST_F(LocalFileRecovery, WhoMayNotWriteTheFileReadsItsOldContentsBeforeTheyAreTouched) {
    const auto calls = makeCalls();
    calls->crashBeforeFirst("rename");
    EXPECT_THROW(writeFile(*LocalFileProvider::create(options(calls)), iri("a"), m_new), Exception);
    ASSERT_TRUE(calls->crashed());
    if (!isSuperuser() || attributeOf(file("a"), markName).empty()) {
        GTEST_SKIP() << "needs the superuser and a file system with extended attributes";
    }
    ASSERT_EQ(::chmod(folder().c_str(), 0755), 0);
    OtherProcess reader([&] { return read("a"); }, stranger);
    EXPECT_EQ(reader.result(), m_old);
    OtherProcess recoverer(
        [&] {
            const auto report = recoverFile(iri("a"), options());
            return std::string(report.outcome == RecoveryOutcome::LeftAlone ? "left alone: " : "") +
                   report.details.at(0);
        },
        stranger);
    const auto text = recoverer.result();
    EXPECT_EQ(text.find("left alone: "), 0U) << text;
    EXPECT_NE(text.find(journal().string()), std::string::npos) << text;
    EXPECT_EQ(recover("a"), RecoveryOutcome::DiscardedUnfinishedSave);
    EXPECT_EQ(attributeOf(file("a"), markName), "");
    expectNothingLeft();
}

TEST_F(LocalFileRecovery, DoesNotTrustTheJournalOfAStranger) {
    if (!isSuperuser()) {
        GTEST_SKIP() << "only the superuser may give files away";
    }
    stopWhileOverwriting(false);
    const auto half = slurp(file("a"));
    for (const auto& path : {journal(), staging()}) {
        ASSERT_EQ(::chown(path.c_str(), stranger, stranger), 0);
    }
    const auto text = expectError(ErrorCode::AccessDenied, [&] { read("a"); });
    EXPECT_NE(text.find("user 65123"), std::string::npos) << text;
    EXPECT_EQ(slurp(file("a")), half);
}

TEST_F(LocalFileRecovery, TrustsTheJournalOfAStrangerThatTheMarkNames) {
    stopWhileOverwriting();
    if (!isSuperuser() || attributeOf(file("a"), markName).empty()) {
        GTEST_SKIP() << "needs the superuser and a file system with extended attributes";
    }
    for (const auto& path : {journal(), staging()}) {
        ASSERT_EQ(::chown(path.c_str(), stranger, stranger), 0);
    }
    EXPECT_EQ(read("a"), m_new);
    expectNothingLeft();
}

TEST_F(LocalFileRecovery, WhoMayOnlyReadIsToldThatTheFileIsHalfWritten) {
    if (!isSuperuser()) {
        GTEST_SKIP() << "only the superuser may act as another user";
    }
    stopWhileOverwriting();
    ASSERT_EQ(::chmod(folder().c_str(), 0755), 0);
    OtherProcess reader(
        [this]() -> std::string {
            try {
                return read("a").empty() ? "" : "read";
            } catch (const Exception& error) {
                return error.getErrorCode() == ErrorCode::AccessDenied ? "denied" : error.what();
            }
        },
        stranger);
    EXPECT_EQ(reader.result(), "denied");
    EXPECT_EQ(read("a"), m_new);
}

TEST_F(LocalFileRecovery, RemovesWhatADeadProcessStagedAndNothingElse) {
    OtherProcess dead([this]() -> std::string {
        const auto stream = files().openStream(iri("a"), {});
        writeAll(*stream, "never saved");
        ::_exit(0);
    });
    dead.result();
    const auto living = files().openStream(iri("a"), {});
    writeAll(*living, "x");
    spit(file(".b.kxvfs-new0"), "of another file");
    spit(file(".a.kxvfs-new"), "a file of the user's");
    EXPECT_EQ(read("a"), m_old);
    EXPECT_EQ(workingFilesIn(folder()),
              (std::vector<std::string>{".a.kxvfs-new", ".a.kxvfs-new0", ".b.kxvfs-new0"}));
    living->close();
    EXPECT_EQ(slurp(file("a")), "x");
    EXPECT_EQ(workingFilesIn(folder()), (std::vector<std::string>{".a.kxvfs-new", ".b.kxvfs-new0"}));
}

TEST_F(LocalFileRecovery, TellsOfWhatADeadProcessStaged) {
    spit(staging(), "never saved");
    const auto report = recoverFile(iri("a"), options());
    EXPECT_EQ(report.outcome, RecoveryOutcome::DiscardedUnfinishedSave);
    ASSERT_EQ(report.details.size(), 1U);
    EXPECT_NE(report.details[0].find(staging().string()), std::string::npos);
    EXPECT_EQ(slurp(file("a")), m_old);
    expectNothingLeft();
}

TEST_F(LocalFileRecovery, AReaderWaitsForALivingProcessThatOverwrites) {
    const auto ready = file("ready");
    OtherProcess saver([&]() -> std::string {
        // Reports that the overwriting has begun, and dawdles.
        class Slow final : public storage::fileprovider::SystemCalls {
        public:
            explicit Slow(fs::path path) : m_path(std::move(path)) {}
            ssize_t copyRange(int from, off_t fromPosition, int to, off_t toPosition,
                              std::size_t count) override {
                const auto done = SystemCalls::copyRange(from, fromPosition, to, toPosition, count / 2 + 1);
                spit(m_path, "");
                ::usleep(100'000);
                return done;
            }

        private:
            const fs::path m_path;
        };
        writeFile(*LocalFileProvider::create(options(std::make_shared<Slow>(ready))), iri("a"), m_new);
        return "saved";
    });
    while (!fs::exists(ready)) {
        ::usleep(1000);
    }
    EXPECT_EQ(read("a"), m_new);
    EXPECT_EQ(saver.result(), "saved");
    expectNothingLeft();
}

TEST_F(LocalFileRecovery, AHaltedProcessBeginsNoSaveAndTellsOfThoseThatHaveBegun) {
    OtherProcess ending([&]() -> std::string {
        const auto files = LocalFileProvider::create(options());
        const auto begun = files->openStream(iri("a"), {});
        writeFile(*files, iri("done"), m_new);
        const auto halted = storage::fileprovider::haltSaves();
        std::atomic<bool> wentOn = false;
        std::thread([&] {
            const auto stream = files->openStream(iri("b"), {});
            wentOn = true;
        }).detach();
        ::usleep(200'000);
        std::string told = wentOn ? "went on:" : "stopped:";
        for (const auto& location : halted) {
            told += " " + location.toUtf8();
        }
        // The streams are still open when the process ends.
        spit(file("told"), told);
        ::_exit(0);
    });
    ending.result();
    EXPECT_EQ(slurp(file("told")), "stopped: " + iri("a").toUtf8());
    EXPECT_EQ(recoverFile(iri("a"), options()).outcome, RecoveryOutcome::DiscardedUnfinishedSave);
    EXPECT_EQ(slurp(file("a")), m_old);
    EXPECT_EQ(slurp(file("done")), m_new);
    EXPECT_TRUE(workingFilesIn(folder()).empty());
}

} // namespace kx::test
