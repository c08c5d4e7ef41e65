#include "Tool.h"

using namespace kx::test;

namespace {

class BatchTest : public ToolWithPlans {};

} // namespace

TEST_F(BatchTest, AListOfChangesIsOneWrite) {
    save("notes.md", "notes");
    save("list", "# what to do\n"
                 "mkdir -p new/deep\n"
                 "\n"
                 "cp notes.md new/\n"
                 "mv docs/a.txt new/deep/renamed.txt\n"
                 "rm -r docs/sub   # a comment\n"
                 "touch 'with blank' \"with \\\" quote\" with\\ backslash\n");
    output({"batch", "plans.zip", "list"});
    EXPECT_EQ(names("plans.zip"),
              (Names{"b.txt", "docs/", "empty/", "new/", "new/deep/", "new/deep/renamed.txt", "new/notes.md",
                     "with \" quote", "with backslash", "with blank"}));
}

TEST_F(BatchTest, TheListMayComeFromStandardInput) {
    output({"batch", "plans.zip"}, "rm b.txt\nmkdir x\n");
    output({"batch", "plans.zip", "-"}, "mkdir y");
    EXPECT_EQ(names("plans.zip"), (Names{"docs/", "docs/a.txt", "docs/sub/c.txt", "empty/", "x/", "y/"}));
}

TEST_F(BatchTest, AFailureNamesItsLineAndTheOthersAreMade) {
    save("list", "rm none\nmkdir x\nbogus y\nrm 'open\nmkdir --wrong z\n");
    const auto messages = failure({"batch", "plans.zip", "list"});
    EXPECT_NE(messages.find("kxvfs: batch: list:1: none: not found\n"), std::string::npos) << messages;
    EXPECT_NE(messages.find("kxvfs: batch: list:3: bogus y: there is no change \"bogus\""), std::string::npos)
        << messages;
    EXPECT_NE(messages.find("kxvfs: batch: list:4: rm 'open: a quote is not closed\n"), std::string::npos)
        << messages;
    EXPECT_NE(messages.find("kxvfs: batch: list:5: "), std::string::npos) << messages;
    EXPECT_EQ(names("plans.zip"), (Names{"b.txt", "docs/", "docs/a.txt", "docs/sub/c.txt", "empty/", "x/"}));
}

TEST_F(BatchTest, PathsAreLiteralAndStayInTheArchive) {
    save("b.txt", "local");
    output({"batch", "plans.zip"}, "rm b.txt\nmkdir plans.zip\nmkdir plans.zip/x!\n");
    EXPECT_EQ(load("b.txt"), "local");
    EXPECT_EQ(output({"ls", "-a", "plans.zip", "plans.zip"}), "x!\n");
}

TEST_F(BatchTest, WithoutChangesNothingIsWritten) {
    const auto before = load("plans.zip");
    output({"batch", "plans.zip"}, "# nothing\n\n");
    EXPECT_EQ(load("plans.zip"), before);
}

TEST_F(BatchTest, AMissingListIsAFailure) {
    EXPECT_EQ(failure({"batch", "plans.zip", "none"}), "kxvfs: batch: none: No such file or directory\n");
}

TEST_F(BatchTest, AListThatCannotBeReadIsAFailure) {
    const auto before = load("plans.zip");
    std::filesystem::create_directory(folder.file("folder"));
    EXPECT_EQ(failure({"batch", "plans.zip", "folder"}),
              "kxvfs: batch: folder: cannot read the list of changes\n");
    EXPECT_EQ(load("plans.zip"), before);
}

TEST_F(BatchTest, AMissingArchiveIsAFailure) {
    EXPECT_EQ(failure({"batch", "none.zip"}, "mkdir x\n"),
              "kxvfs: batch: none.zip: there is no such archive\n");
    EXPECT_FALSE(std::filesystem::exists(folder.file("none.zip")));
}

TEST_F(BatchTest, StandardInputIsNotBothTheListAndAFile) {
    save("list", "cp - given\n");
    output({"batch", "plans.zip", "list"}, "text");
    EXPECT_EQ(output({"cat", "plans.zip/given"}), "text");
    EXPECT_EQ(failure({"batch", "plans.zip"}, "cp - other\nmkdir made\n"),
              "kxvfs: batch: -:1: cp - other: standard input holds the list of changes\n");
    EXPECT_EQ(output({"ls", "plans.zip"}), "b.txt\ndocs\nempty\ngiven\nmade\n");
}

TEST_F(BatchTest, ChangesGiveJson) {
    save("list", "mkdir x\nrm none\ntouch x/y\n");
    const auto document = json({"batch", "plans.zip", "list"});
    ASSERT_EQ(document.size(), 3U);
    EXPECT_EQ(document[0]["path"], iri("plans.zip", "x"));
    EXPECT_EQ(document[1]["error"]["code"], 4);
    EXPECT_EQ(document[2]["path"], iri("plans.zip", "x/y"));
    EXPECT_EQ(document[2]["action"], "created");
}
