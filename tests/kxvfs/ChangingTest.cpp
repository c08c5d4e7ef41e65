#include "Tool.h"

#include <support/archives/ExpectedEntries.h>

#include <array>
#include <ctime>

using namespace kx::test;

namespace {

class ChangingTest : public ToolWithPlans {
protected:
    const Names plans{"b.txt", "docs/", "docs/a.txt", "docs/sub/c.txt", "empty/"};

    /// The names of plans.zip with some more and without others.
    Names plansWith(const Names& more, const Names& less = {}) const {
        auto names = plans;
        for (const auto& name : less)
            std::erase(names, name);
        names.insert(names.end(), more.begin(), more.end());
        std::sort(names.begin(), names.end());
        return names;
    }
};

} // namespace

TEST_F(ChangingTest, WriteMakesReplacesAndAppends) {
    output({"write", "plans.zip/docs/new.txt"}, "one\n");
    output({"write", "--append", "plans.zip/docs/new.txt"}, "two\n");
    EXPECT_EQ(output({"cat", "plans.zip/docs/new.txt"}), "one\ntwo\n");
    output({"write", "plans.zip/docs/new.txt"}, "");
    EXPECT_EQ(output({"cat", "plans.zip/docs/new.txt"}), "");
    output({"write", "--append", "-a", "plans.zip", "made"}, "x");
    EXPECT_EQ(names("plans.zip"), plansWith({"docs/new.txt", "made"}));
    output({"write", "local.txt"}, "here");
    EXPECT_EQ(load("local.txt"), "here");
}

TEST_F(ChangingTest, WriteRefusesFoldersAndMissingParents) {
    const auto before = load("plans.zip");
    EXPECT_EQ(failure({"write", "plans.zip/docs"}, "x"), "kxvfs: write: plans.zip/docs: is a folder\n");
    EXPECT_EQ(failure({"write", "plans.zip/no/x"}, "x"),
              "kxvfs: write: plans.zip/no/x: the folder for it does not exist\n");
    EXPECT_EQ(load("plans.zip"), before);
}

TEST_F(ChangingTest, CarriedOverEntriesKeepTheirTimes) {
    constexpr std::array stamp{2020, 2, 3, 4, 5, 6};
    ExpectedEntries expected{{"docs/", {"", stamp}},
                             {"docs/a.txt", {"text\n", stamp}},
                             {"docs/sub/c.txt", {"see\n", stamp}},
                             {"empty/", {"", stamp}},
                             {"b.txt", {"b", std::array{2021, 12, 31, 23, 59, 58}}}};
    for (const char* zone : {"UTC", "Asia/Tokyo", "America/St_Johns"}) {
        auto with = options();
        with.environment.emplace_back("TZ", zone);
        for (const char* number : {"1", "2"}) {
            const auto name = std::string(number) + zone[0];
            EXPECT_EQ(runProcess({binary(), "touch", "plans.zip/" + name}, with).exitCode, 0);
            expected[name];
        }
        EXPECT_EQ(differences(verifyArchive(folder.file("plans.zip")), expected), "") << zone;
    }
}

TEST_F(ChangingTest, AChangedEntryHasTheTimeOfItsChangeInUtcWhateverTheZone) {
    auto with = options();
    with.environment.emplace_back("TZ", "America/St_Johns");
    const auto before = std::time(nullptr);
    EXPECT_EQ(runProcess({binary(), "touch", "plans.zip/b.txt"}, with).exitCode, 0);
    const auto verdict = verifyArchive(folder.file("plans.zip"));
    ASSERT_TRUE(verdict.find("b.txt"));
    const auto& stamp = verdict.find("b.txt")->modified;
    std::tm parts{};
    parts.tm_year = stamp[0] - 1900;
    parts.tm_mon = stamp[1] - 1;
    parts.tm_mday = stamp[2];
    parts.tm_hour = stamp[3];
    parts.tm_min = stamp[4];
    parts.tm_sec = stamp[5];
    const auto changed = ::timegm(&parts);
    // Archives store times in steps of two seconds.
    EXPECT_GE(changed, before - 2);
    EXPECT_LE(changed, std::time(nullptr));
}

