#include "Tool.h"

using namespace kx::test;

namespace {

class DamagedArchivesTest : public Tool {
protected:
    /// Two entries of which the second's header is broken.
    void saveBroken(std::string_view name) const {
        ArchiveBuilder builder;
        builder.add("a.txt", "a").add("b.txt", "b");
        builder.last().central.signature = 0;
        save(name, builder.build());
    }
};

const std::string declared = "the end record declares 2 entries, the central directory holds 1";

} // namespace

TEST_F(DamagedArchivesTest, AFileWithoutBytesIsAnEmptyArchive) {
    save("empty.zip", "");
    EXPECT_EQ(output({"ls", "empty.zip"}), "");
    EXPECT_EQ(output({"check", "empty.zip"}), "empty.zip: 0 entries, no problems\n");
    output({"write", "empty.zip/first"}, "1");
    EXPECT_EQ(names("empty.zip"), (Names{"first"}));
}

TEST_F(DamagedArchivesTest, AnotherFileIsNoArchiveForAnyCommand) {
    save("notes.txt", "hello");
    save("x", "x");
    const std::string cause = ": not a ZIP archive: it has no end-of-central-directory record\n";
    EXPECT_EQ(failure({"ls", "notes.txt"}), "kxvfs: ls: notes.txt" + cause);
    EXPECT_EQ(failure({"cat", "notes.txt/x"}), "kxvfs: cat: notes.txt/x" + cause);
    EXPECT_EQ(failure({"check", "notes.txt"}), "kxvfs: check: notes.txt" + cause);
    EXPECT_EQ(failure({"mkdir", "notes.txt/d"}), "kxvfs: mkdir: notes.txt/d" + cause);
    EXPECT_EQ(failure({"cp", "x", "notes.txt/"}), "kxvfs: cp: notes.txt/" + cause);
    EXPECT_EQ(load("notes.txt"), "hello");
}

TEST_F(DamagedArchivesTest, ADamagedArchiveIsReadAsFarAsItGoes) {
    saveBroken("broken.zip");
    const auto listed = run({"ls", "broken.zip"});
    EXPECT_EQ(listed.exitCode, 1);
    EXPECT_EQ(listed.output, "a.txt\n");
    EXPECT_EQ(listed.errors,
              "kxvfs: ls: broken.zip: damaged ZIP archive: " + declared + "; reading as far as it goes\n");
    const auto read = run({"cat", "broken.zip/a.txt"});
    EXPECT_EQ(read.exitCode, 1);
    EXPECT_EQ(read.output, "a");
    const auto checked = run({"check", "broken.zip"});
    EXPECT_EQ(checked.exitCode, 1);
    EXPECT_EQ(checked.output, "broken.zip: 1 entry, 1 problem\n");
}

TEST_F(DamagedArchivesTest, ADamagedArchiveIsNeverChanged) {
    saveBroken("broken.zip");
    save("x", "x");
    save("list", "mkdir d\n");
    const auto before = load("broken.zip");
    const std::vector<std::vector<std::string>> changes{
        {"write", "broken.zip/new"},   {"rm", "broken.zip/a.txt"},     {"mkdir", "broken.zip/d"},
        {"touch", "broken.zip/a.txt"}, {"cp", "x", "broken.zip/"},     {"mv", "x", "broken.zip/y"},
        {"create", "broken.zip/c"},    {"batch", "broken.zip", "list"}};
    for (const auto& change : changes) {
        const auto message = failure(change, "input");
        EXPECT_NE(message.find("damaged ZIP archive: " + declared + "\n"), std::string::npos) << message;
    }
    EXPECT_EQ(load("broken.zip"), before);
    EXPECT_EQ(load("x"), "x");
    EXPECT_EQ(leftovers(), 0U);
}

