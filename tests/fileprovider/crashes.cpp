#include "LocalFilesTest.h"
#include "SimulatedCrash.h"

#include <algorithm>
#include <iostream>
#include <iterator>
#include <random>

namespace kx::test {

namespace fs = std::filesystem;

namespace {

/// One way in which a save goes.
struct Scenario {
    const char* name;
    std::size_t oldSize;
    std::size_t newSize;
    bool exists = true;
    bool hardLinked = false;
    bool folderWritable = true;
    bool attributes = true;
    bool allocation = true;
    bool append = false;
};

const Scenario scenarios[] = {
    {"NewFile", 0, 9000, false},
    {"ReplacedByRenaming", 9000, 20000},
    {"Appended", 9000, 20000, true, false, true, true, true, true},
    {"OverwrittenAndGrowing", 9000, 20000, true, true},
    {"OverwrittenAndShrinking", 20000, 9000, true, true},
    {"OverwrittenToNothing", 20000, 0, true, true},
    {"OverwrittenFromNothing", 0, 9000, true, true},
    {"OverwrittenWithoutMark", 9000, 20000, true, true, true, false},
    {"OverwrittenWithoutReserving", 9000, 20000, true, true, true, true, false},
    {"StagedInTheStateFolder", 9000, 20000, true, false, false},
    {"StagedInTheStateFolderWithoutMark", 20000, 9000, true, false, false, false},
};

/// Which of what was not synced is lost when the system stops.
enum class Loss {
    /// Only the process was killed.
    Nothing,
    Everything,
    Names,
    Bytes,
    Marks,
    Some,
    /// Names and marks are kept or lost, of bytes anything may have come to stand where they were written.
    Garbled,
};

class CrashTest : public LocalFilesTest, public testing::WithParamInterface<Scenario> {
protected:
    CrashTest() {
        if (GetParam().exists) {
            spit(file("a"), m_old);
        }
        if (GetParam().hardLinked) {
            fs::create_hard_link(file("a"), file("link"));
        }
    }

    std::shared_ptr<SimulatedCrash> makeCalls() const {
        auto calls = std::make_shared<SimulatedCrash>(std::vector<fs::path>{folder(), stateFolder()});
        if (!GetParam().folderWritable) {
            calls->denyCreationIn(folder());
        }
        if (!GetParam().attributes) {
            calls->withoutAttributes();
        }
        if (!GetParam().allocation) {
            calls->withoutAllocation();
        }
        return calls;
    }

    /// Saves m_new; whether the caller was told that it is saved.
    bool saveWith(const std::shared_ptr<SimulatedCrash>& calls) {
        try {
            const auto provider = LocalFileProvider::create(options(calls));
            if (GetParam().append) {
                writeFile(*provider, iri("a"), m_new.substr(m_old.size()), ByteStreamOpenOptions::append());
            } else {
                writeFile(*provider, iri("a"), m_new);
            }
            return true;
        } catch (const Exception&) {
            return false;
        }
    }

    /// Opens the file as the next process would.
    bool openWith(const std::shared_ptr<SimulatedCrash>& calls) {
        try {
            LocalFileProvider::create(options(calls))->openReadStream(iri("a"));
            return true;
        } catch (const Exception&) {
            return false;
        }
    }

    void losePower(SimulatedCrash& calls, Loss loss, unsigned seed) {
        using Unsynced = SimulatedCrash::Unsynced;
        std::mt19937 random(seed);
        if (loss == Loss::Nothing) {
            return;
        }
        if (loss == Loss::Garbled) {
            calls.garble(seed);
        }
        calls.losePower([&](Unsynced what) {
            switch (loss) {
            case Loss::Nothing:
                return false;
            case Loss::Everything:
                return true;
            case Loss::Names:
                return what == Unsynced::NamesOfAFolder;
            case Loss::Bytes:
                return what == Unsynced::BytesOfAFile;
            case Loss::Marks:
                return what == Unsynced::MarkOfAFile;
            case Loss::Some:
                return random() % 2 == 0;
            case Loss::Garbled:
                return what != Unsynced::BytesOfAFile && random() % 2 == 0;
            }
            return false;
        });
    }

    /// The old file or the new one, whole, and still the file that it was.
    void expectOldOrNew(bool mustBeNew) {
        const bool there = fs::exists(file("a"));
        ASSERT_TRUE(there || !GetParam().exists);
        if (there) {
            const auto bytes = read("a");
            ASSERT_TRUE(bytes == m_new || (GetParam().exists && bytes == m_old)) << bytes.size() << " bytes";
            ASSERT_TRUE(!mustBeNew || bytes == m_new);
        }
        ASSERT_TRUE(there || !mustBeNew);
        if (GetParam().hardLinked) {
            ASSERT_EQ(statusOf(file("a")).st_ino, statusOf(file("link")).st_ino);
            ASSERT_EQ(statusOf(file("a")).st_nlink, 2U);
        }
    }