TEST_F(ChangingTest, RmRemovesFilesAndWithROptionFolders) {
    output({"rm", "plans.zip/b.txt"});
    EXPECT_EQ(names("plans.zip"), plansWith({}, {"b.txt"}));
    EXPECT_EQ(failure({"rm", "plans.zip/docs"}),
              "kxvfs: rm: plans.zip/docs: is a folder; -r removes folders\n");
    EXPECT_EQ(failure({"rm", "-d", "plans.zip/docs"}), "kxvfs: rm: plans.zip/docs: folder not empty\n");
    output({"rm", "-d", "plans.zip/empty"});
    output({"rm", "-r", "plans.zip/docs"});
    EXPECT_EQ(names("plans.zip"), Names{});
    output({"write", "plans.zip/again"}, "1");
    EXPECT_EQ(names("plans.zip"), (Names{"again"}));
}

TEST_F(ChangingTest, RmDoesWhatItCan) {
    EXPECT_EQ(failure({"rm", "plans.zip/none", "plans.zip/b.txt"}), "kxvfs: rm: plans.zip/none: not found\n");
    EXPECT_EQ(names("plans.zip"), plansWith({}, {"b.txt"}));
    output({"rm", "-f", "plans.zip/none"});
    EXPECT_EQ(failure({"rm", "-r", "plans.zip/"}), "kxvfs: rm: plans.zip/: the root is not removed\n");
    EXPECT_EQ(names("plans.zip"), plansWith({}, {"b.txt"}));
}

TEST_F(ChangingTest, AFailureAloneDoesNotRewriteTheArchive) {
    const auto before = load("plans.zip");
    failure({"rm", "plans.zip/none"});
    failure({"mkdir", "plans.zip/docs"});
    failure({"mv", "plans.zip/none", "plans.zip/x"});
    failure({"cp", "none", "plans.zip/x"});
    failure({"touch", "plans.zip/no/x"});
    failure({"mkdir", "plans.zip/no/x"});
    EXPECT_EQ(load("plans.zip"), before);
}

TEST_F(ChangingTest, MkdirMakesFolders) {
    output({"mkdir", "plans.zip/new", "plans.zip/docs/deeper/"});
    output({"mkdir", "-p", "plans.zip/x/y/z", "plans.zip/docs"});
    EXPECT_EQ(names("plans.zip"), plansWith({"new/", "docs/deeper/", "x/", "x/y/", "x/y/z/"}));
    EXPECT_EQ(failure({"mkdir", "plans.zip/docs"}), "kxvfs: mkdir: plans.zip/docs: already exists\n");
    EXPECT_EQ(failure({"mkdir", "plans.zip/p/q"}),
              "kxvfs: mkdir: plans.zip/p/q: the folder above does not exist; -p makes it\n");
    EXPECT_NE(failure({"mkdir", "-p", "plans.zip/b.txt/x"}), "");
    output({"mkdir", "local"});
    EXPECT_TRUE(std::filesystem::is_directory(folder.file("local")));
}

TEST_F(ChangingTest, TouchMakesFilesAndRenewsTimes) {
    output({"touch", "plans.zip/t", "plans.zip/b.txt"});
    EXPECT_EQ(names("plans.zip"), plansWith({"t"}));
    const auto verdict = verifyArchive(folder.file("plans.zip"));
    EXPECT_GT(verdict.find("b.txt")->modified[0], 2021);
    EXPECT_EQ(output({"cat", "plans.zip/b.txt"}), "b");
    output({"touch", "-c", "plans.zip/none"});
    EXPECT_EQ(names("plans.zip"), plansWith({"t"}));
    EXPECT_NE(failure({"touch", "plans.zip/docs"}).find("cannot be set"), std::string::npos);
    const auto local = save("local.txt", "text");
    const auto now = std::filesystem::file_time_type::clock::now();
    std::filesystem::last_write_time(local, now - std::chrono::hours(1000));
    output({"touch", "local.txt"});
    EXPECT_GT(std::filesystem::last_write_time(local), now - std::chrono::minutes(1));
    EXPECT_EQ(load("local.txt"), "text");
}

