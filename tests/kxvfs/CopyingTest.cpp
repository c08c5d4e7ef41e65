#include "Tool.h"

using namespace kx::test;
namespace fs = std::filesystem;

namespace {

class CopyingTest : public ToolWithPlans {};

} // namespace

TEST_F(CopyingTest, OneFileGoesOutUnderItsNameOrAnother) {
    output({"cp", "plans.zip/docs/a.txt", "."});
    output({"cp", "plans.zip/docs/a.txt", "other.txt"});
    EXPECT_EQ(load("a.txt"), "text\n");
    EXPECT_EQ(load("other.txt"), "text\n");
}

TEST_F(CopyingTest, AnArchiveIsUnpackedIntoANewFolder) {
    output({"cp", "-r", "plans.zip", "out"});
    EXPECT_EQ(load("out/docs/sub/c.txt"), "see\n");
    EXPECT_TRUE(fs::is_directory(folder.file("out/empty")));
}

TEST_F(CopyingTest, AnArchiveIsUnpackedIntoAnExistingFolderUnderItsNameOrRightIntoIt) {
    fs::create_directories(folder.file("out"));
    output({"cp", "-r", "plans.zip/", "out"});
    EXPECT_EQ(load("out/plans.zip/b.txt"), "b");
    output({"cp", "-rT", "plans.zip", "out"});
    EXPECT_EQ(load("out/b.txt"), "b");
    output({"cp", "-r", "plans.zip/docs", "plans.zip/b.txt", "out/"});
    EXPECT_EQ(load("out/docs/a.txt"), "text\n");
}

TEST_F(CopyingTest, WithoutROptionAnArchiveIsAFileAndAFolderIsRefused) {
    output({"cp", "plans.zip", "copy.zip"});
    EXPECT_EQ(load("copy.zip"), load("plans.zip"));
    EXPECT_EQ(failure({"cp", "plans.zip/docs", "out"}),
              "kxvfs: cp: plans.zip/docs: is a folder; -r copies folders\n");
    EXPECT_FALSE(fs::exists(folder.file("out")));
}

TEST_F(CopyingTest, FilesAndFoldersGoIn) {
    save("local/x/y.txt", "why\n");
    save("notes.md", "notes");
    output({"cp", "notes.md", "plans.zip/docs/"});
    output({"cp", "notes.md", "plans.zip"});
    output({"cp", "notes.md", "plans.zip/renamed.md"});
    output({"cp", "-r", "local", "plans.zip"});
    output({"cp", "-r", "local/.", "plans.zip/empty"});
    EXPECT_EQ(names("plans.zip"),
              (Names{"b.txt", "docs/", "docs/a.txt", "docs/notes.md", "docs/sub/c.txt", "empty/", "empty/x/",
                     "empty/x/y.txt", "local/", "local/x/", "local/x/y.txt", "notes.md", "renamed.md"}));
    EXPECT_EQ(output({"cat", "plans.zip/empty/x/y.txt"}), "why\n");
}

TEST_F(CopyingTest, AnArchiveIsReplacedOnlyWhereThatIsMeant) {
    save("notes.md", "notes");
    output({"cp", "-T", "notes.md", "plans.zip"});
    EXPECT_EQ(load("plans.zip"), "notes");
}

TEST_F(CopyingTest, BetweenArchivesAndInsideOne) {
    save("other.zip", simpleArchive({{"old", "1"}}));
    output({"cp", "-r", "plans.zip/docs", "other.zip/"});
    output({"cp", "plans.zip/b.txt", "plans.zip/c.txt"});
    EXPECT_EQ(names("other.zip"), (Names{"docs/", "docs/a.txt", "docs/sub/", "docs/sub/c.txt", "old"}));
    EXPECT_EQ(output({"cat", "plans.zip/c.txt"}), "b");
    output({"cp", "-a", "plans.zip", "b.txt", "docs/d.txt"});
    EXPECT_EQ(output({"cat", "plans.zip/docs/d.txt"}), "b");
    output({"cp", "--from", "plans.zip", "--into", "other.zip", "b.txt", "docs"});
    EXPECT_EQ(output({"cat", "other.zip/docs/b.txt"}), "b");
}

