#include "Tool.h"

#include <cstdlib>
#include <random>

using namespace kx::test;
namespace fs = std::filesystem;

namespace {

/// A run that takes a while, as a line for the shell; "$TOOL" runs the tool until it is terminated.
struct Work {
    const char* name;
    const char* line;
};

std::ostream& operator<<(std::ostream& out, const Work& work) {
    return out << work.name;
}

const Work works[]{
    {"Rebuilding", "$TOOL cp new.txt plain.zip/new.txt"},
    {"CopyingIn", "$TOOL cp big.bin plain.zip/"},
    {"CopyingOut", "$TOOL cp -r plain.zip/ out"},
    {"OverwritingAFileWithTwoNames", "$TOOL cp new.txt linked.zip/new.txt"},
    {"RebuildingBoth", "$TOOL cp new.txt outer.zip/in.zip/new.txt"},
    {"Moving", "$TOOL mv plain.zip/f1 outer.zip/"},
    {"WritingOutput",
     "$TOOL cat plain.zip/f0 plain.zip/f1 | { sleep 0.2; cat > read; }; exit ${PIPESTATUS[0]}"},
    {"WaitingForInput", "exec 3<> pipe; $TOOL write plain.zip/written <&3"},
    {"WaitingForALock", "flock plain.zip $TOOL touch plain.zip/touched"},
};

/// Ends the tool at moments between its start and its end.
class TerminationsTest : public Tool, public ::testing::WithParamInterface<Work> {
protected:
    void SetUp() override {
        Tool::SetUp();
        fs::create_directories(state.path());
        ArchiveBuilder builder;
        for (unsigned i = 0; i < 4; ++i)
            builder.add("f" + std::to_string(i), text(500'000, i));
        m_archive = builder.build();
        m_outer = simpleArchive({{"in.zip", m_archive}, {"t", "1"}});
        save("new.txt", "new");
        save("big.bin", text(3'000'000, 9));
        fs::create_directories(folder.file("out"));
        runProcess({"mkfifo", folder.file("pipe").string()});
        for (const auto* name : {"plain.zip", "linked.zip"})
            save(name, m_archive);
        save("outer.zip", m_outer);
        fs::create_hard_link(folder.file("linked.zip"), folder.file("second name"));
    }

    static std::string text(std::size_t size, unsigned seed) {
        std::string result;
        unsigned at = seed;
        while (result.size() < size)
            result += static_cast<char>("abcdefgh"[(at = at * 1103515245U + 12345U) >> 29]);
        return result;
    }

    /// Does the work, terminated after so many milliseconds.
    ProcessResult terminated(const std::string& signal, int milliseconds) const {
        auto with = options();
        with.environment.emplace_back("XDG_STATE_HOME", state.path().string());
        // AddressSanitizer's search for leaks at the exit may wait for ever when a signal comes in the middle
        // of it; every other test has it.
        const char* sanitizing = std::getenv("ASAN_OPTIONS");
        with.environment.emplace_back("ASAN_OPTIONS",
                                      std::string(sanitizing ? sanitizing : "") + ":detect_leaks=0");
        const auto seconds = std::to_string(milliseconds / 1000.0);
        with.environment.emplace_back("TOOL", "timeout --preserve-status -s " + signal + " " + seconds + " " +
                                                  binary());
        return runProcess({"bash", "-c", GetParam().line}, with);
    }

    /// The archives are whole, and nothing stands beside them that was not there before.
    void expectNothingLeft(const std::string& when) {
        for (const auto* name : {"plain.zip", "linked.zip", "outer.zip"}) {
            const auto& before = std::string_view(name) == "outer.zip" ? m_outer : m_archive;
            if (load(name) == before)
                continue;
            const auto found = names(name).size();
            EXPECT_GE(found, 2U) << name << when;
            EXPECT_LE(found, 5U) << name << when;
        }
        for (const auto& entry : fs::recursive_directory_iterator(folder.path()))
            EXPECT_NE(entry.path().filename().native().front(), '.') << entry.path() << when;
        EXPECT_EQ(leftovers(), 0U) << when;
        for (const auto& entry : fs::recursive_directory_iterator(state.path()))
            EXPECT_FALSE(entry.is_regular_file()) << entry.path() << when;
    }

    void restore() {
        for (const auto* name : {"plain.zip", "linked.zip"})
            save(name, m_archive);
        save("outer.zip", m_outer);
    }

    TemporaryFolder state;

private:
    std::string m_archive;
    std::string m_outer;
};

} // namespace

TEST_P(TerminationsTest, LeaveWholeArchivesAndNothingElseAndSayNothing) {
    if (!programExists("timeout") || !programExists("flock"))
        GTEST_SKIP() << "timeout or flock is not installed";
    // A fixed seed: which moments of the work they hit differs from run to run all the same.
    std::mt19937 random(7);
    int interrupted = 0;
    for (int i = 0; i < KX_TERMINATIONS; ++i) {
        const int milliseconds = static_cast<int>(random() % (i % 2 == 0 ? 40 : 250)) + 1;
        const bool byTerm = i % 3 != 0;
        const auto result = terminated(byTerm ? "TERM" : "INT", milliseconds);
        const auto when = " after " + std::to_string(milliseconds) + " ms";
        const int status = 128 + (byTerm ? 15 : 2);
        EXPECT_TRUE(result.exitCode == 0 || result.exitCode == status) << result.exitCode << when;
        const auto waiting = result.errors.find("waiting for another program");
        EXPECT_TRUE(result.errors.empty() || waiting != std::string::npos) << result.errors << when;
        interrupted += result.exitCode == status ? 1 : 0;
        expectNothingLeft(when);
        if (HasFailure())
            return;
        restore();
    }
    EXPECT_GT(interrupted, 0);
}

INSTANTIATE_TEST_SUITE_P(While, TerminationsTest, ::testing::ValuesIn(works),
                         [](const auto& work) { return std::string(work.param.name); });