TEST_F(DamagedArchivesTest, CheckReportsEachEntryThatFailsAndWhy) {
    ArchiveBuilder builder;
    builder.add("good", "good");
    builder.add("wrong-crc", "text");
    builder.last().crc32 = 1;
    builder.add("garbage", std::string(100, 'x'));
    builder.last().rawData = std::string(20, '\xff');
    builder.add("secret", "text");
    builder.last().flags = flag::encrypted;
    builder.add("packed", "text");
    builder.last().method = Method::Lzma;
    builder.last().rawData = "text";
    builder.add("good", "second");
    save("bad.zip", builder.build());
    const auto result = run({"check", "bad.zip"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.output, "bad.zip: 6 entries, 5 problems\n");
    for (const auto* part :
         {"kxvfs: check: bad.zip/wrong-crc: ", "kxvfs: check: bad.zip/garbage: ",
          "kxvfs: check: bad.zip/secret: the entry is encrypted\n",
          "kxvfs: check: bad.zip/packed: compression method 14 is not supported\n",
          "kxvfs: check: bad.zip/good: an earlier entry has the same name and hides this one\n"})
        EXPECT_NE(result.errors.find(part), std::string::npos) << part << "\n" << result.errors;
    const auto document = json({"check", "bad.zip"});
    EXPECT_EQ(document.size(), 6U);
    EXPECT_EQ(document[1]["error"]["code"], 1);
}

TEST_F(DamagedArchivesTest, WhatTheArchiveLibrarySaysIsToldInWordsAndOnRequestAsItIs) {
    ArchiveBuilder builder;
    builder.add("good", "good").add("garbage", std::string(100, 'x'));
    builder.last().rawData = std::string(20, '\xff');
    save("bad.zip", builder.build());
    const auto before = load("bad.zip");
    const std::string words =
        "/garbage cannot be carried over: damaged ZIP archive: an entry's data cannot be "
        "read to its end";
    const auto message = failure({"mkdir", "bad.zip/d"});
    EXPECT_NE(message.find(words + "\n"), std::string::npos) << message;
    EXPECT_EQ(message.find("unz"), std::string::npos) << message;
    const auto verbose = failure({"-v", "mkdir", "bad.zip/d"});
    EXPECT_NE(verbose.find(words + " (Error on return of unzReadCurrentFile in "), std::string::npos)
        << verbose;
    EXPECT_EQ(load("bad.zip"), before);
}

TEST_F(DamagedArchivesTest, AnImpossibleDateIsNamed) {
    ArchiveBuilder builder;
    builder.add("fine", "1").add("undated", "2");
    builder.last().modified = DosTime{};
    save("dates.zip", builder.build());
    EXPECT_NE(failure({"ls", "dates.zip"})
                  .find("kxvfs: ls: dates.zip: the archive holds an entry with an impossible date"),
              std::string::npos);
    EXPECT_NE(failure({"check", "dates.zip"})
                  .find("kxvfs: check: dates.zip/undated: the stored date is no day of the calendar\n"),
              std::string::npos);
    const auto before = load("dates.zip");
    failure({"mkdir", "dates.zip/d"});
    EXPECT_EQ(load("dates.zip"), before);
}

TEST_F(DamagedArchivesTest, AnArchiveWithAnEncryptedEntryIsReadButNotRewritten) {
    ArchiveBuilder builder;
    builder.add("open", "1").add("secret", "2");
    builder.last().flags = flag::encrypted;
    save("secret.zip", builder.build());
    const auto before = load("secret.zip");
    EXPECT_EQ(output({"cat", "secret.zip/open"}), "1");
    EXPECT_NE(failure({"cat", "secret.zip/secret"}), "");
    const auto message = failure({"mkdir", "secret.zip/d"});
    EXPECT_NE(message.find("secret.zip"), std::string::npos) << message;
    EXPECT_EQ(load("secret.zip"), before);
}

TEST_F(DamagedArchivesTest, AFifoIsRefusedWithoutWaiting) {
    runProcess({"mkfifo", folder.file("pipe").string()});
    auto with = options();
    with.timeout = std::chrono::seconds(20);
    for (const auto* location : {"pipe", "pipe/x"}) {
        const auto result = runProcess({binary(), "cat", location}, with);
        EXPECT_FALSE(result.timedOut);
        EXPECT_EQ(result.exitCode, 1);
    }
}