TEST_F(CopyingTest, IntoAndOutOfNestedArchives) {
    save("outer.zip", simpleArchive({{"in.zip", simpleArchive({{"x", "1"}})}}));
    output({"cp", "-r", "plans.zip/docs", "outer.zip/in.zip"});
    EXPECT_EQ(output({"find", "outer.zip/in.zip", "--type", "f"}),
              "outer.zip/in.zip/docs/a.txt\nouter.zip/in.zip/docs/sub/c.txt\nouter.zip/in.zip/x\n");
    output({"cp", "outer.zip/in.zip/docs/a.txt", "a.txt"});
    EXPECT_EQ(load("a.txt"), "text\n");
    EXPECT_EQ(names("outer.zip"), (Names{"in.zip"}));
}

TEST_F(CopyingTest, StandardInputAndOutput) {
    output({"cp", "-", "plans.zip/from-input"}, "given");
    EXPECT_EQ(output({"cp", "plans.zip/from-input", "-"}), "given");
    EXPECT_NE(failure({"cp", "-", "plans.zip/docs"}, "x"), "");
    output({"cp", "-", "local"}, "given");
    EXPECT_EQ(load("local"), "given");
}

TEST_F(CopyingTest, ExistingFilesStayWhereAskedFor) {
    save("b.txt", "mine");
    output({"cp", "-n", "plans.zip/b.txt", "."});
    EXPECT_EQ(load("b.txt"), "mine");
    const auto before = load("plans.zip");
    output({"cp", "-n", "b.txt", "plans.zip"});
    EXPECT_EQ(load("plans.zip"), before);
    output({"cp", "plans.zip/b.txt", "."});
    EXPECT_EQ(load("b.txt"), "b");
}

TEST_F(CopyingTest, TimesAreKeptWhereAskedFor) {
    output({"cp", "-p", "plans.zip/b.txt", "kept"});
    EXPECT_EQ(json({"stat", "kept"})[0]["modified"], "2021-12-31T23:59:58Z");
    output({"cp", "plans.zip/b.txt", "fresh"});
    EXPECT_NE(json({"stat", "fresh"})[0]["modified"], "2021-12-31T23:59:58Z");
}

TEST_F(CopyingTest, SeveralSourcesNeedAFolder) {
    EXPECT_EQ(failure({"cp", "plans.zip/b.txt", "plans.zip/docs/a.txt", "none"}),
              "kxvfs: cp: none: there is no such folder\n");
    EXPECT_EQ(failure({"cp", "plans.zip/b.txt", "none/"}), "kxvfs: cp: none/: there is no such folder\n");
    EXPECT_EQ(failure({"cp", "plans.zip/b.txt", "no/x"}),
              "kxvfs: cp: no/x: the folder for it does not exist\n");
    EXPECT_EQ(failure({"cp", "plans.zip/b.txt", "plans.zip/no/x"}),
              "kxvfs: cp: plans.zip/no/x: the folder for it does not exist\n");
}

TEST_F(CopyingTest, AMissingSourceIsAFailureAndTheOthersAreCopied) {
    fs::create_directories(folder.file("out"));
    EXPECT_EQ(failure({"cp", "plans.zip/none", "plans.zip/b.txt", "out"}),
              "kxvfs: cp: plans.zip/none: not found\n");
    EXPECT_EQ(load("out/b.txt"), "b");
}

TEST_F(CopyingTest, AFileOntoItselfIsRefused) {
    const auto before = load("plans.zip");
    EXPECT_EQ(failure({"cp", "plans.zip/b.txt", "plans.zip//b.txt"}),
              "kxvfs: cp: plans.zip/b.txt: source and destination are the same file\n");
    EXPECT_EQ(output({"cat", "plans.zip/b.txt"}), "b");
    EXPECT_EQ(names("plans.zip").size(), 5U);
}

TEST_F(CopyingTest, NamesThatCouldLeaveTheTargetAreRefused) {
    save("evil.zip", simpleArchive({{"../up", "1"}, {"/etc/abs", "2"}, {"ok/fine", "3"}, {"ok/..", "4"}}));
    const auto message = failure({"cp", "-r", "evil.zip", "out"});
    EXPECT_NE(message.find("kxvfs: cp: evil.zip/..: its name would lead out of the target folder\n"),
              std::string::npos)
        << message;
    EXPECT_NE(message.find("kxvfs: cp: evil.zip/etc/abs: its stored name is absolute\n"), std::string::npos)
        << message;
    EXPECT_EQ(load("out/ok/fine"), "3");
    EXPECT_FALSE(fs::exists(folder.file("up")));
    fs::create_directories(folder.file("into"));
    EXPECT_NE(failure({"cp", "--from", "evil.zip", "ok/..", "into"}).find("would lead out"),
              std::string::npos);
}