TEST_F(ChangingTest, MvRenamesWithinAnArchive) {
    output({"mv", "plans.zip/docs", "plans.zip/papers"});
    output({"mv", "plans.zip/b.txt", "plans.zip/papers/"});
    EXPECT_EQ(names("plans.zip"),
              (Names{"empty/", "papers/", "papers/a.txt", "papers/b.txt", "papers/sub/c.txt"}));
    EXPECT_EQ(output({"cat", "plans.zip/papers/sub/c.txt"}), "see\n");
    const auto verdict = verifyArchive(folder.file("plans.zip"));
    EXPECT_EQ(verdict.find("papers/b.txt")->modified, (std::array<int, 6>{2021, 12, 31, 23, 59, 58}));
}

TEST_F(ChangingTest, MvReplacesFilesUnlessToldNotTo) {
    output({"mv", "-n", "plans.zip/b.txt", "plans.zip/docs/a.txt"});
    EXPECT_EQ(names("plans.zip"), plans);
    output({"mv", "plans.zip/b.txt", "plans.zip/docs/a.txt"});
    EXPECT_EQ(names("plans.zip"), plansWith({}, {"b.txt"}));
    EXPECT_EQ(output({"cat", "plans.zip/docs/a.txt"}), "b");
}

TEST_F(ChangingTest, MvLeavesFilesAndFoldersThatExistWhereAskedFor) {
    save("docs/a.txt", "mine");
    save("b.txt", "mine");
    const auto before = load("plans.zip");
    output({"mv", "-n", "plans.zip/docs", "plans.zip/b.txt", "."});
    EXPECT_EQ(load("docs/a.txt"), "mine");
    EXPECT_EQ(load("b.txt"), "mine");
    EXPECT_EQ(load("plans.zip"), before);
    output({"mv", "-n", "b.txt", "plans.zip/"});
    EXPECT_EQ(load("b.txt"), "mine");
    EXPECT_EQ(load("plans.zip"), before);
    output({"mv", "-n", "b.txt", "plans.zip/c.txt"});
    EXPECT_EQ(names("plans.zip"), plansWith({"c.txt"}));
}

TEST_F(ChangingTest, MvRefusesWhatWouldLoseThings) {
    const auto before = load("plans.zip");
    EXPECT_EQ(failure({"mv", "plans.zip/docs", "plans.zip/docs/sub"}),
              "kxvfs: mv: plans.zip/docs: a folder cannot be moved into itself\n");
    EXPECT_EQ(failure({"mv", "plans.zip/b.txt", "plans.zip/b.txt"}),
              "kxvfs: mv: plans.zip/b.txt: source and destination are the same\n");
    EXPECT_EQ(failure({"mv", "plans.zip/", "x"}), "kxvfs: mv: plans.zip/: cannot be moved\n");
    EXPECT_EQ(failure({"mv", "-T", "plans.zip/docs", "plans.zip/b.txt"}),
              "kxvfs: mv: plans.zip/docs: the destination exists: plans.zip/b.txt\n");
    save("docs/mine.txt", "mine");
    EXPECT_EQ(failure({"mv", "docs", "plans.zip"}),
              "kxvfs: mv: docs: the destination exists: plans.zip/docs\n");
    EXPECT_EQ(load("docs/mine.txt"), "mine");
    EXPECT_NE(failure({"mv", "plans.zip/b.txt", "plans.zip/docs", "plans.zip/none"}), "");
    EXPECT_EQ(load("plans.zip"), before);
}

TEST_F(ChangingTest, MvGoesBetweenArchivesAndLocalFolders) {
    save("other.zip", simpleArchive({{"x", "1"}}));
    output({"mv", "plans.zip/docs", "local"});
    EXPECT_EQ(load("local/sub/c.txt"), "see\n");
    EXPECT_EQ(names("plans.zip"), (Names{"b.txt", "empty/"}));
    output({"mv", "local", "other.zip"});
    EXPECT_FALSE(std::filesystem::exists(folder.file("local")));
    output({"mv", "plans.zip/b.txt", "other.zip/local/moved.txt"});
    EXPECT_EQ(names("plans.zip"), (Names{"empty/"}));
    EXPECT_EQ(names("other.zip"),
              (Names{"local/", "local/a.txt", "local/moved.txt", "local/sub/", "local/sub/c.txt", "x"}));
}

