#include "Tool.h"

using namespace kx::test;

namespace {

class CommandLineTest : public ToolWithPlans {};

const Names commands{"ls", "tree",  "find",  "du",     "stat",  "cat",   "cp",      "write",    "mv",
                     "rm", "mkdir", "touch", "create", "check", "batch", "recover", "providers"};

} // namespace

TEST_F(CommandLineTest, HelpNamesEveryCommandAndEveryCommandHasHelp) {
    const auto help = output({"--help"});
    for (const auto& command : commands) {
        EXPECT_NE(help.find("\n  " + command + " "), std::string::npos) << command;
        const auto own = output({command, "--help"});
        EXPECT_NE(own.find("Usage: kxvfs " + command), std::string::npos) << own;
    }
}

TEST_F(CommandLineTest, TheVersionIsPrinted) {
    EXPECT_EQ(output({"--version"}).find("kxvfs "), 0U);
}

TEST_F(CommandLineTest, WrongUsageHasStatusTwoAndChangesNothing) {
    const std::vector<std::vector<std::string>> lines{{},
                                                      {"nosuch"},
                                                      {"ls", "--nosuch"},
                                                      {"cat"},
                                                      {"cp", "b.txt"},
                                                      {"find", "plans.zip", "--type", "x"},
                                                      {"--json", "cat", "plans.zip/b.txt"},
                                                      {"--json", "cp", "plans.zip/b.txt", "-"},
                                                      {"tree", "-L", "none"}};
    for (const auto& line : lines) {
        const auto result = run(line);
        EXPECT_EQ(result.exitCode, 2) << (line.empty() ? "" : line[0]);
        EXPECT_NE(result.errors, "");
        EXPECT_TRUE(result.output.empty() || result.output == "[]\n") << result.output;
    }
    EXPECT_NE(run({"nosuch"}).errors.find("kxvfs: there is no command \"nosuch\""), std::string::npos);
}

TEST_F(CommandLineTest, GlobalOptionsMayStandBehindTheCommand) {
    EXPECT_EQ(output({"stat", "plans.zip/b.txt", "--json"}), output({"--json", "stat", "plans.zip/b.txt"}));
}

TEST_F(CommandLineTest, AFailureHasItsMessageAndTheOthersAreDone) {
    const auto result = run({"cat", "plans.zip/none", "plans.zip/b.txt", "plans.zip/docs"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.output, "b");
    EXPECT_EQ(result.errors,
              "kxvfs: cat: plans.zip/none: not found\nkxvfs: cat: plans.zip/docs: is a folder\n");
}

TEST_F(CommandLineTest, FailuresInJsonCarryTheErrorCode) {
    const auto document = json({"stat", "plans.zip/none", "plans.zip/b.txt"});
    ASSERT_EQ(document.size(), 2U);
    EXPECT_EQ(document[0]["path"], "plans.zip/none");
    EXPECT_EQ(document[0]["error"]["code"], 4);
    EXPECT_EQ(document[0]["error"]["name"], "not found");
    EXPECT_EQ(document[1]["path"], iri("plans.zip", "b.txt"));
}

TEST_F(CommandLineTest, VerboseRunsLogWhatTheProviderDoes) {
    const auto result = run({"-v", "cat", "plans.zip/b.txt"});
    EXPECT_EQ(result.output, "b");
    EXPECT_NE(result.errors.find("storage::zipprovider::ZipFileSystem"), std::string::npos) << result.errors;
}

TEST_F(CommandLineTest, TheManualPageTellsOfEveryCommandAndIsTheOneInTheDocuments) {
    const auto page = output({"--manual-page"});
    for (const auto& command : commands)
        EXPECT_NE(page.find("\n.SS " + command + " "), std::string::npos) << command;
    std::ifstream file(KX_SOURCE_DIR "/docs/kxvfs.1");
    EXPECT_TRUE(page == std::string(std::istreambuf_iterator<char>(file), {}))
        << "docs/kxvfs.1 is not what kxvfs --manual-page prints";
}

TEST_F(CommandLineTest, TheManualPageIsGoodRoff) {
    if (!programExists("man"))
        GTEST_SKIP() << "man is not installed";
    save("kxvfs.1", output({"--manual-page"}));
    auto with = options();
    with.environment.emplace_back("MANROFFSEQ", "");
    const auto checked = runProcess({"man", "--warnings=all", "-l", "kxvfs.1"}, with);
    EXPECT_EQ(checked.exitCode, 0);
    EXPECT_EQ(checked.errors, "");
}

TEST_F(CommandLineTest, AClosedPipeEndsTheToolSilently) {
    auto with = options();
    std::string many(2'000'000, 'x');
    save("big.zip", simpleArchive({{"big", many}}));
    with.environment.emplace_back("KXVFS", binary());
    const auto result =
        runProcess({"bash", "-c", "\"$KXVFS\" cat big.zip/big | head -c 10; echo ${PIPESTATUS[0]}"}, with);
    EXPECT_EQ(result.output, "xxxxxxxxxx141\n");
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(leftovers(), 0U);
}

TEST_F(CommandLineTest, AFullOutputDeviceIsAFailure) {
    auto with = options();
    with.environment.emplace_back("KXVFS", binary());
    const auto result = runProcess({"bash", "-c", "\"$KXVFS\" ls plans.zip > /dev/full"}, with);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.errors, "kxvfs: ls: cannot write standard output: No space left on device\n");
}

TEST_F(CommandLineTest, NothingTemporaryIsLeft) {
    output({"cat", "plans.zip/b.txt"});
    output({"cp", "-r", "plans.zip", "out"});
    output({"mkdir", "plans.zip/new"});
    failure({"cat", "plans.zip/none"});
    EXPECT_EQ(leftovers(), 0U);
}