TEST_F(CopyingTest, ManyFilesGoInWithOneRewrite) {
    for (int i = 0; i < 300; ++i)
        save("many/f" + std::to_string(i), std::to_string(i));
    output({"cp", "-r", "many", "plans.zip"});
    EXPECT_EQ(names("plans.zip").size(), 5U + 301U);
    EXPECT_EQ(output({"cat", "plans.zip/many/f299"}), "299");
}

TEST_F(CopyingTest, CopiesGiveJson) {
    const auto document = json({"cp", "-r", "plans.zip/docs", "out"});
    ASSERT_EQ(document.size(), 2U);
    EXPECT_EQ(document[0]["path"], folder.iri("out/a.txt").toUtf8());
    EXPECT_EQ(document[0]["type"], "file");
    EXPECT_EQ(document[0]["size"], 5);
    EXPECT_EQ(document[0]["action"], "copied");
    EXPECT_EQ(document[0]["source"], iri("plans.zip", "docs/a.txt"));
}

TEST_F(CopyingTest, StandardInputGoesToStandardOutput) {
    EXPECT_EQ(output({"cp", "-", "-"}, "given"), "given");
    save("local", "l");
    EXPECT_EQ(output({"cp", "local", "-", "plans.zip/b.txt", "-"}, "given"), "lgivenb");
    EXPECT_EQ(failure({"cp", "plans.zip/docs", "-"}), "kxvfs: cp: plans.zip/docs: is a folder\n");
}

TEST_F(CopyingTest, InsideAnArchiveThatIsNamedADashIsAName) {
    output({"cp", "--into", "plans.zip", "plans.zip/b.txt", "-"});
    EXPECT_EQ(output({"cp", "--from", "plans.zip", "-", "out"}), "");
    EXPECT_EQ(load("out"), "b");
}

TEST_F(CopyingTest, AStandardInputThatCannotBeReadIsToldAndChangesNothing) {
    auto with = options();
    with.environment.emplace_back("KXVFS", binary());
    for (const std::string destination : {"plans.zip/new.txt", "plans.zip/b.txt", "local.txt"}) {
        const auto result = runProcess({"bash", "-c", "\"$KXVFS\" write " + destination + " < ."}, with);
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_EQ(result.errors,
                  "kxvfs: write: " + destination + ": cannot read standard input: Is a directory\n");
        EXPECT_EQ(output({"ls", "plans.zip"}), "b.txt\ndocs\nempty\n");
        EXPECT_EQ(output({"cat", "plans.zip/b.txt"}), "b");
    }
    EXPECT_FALSE(std::filesystem::exists(folder.file("local.txt")));
}

TEST_F(CopyingTest, AnEmptyStandardInputMakesAnEmptyFile) {
    output({"cp", "-", "plans.zip/nothing"});
    EXPECT_EQ(output({"cat", "plans.zip/nothing"}), "");
    output({"cp", "-n", "-", "plans.zip/b.txt"}, "given");
    EXPECT_EQ(output({"cat", "plans.zip/b.txt"}), "b");
}

TEST_F(CopyingTest, LocalFilesAndFoldersGoToLocalPlaces) {
    save("from/x/y", "why");
    fs::create_directories(folder.file("to"));
    output({"cp", "-r", "from", "to"});
    output({"cp", "from/x/y", "to/z"});
    EXPECT_EQ(load("to/from/x/y"), "why");
    EXPECT_EQ(load("to/z"), "why");
}

TEST_F(CopyingTest, AFullDiskIsReportedAndTheArchiveStands) {
    const auto before = load("plans.zip");
    auto with = options();
    with.environment.emplace_back("KXVFS", binary());
    const auto result = runProcess(
        {"bash", "-c", "ulimit -f 100; head -c 1000000 /dev/urandom | \"$KXVFS\" write plans.zip/big"}, with);
    EXPECT_NE(result.exitCode, 0);
    EXPECT_EQ(load("plans.zip"), before);
}