TEST_F(ChangingTest, MvKeepsTheSourceWhenTheCopyCannotBeSaved) {
    save("other.zip", simpleArchive({{"open", "1"}}));
    ArchiveBuilder builder;
    builder.add("open", "1").add("secret", "2");
    builder.last().flags = flag::encrypted;
    save("secret.zip", builder.build());
    save("local.txt", "precious");
    EXPECT_NE(failure({"mv", "local.txt", "secret.zip/"}), "");
    EXPECT_EQ(load("local.txt"), "precious");
    EXPECT_NE(failure({"mv", "plans.zip/b.txt", "secret.zip/"}), "");
    EXPECT_EQ(names("plans.zip"), plans);
}

TEST_F(ChangingTest, MvGoesBetweenNestedArchives) {
    save("outer.zip",
         simpleArchive({{"in.zip", simpleArchive({{"x", "inner"}, {"y", "stay"}})}, {"top", "t"}}));
    output({"mv", "outer.zip/in.zip/x", "outer.zip/x"});
    output({"mv", "outer.zip/top", "outer.zip/in.zip/top"});
    EXPECT_EQ(names("outer.zip"), (Names{"in.zip", "x"}));
    EXPECT_EQ(output({"ls", "outer.zip/in.zip"}), "top\ny\n");
    EXPECT_EQ(output({"cat", "outer.zip/x", "outer.zip/in.zip/top"}), "innert");
}

TEST_F(ChangingTest, CreateMakesValidEmptyArchives) {
    output({"create", "new.zip"});
    EXPECT_EQ(names("new.zip"), Names{});
    EXPECT_EQ(failure({"create", "new.zip", "plans.zip"}),
              "kxvfs: create: new.zip: already exists\nkxvfs: create: plans.zip: already exists\n");
    EXPECT_NE(failure({"create", "no/new.zip"}), "");
    output({"create", "new.zip/inner.zip"});
    output({"write", "new.zip/inner.zip/x"}, "1");
    EXPECT_EQ(output({"find", "new.zip/inner.zip"}), "new.zip/inner.zip\nnew.zip/inner.zip/x\n");
    EXPECT_EQ(names("new.zip"), (Names{"inner.zip"}));
}

TEST_F(ChangingTest, ReadOnlyArchivesAreNotChanged) {
    const auto before = load("plans.zip");
    std::filesystem::permissions(folder.file("plans.zip"), std::filesystem::perms::owner_read);
    EXPECT_EQ(failure({"mkdir", "plans.zip/x"}), "kxvfs: mkdir: plans.zip/x: not writable\n");
    EXPECT_EQ(load("plans.zip"), before);
}

TEST_F(ChangingTest, ALinkedArchiveStaysALink) {
    std::filesystem::create_symlink("plans.zip", folder.file("link.zip"));
    output({"touch", "link.zip/t"});
    EXPECT_TRUE(std::filesystem::is_symlink(folder.file("link.zip")));
    EXPECT_EQ(names("plans.zip"), plansWith({"t"}));
}

TEST_F(ChangingTest, ChangesGiveJson) {
    const auto document = json({"mkdir", "plans.zip/x", "plans.zip/docs"});
    ASSERT_EQ(document.size(), 2U);
    EXPECT_EQ(document[0]["path"], iri("plans.zip", "x"));
    EXPECT_EQ(document[0]["type"], "folder");
    EXPECT_TRUE(document[0].at("size").is_null());
    EXPECT_TRUE(document[0]["modified"].is_string());
    EXPECT_EQ(document[0]["action"], "created");
    EXPECT_EQ(document[1]["error"]["code"], 3);
    const auto removed = json({"rm", "plans.zip/b.txt"});
    EXPECT_EQ(removed, (nlohmann::json{{{"path", iri("plans.zip", "b.txt")},
                                        {"type", "file"},
                                        {"size", 1},
                                        {"modified", "2021-12-31T23:59:58Z"},
                                        {"action", "removed"}}}));
    const auto moved = json({"mv", "plans.zip/docs/a.txt", "plans.zip/y"});
    EXPECT_EQ(moved, (nlohmann::json{{{"path", iri("plans.zip", "y")},
                                      {"type", "file"},
                                      {"size", 5},
                                      {"modified", "2020-02-03T04:05:06Z"},
                                      {"action", "moved"},
                                      {"source", iri("plans.zip", "docs/a.txt")}}}));
    EXPECT_EQ(json({"touch", "plans.zip/t"})[0]["size"], 0);
    EXPECT_EQ(json({"create", "new.zip"})[0]["size"], 22);
}