    /// Takes away the copies that recoveries have kept; each holds what the file held before one of them.
    void takeCopies(const std::vector<std::string>& before) {
        for (const auto& where : {folder(), stateFolder()}) {
            for (const auto& name : namesIn(where)) {
                if (name.find(".before-recovery") != std::string::npos) {
                    EXPECT_NE(std::find(before.begin(), before.end(), slurp(where / name)), before.end());
                    fs::remove(where / name);
                    ++m_copies;
                }
            }
        }
    }

    /// Nothing is left, or can be left, for another recovery.
    void expectSettled() {
        static_cast<void>(recover("a"));
        expectNothingLeft();
        ASSERT_EQ(recover("a"), RecoveryOutcome::Nothing);
        ASSERT_EQ(attributeOf(file("a"), "user.kxvfs.save"), "");
    }

    void startAgain() {
        for (const auto& where : {folder(), stateFolder()}) {
            for (const auto& name : namesIn(where)) {
                fs::remove(where / name);
            }
        }
        if (GetParam().exists) {
            spit(file("a"), m_old);
        }
        if (GetParam().hardLinked) {
            fs::create_hard_link(file("a"), file("link"));
        }
    }

    std::string presentBytes() const { return fs::exists(file("a")) ? slurp(file("a")) : std::string(); }

    int m_copies = 0;
    const std::string m_old = randomBytes(GetParam().oldSize, 1);
    const std::string m_new = GetParam().append ? m_old + randomBytes(GetParam().newSize - m_old.size(), 2)
                                                : randomBytes(GetParam().newSize, 2);
};

struct Stop {
    Loss loss;
    unsigned seed;
};

constexpr Stop stops[] = {{Loss::Nothing, 0}, {Loss::Everything, 0}, {Loss::Names, 0},
                          {Loss::Bytes, 0},   {Loss::Marks, 0},      {Loss::Some, 1},
                          {Loss::Some, 2},    {Loss::Garbled, 1},    {Loss::Garbled, 2}};

} // namespace

TEST_P(CrashTest, AStopAtAnyMomentLeavesTheOldOrTheNewFile) {
    const auto whole = makeCalls();
    ASSERT_TRUE(saveWith(whole));
    ASSERT_TRUE(read("a") == m_new);
    ASSERT_GT(whole->count(), 3U);
    for (std::uint64_t moment = 1; moment <= whole->count(); ++moment) {
        for (const auto& stop : stops) {
            SCOPED_TRACE(testing::Message() << "before call " << moment << ", loss "
                                            << static_cast<int>(stop.loss) << ", seed " << stop.seed);
            startAgain();
            const auto calls = makeCalls();
            calls->crashBefore(moment);
            const bool saved = saveWith(calls);
            ASSERT_TRUE(calls->crashed());
            losePower(*calls, stop.loss, stop.seed);
            const auto before = presentBytes();
            m_copies = 0;
            ASSERT_NO_FATAL_FAILURE(expectOldOrNew(saved));
            takeCopies({before});
            ASSERT_LE(m_copies, stop.loss == Loss::Garbled ? 1 : 0);
            ASSERT_NO_FATAL_FAILURE(expectSettled());
            ASSERT_NO_FATAL_FAILURE(expectOldOrNew(saved));
        }
    }
    std::cout << GetParam().name << ": " << whole->count() * std::size(stops) << " crash points" << std::endl;
}

TEST_P(CrashTest, ACompletedSaveSurvivesThePowerFailure) {
    const auto calls = makeCalls();
    ASSERT_TRUE(saveWith(calls));
    losePower(*calls, Loss::Everything, 0);
    ASSERT_NO_FATAL_FAILURE(expectOldOrNew(true));
}

TEST_P(CrashTest, AStopDuringTheRecoveryIsRecoveredToo) {
    const auto whole = makeCalls();
    ASSERT_TRUE(saveWith(whole));
    std::uint64_t points = 0;
    for (std::uint64_t moment = 1; moment <= whole->count(); ++moment) {
        for (const auto loss : {Loss::Nothing, Loss::Everything, Loss::Garbled}) {
            bool recoveryCrashed = true;
            for (std::uint64_t second = 1; recoveryCrashed; ++second, ++points) {
                SCOPED_TRACE(testing::Message() << "before call " << moment << ", then before call " << second
                                                << " of the recovery, loss " << static_cast<int>(loss));
                startAgain();
                const auto calls = makeCalls();
                calls->crashBefore(moment);
                saveWith(calls);
                losePower(*calls, loss, 0);
                const auto before = presentBytes();
                const auto recovering = makeCalls();
                recovering->crashBefore(second);
                openWith(recovering);
                recoveryCrashed = recovering->crashed();
                losePower(*recovering, loss, 0);
                const auto beforeNext = presentBytes();
                ASSERT_NO_FATAL_FAILURE(expectOldOrNew(false));
                takeCopies({before, beforeNext});
                ASSERT_NO_FATAL_FAILURE(expectSettled());
            }
        }
    }
    std::cout << GetParam().name << ": " << points << " crash points of the recovery" << std::endl;
}

INSTANTIATE_TEST_SUITE_P(Saves, CrashTest, testing::ValuesIn(scenarios),
                         [](const auto& tested) { return tested.param.name; });

} // namespace kx::test
