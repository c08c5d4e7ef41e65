#include "Tool.h"

using namespace kx::test;

namespace {

class ProgressTest : public Tool {
protected:
    void SetUp() override {
        if (!programExists("python3"))
            GTEST_SKIP() << "python3 is not installed";
        Tool::SetUp();
        save("new.txt", "new");
    }

    /// Makes big.zip, whose rewriting takes more than a moment.
    std::string saveBig() const {
        // Stored entries are deflated when they are carried over.
        ArchiveBuilder builder;
        for (unsigned i = 0; i < 6; ++i) {
            builder.add("f" + std::to_string(i), text(5'000'000, i));
            builder.last().method = Method::Stored;
        }
        auto archive = builder.build();
        save("big.zip", archive);
        return archive;
    }

    static std::string text(std::size_t size, unsigned seed) {
        std::string result;
        unsigned at = seed;
        while (result.size() < size)
            result += static_cast<char>("abcdefgh"[(at = at * 1103515245U + 12345U) >> 29]);
        return result;
    }

    /// What the tool shows on a terminal of 80 columns.
    std::string shown(const std::string& arguments) const {
        return shownBy("[os.environ['KXVFS']] + '" + arguments + "'.split()");
    }

    /// What a program shows there; its words are given as Python has them.
    std::string shownBy(const std::string& words) const {
        auto with = options();
        with.environment.insert(with.environment.end(), {{"TERM", "xterm"}, {"KXVFS", binary()}});
        const auto result =
            runProcess({"python3", "-c",
                        "import os, pty, sys; sys.exit(os.waitstatus_to_exitcode(pty.spawn(" + words + ")))"},
                       with);
        EXPECT_EQ(result.exitCode, 0) << result.output << result.errors;
        return result.output;
    }

    static bool contains(const std::string& text, const std::string& part) {
        return text.find(part) != std::string::npos;
    }
};

} // namespace

TEST_F(ProgressTest, SavingShowsTheArchiveAndHowFarItIs) {
    saveBig();
    const auto text = shown("cp new.txt big.zip/");
    EXPECT_TRUE(contains(text, "\r\x1b[Ksaving big.zip: reading ")) << text;
    EXPECT_TRUE(contains(text, "%")) << text;
    // The line is taken away in the end.
    EXPECT_EQ(text.rfind("\r\x1b[K"), text.size() - 4) << text;
    EXPECT_EQ(names("big.zip").size(), 7U);
}

TEST_F(ProgressTest, OfANameThatIsTooLongForTheTerminalTheEndIsShown) {
    const auto name = std::string(120, 'n') + "end.zip";
    saveBig();
    std::filesystem::rename(folder.file("big.zip"), folder.file(name));
    const auto text = shown("cp new.txt " + name + "/");
    EXPECT_TRUE(contains(text, "\r\x1b[K…")) << text;
    EXPECT_TRUE(contains(text, "nnnend.zip: reading ")) << text;
    EXPECT_FALSE(contains(text, std::string(80, 'n'))) << text;
}

TEST_F(ProgressTest, SavingAnArchiveInAnArchiveShowsBoth) {
    save("outer.zip", simpleArchive({{"in/big.zip", saveBig()}}));
    const auto text = shown("cp new.txt outer.zip/in/big.zip/");
    EXPECT_TRUE(contains(text, "saving outer.zip/in/big.zip: ")) << text;
    EXPECT_TRUE(contains(text, "saving outer.zip: ")) << text;
    EXPECT_EQ(names("outer.zip"), (Names{"in/big.zip"}));
}

TEST_F(ProgressTest, WhatIsTakenInFromElsewhereShowsThatItIsPacked) {
    save("small.zip", simpleArchive({{"a", "1"}}));
    const auto content = text(40'000'000, 1);
    save("huge.txt", content);
    const auto shownText = shown("cp huge.txt small.zip/");
    EXPECT_TRUE(contains(shownText, "saving small.zip: packing, ")) << shownText;
    EXPECT_EQ(names("small.zip"), (Names{"a", "huge.txt"}));
}

TEST_F(ProgressTest, CopyingStandardInputShowsHowMuchThereWasSoFar) {
    save("small.zip", simpleArchive({{"a", "1"}}));
    const auto text =
        shownBy("['bash', '-c', '(echo one; sleep 1; echo two) | $KXVFS cp - small.zip/new.txt']");
    EXPECT_TRUE(contains(text, "\r\x1b[Knew.txt  0 files, 8")) << text;
    EXPECT_FALSE(contains(text, "%")) << text;
    EXPECT_EQ(names("small.zip"), (Names{"a", "new.txt"}));
}

TEST_F(ProgressTest, CopyingForLongShowsTheFileAndHowMuchOfItIsDone) {
    saveBig();
    std::filesystem::create_directory(folder.file("out"));
    // The copying is stopped again and again, so that it takes long enough on any machine.
    const auto text = shownBy("['bash', '-c', 'stty cols 60; $KXVFS cp -r big.zip out & "
                              "for i in {1..100}; do kill -STOP $! 2>/dev/null || break; sleep 0.2; "
                              "kill -CONT $!; sleep 0.005; done; wait $!']");
    EXPECT_TRUE(contains(text, " [")) << text;
    EXPECT_TRUE(contains(text, "%  ")) << text;
    EXPECT_TRUE(contains(text, " files, ")) << text;
    EXPECT_EQ(load("out/big.zip/f5"), ProgressTest::text(5'000'000, 5));
}

TEST_F(ProgressTest, QuietRunsAndRunsForProgramsShowNone) {
    saveBig();
    EXPECT_EQ(shown("-q cp new.txt big.zip/"), "");
    const auto text = shown("--json rm big.zip/new.txt");
    EXPECT_FALSE(contains(text, "saving")) << text;
    EXPECT_FALSE(contains(text, "\x1b")) << text;
}

TEST_F(ProgressTest, WithoutATerminalNothingIsShown) {
    saveBig();
    EXPECT_EQ(output({"cp", "new.txt", "big.zip/"}), "");
}

TEST_F(ProgressTest, QuickRunsShowNone) {
    save("small.zip", simpleArchive({{"a", "1"}}));
    EXPECT_EQ(shown("cp new.txt small.zip/"), "");
}