TEST_F(ChangingTest, MovesBetweenArchivesGiveJsonOfWhatIsSaved) {
    save("other.zip", simpleArchive({{"x", "1"}}));
    const auto moved = json({"mv", "plans.zip/docs", "other.zip"});
    ASSERT_EQ(moved.size(), 2U);
    EXPECT_EQ(moved[0]["path"], iri("other.zip", "docs/a.txt"));
    EXPECT_EQ(moved[0]["source"], iri("plans.zip", "docs/a.txt"));
    EXPECT_EQ(moved[0]["action"], "moved");
    EXPECT_EQ(moved[0]["size"], 5);
    // The copy can be saved, the removal of its source not.
    ArchiveBuilder builder;
    builder.add("open", "1").add("secret", "2");
    builder.last().flags = flag::encrypted;
    save("secret.zip", builder.build());
    const auto copied = json({"mv", "secret.zip/open", "other.zip"});
    ASSERT_EQ(copied.size(), 2U) << copied;
    EXPECT_EQ(copied[0]["path"], iri("other.zip", "open"));
    EXPECT_EQ(copied[0]["action"], "copied");
    EXPECT_TRUE(copied[1].contains("error")) << copied;
}

TEST_F(ChangingTest, AChangeThatCouldNotBeSavedIsNotToldAsDone) {
    ArchiveBuilder builder;
    builder.add("open", "1").add("secret", "2");
    builder.last().flags = flag::encrypted;
    save("secret.zip", builder.build());
    const auto before = load("secret.zip");
    for (const auto& change : std::vector<std::vector<std::string>>{{"mkdir", "secret.zip/a", "secret.zip/b"},
                                                                    {"cp", "plans.zip/b.txt", "secret.zip"},
                                                                    {"mv", "plans.zip/b.txt", "secret.zip"},
                                                                    {"rm", "secret.zip/open"},
                                                                    {"touch", "secret.zip/open"}}) {
        const auto document = json(change);
        ASSERT_EQ(document.size(), 1U) << document;
        EXPECT_TRUE(document[0].contains("error")) << document;
        const auto message = failure(change);
        EXPECT_EQ(std::count(message.begin(), message.end(), '\n'), 1) << message;
    }
    EXPECT_EQ(load("secret.zip"), before);
    EXPECT_EQ(names("plans.zip"), plans);
    // What went elsewhere in the same run was saved, and is told.
    const auto document = json({"mkdir", "secret.zip/a", "plans.zip/new", "local"});
    ASSERT_EQ(document.size(), 3U) << document;
    EXPECT_EQ(document[0]["path"], iri("plans.zip", "new"));
    EXPECT_EQ(document[1]["path"], folder.iri("local").toUtf8());
    EXPECT_TRUE(document[2].contains("error"));
}

TEST_F(ChangingTest, ChangesOfAnInnerArchiveThatTheOuterOneLosesAreNotToldAsDone) {
    ArchiveBuilder builder;
    builder.add("in.zip", simpleArchive({{"x", "1"}})).add("secret", "2");
    builder.last().flags = flag::encrypted;
    save("outer.zip", builder.build());
    const auto document = json({"mkdir", "outer.zip/in.zip/new", "outer.zip/new"});
    ASSERT_EQ(document.size(), 1U) << document;
    EXPECT_TRUE(document[0].contains("error")) << document;
}

TEST_F(ChangingTest, ManyChangesOfOneCommandAreOneSave) {
    save("one", "1");
    save("two", "2");
    save("list", "mkdir p\nmkdir q\ncp one p\nmv b.txt q\nrm -r empty\n");
    save("outer.zip", simpleArchive({{"in.zip", simpleArchive({{"x", "1"}})}}));
    const auto saves = [&](std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "-v");
        const auto result = run(arguments);
        EXPECT_EQ(result.exitCode, 0) << result.errors;
        std::size_t count = 0;
        for (auto at = result.errors.find(" way=rename"); at != std::string::npos;
             at = result.errors.find(" way=rename", at + 1))
            ++count;
        return count;
    };
    EXPECT_EQ(saves({"cp", "one", "two", "plans.zip/docs"}), 1U);
    EXPECT_EQ(saves({"mkdir", "-p", "plans.zip/a/b/c", "plans.zip/d", "plans.zip/e"}), 1U);
    EXPECT_EQ(saves({"touch", "plans.zip/t", "plans.zip/docs/one", "plans.zip/u"}), 1U);
    EXPECT_EQ(saves({"mv", "plans.zip/t", "plans.zip/u", "plans.zip/d"}), 1U);
    EXPECT_EQ(saves({"rm", "-r", "plans.zip/a", "plans.zip/d", "plans.zip/docs/one"}), 1U);
    EXPECT_EQ(saves({"batch", "plans.zip", "list"}), 1U);
    EXPECT_EQ(saves({"mkdir", "outer.zip/in.zip/a", "outer.zip/b", "outer.zip/in.zip/c"}), 1U);
    EXPECT_EQ(saves({"create", "outer.zip/i1.zip", "outer.zip/i2.zip"}), 1U);
    EXPECT_EQ(saves({"ls", "plans.zip"}), 0U);
}

TEST_F(ChangingTest, ANameThatCannotBeStoredIsRefusedWhereItIsMadeAndTheOthersAreMade) {
    const std::string longName(65'536, 'n');
    const std::string cause = ": its path in the archive is 65536 bytes long, an archive can store 65535\n";
    const auto shown = "plans.zip/" + longName;
    save("x", "x");
    EXPECT_EQ(failure({"mkdir", "plans.zip/made", "plans.zip/" + longName.substr(1)}),
              "kxvfs: mkdir: plans.zip/" + longName.substr(1) + cause);
    EXPECT_EQ(failure({"touch", shown, "plans.zip/touched"}), "kxvfs: touch: " + shown + cause);
    EXPECT_EQ(failure({"write", shown}, "x"), "kxvfs: write: " + shown + cause);
    EXPECT_NE(failure({"cp", "x", shown}).find(cause), std::string::npos);
    EXPECT_NE(failure({"mv", "plans.zip/b.txt", shown}).find(cause), std::string::npos);
    EXPECT_EQ(failure({"batch", "plans.zip"}, std::string("touch a\0b\ntouch c\n", 18)),
              "kxvfs: batch: -:1: a\\x00b: its name holds a NUL, which an archive cannot store\n");
    // The longest that can be stored; unzip has less room for names.
    const auto longest = "plans.zip/" + longName.substr(2);
    output({"mkdir", longest});
    EXPECT_EQ(output({"ls", longest}), "");
    output({"rm", "-d", longest});
    EXPECT_EQ(names("plans.zip"), plansWith({"made/", "touched", "c"}));
}

TEST_F(ChangingTest, RecoverTellsWhenThereIsNothingToDo) {
    EXPECT_EQ(output({"recover", "plans.zip"}), "plans.zip: nothing to recover\n");
    const auto object = json({"recover", "plans.zip"})[0];
    EXPECT_EQ(object["path"], folder.iri("plans.zip").toUtf8());
    EXPECT_EQ(object["type"], "file");
    EXPECT_EQ(object["size"], load("plans.zip").size());
    EXPECT_EQ(object["result"], "nothing");
    EXPECT_EQ(failure({"recover", "none.zip"}), "kxvfs: recover: none.zip: there is no such archive\n");
}
