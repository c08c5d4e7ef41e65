#include "Tool.h"

#include <support/archives/ArchiveShapes.h>

#include <sstream>

using namespace kx::test;

namespace {

class ReadingTest : public ToolWithPlans {};

Names lines(const std::string& text) {
    Names found;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        found.push_back(line);
    return found;
}

} // namespace

TEST_F(ReadingTest, LsPrintsOneNameALine) {
    EXPECT_EQ(output({"ls", "plans.zip"}), "b.txt\ndocs\nempty\n");
    EXPECT_EQ(output({"ls", "plans.zip/docs"}), "a.txt\nsub\n");
    EXPECT_EQ(output({"ls", "plans.zip/empty/"}), "");
}

TEST_F(ReadingTest, LsPrintsTypeSizeAndTime) {
    EXPECT_EQ(
        lines(output({"ls", "-l", "plans.zip"})),
        (Names{"- 1 2021-12-31 23:59 b.txt", "d 0 2020-02-03 04:05 docs", "d 0 2020-02-03 04:05 empty"}));
}

TEST_F(ReadingTest, LsDescendsWithHeadings) {
    EXPECT_EQ(
        output({"ls", "-R", "plans.zip"}),
        "plans.zip:\nb.txt\ndocs\nempty\n\nplans.zip/docs:\na.txt\nsub\n\nplans.zip/docs/sub:\nc.txt\n\n"
        "plans.zip/empty:\n");
}

TEST_F(ReadingTest, LsListsSeveralLocationsFilesFirst) {
    EXPECT_EQ(output({"ls", "plans.zip/docs", "plans.zip/b.txt"}),
              "plans.zip/b.txt\n\nplans.zip/docs:\na.txt\nsub\n");
}

TEST_F(ReadingTest, LsShowsWhatUnzipShows) {
    if (!programExists("unzip"))
        GTEST_SKIP() << "unzip is not installed";
    save("wide.zip", wideArchive(20, 30, true));
    const auto document = json({"ls", "-lR", "wide.zip"});
    Names own;
    for (const auto& entry : document) {
        const auto path = entry["path"].get<std::string>();
        const auto modified = entry["modified"].get<std::string>();
        own.push_back(std::to_string(entry["size"].is_null() ? 0 : entry["size"].get<int>()) + " " +
                      modified.substr(0, 10) + " " + modified.substr(11, 5) + " " +
                      path.substr(path.find("!/") + 2) + (entry["type"] == "folder" ? "/" : ""));
    }
    Names theirs;
    for (const auto& line : lines(runProcess({"unzip", "-l", "wide.zip"}, options()).output)) {
        std::istringstream words(line);
        std::string size, date, time, name, rest;
        if (words >> size >> date >> time >> name && !(words >> rest) && date.size() == 10 &&
            time.find(':') == 2)
            theirs.push_back(size + " " + date + " " + time + " " + name);
    }
    std::sort(own.begin(), own.end());
    std::sort(theirs.begin(), theirs.end());
    EXPECT_EQ(own.size(), 620U);
    EXPECT_EQ(own, theirs);
}

TEST_F(ReadingTest, LsOfTheCurrentFolderAndOfLocalFolders) {
    save("d/x", "1");
    EXPECT_EQ(output({"ls"}), "d\nplans.zip\n");
    EXPECT_EQ(output({"ls", "d"}), "x\n");
    EXPECT_EQ(output({"ls", "-d", "d", "plans.zip"}), "d\nplans.zip\n");
}

TEST_F(ReadingTest, LsOfAFileInAnArchiveListsItAlone) {
    EXPECT_EQ(output({"ls", "-l", "plans.zip/b.txt"}), "- 1 2021-12-31 23:59 plans.zip/b.txt\n");
}

TEST_F(ReadingTest, LsGivesJson) {
    const auto document = json({"ls", "plans.zip"});
    ASSERT_EQ(document.size(), 3U);
    EXPECT_EQ(document[0], (nlohmann::json{{"path", iri("plans.zip", "b.txt")},
                                           {"type", "file"},
                                           {"size", 1},
                                           {"modified", "2021-12-31T23:59:58Z"}}));
    EXPECT_EQ(document[1]["type"], "folder");
    EXPECT_TRUE(document[1].at("size").is_null());
    EXPECT_EQ(json({"ls", "plans.zip/empty"}), nlohmann::json::array());
}

TEST_F(ReadingTest, EveryWayToNameALocationLeadsThere) {
    save("outer.zip", simpleArchive({{"in/inner.zip", simpleArchive({{"x/y", "nested"}})}}));
    EXPECT_EQ(output({"cat", "plans.zip/docs/a.txt"}), "text\n");
    EXPECT_EQ(output({"cat", "plans.zip!/docs/a.txt"}), "text\n");
    EXPECT_EQ(output({"cat", iri("plans.zip", "docs/a.txt")}), "text\n");
    EXPECT_EQ(output({"cat", "-a", "plans.zip", "docs/a.txt"}), "text\n");
    EXPECT_EQ(output({"cat", folder.file("plans.zip").string() + "/docs/a.txt"}), "text\n");
    EXPECT_EQ(output({"cat", "outer.zip/in/inner.zip/x/y"}), "nested");
    EXPECT_EQ(output({"cat", "-a", "outer.zip/in/inner.zip", "x/y"}), "nested");
    EXPECT_EQ(output({"ls", "outer.zip/in/inner.zip"}), "x\n");
}

TEST_F(ReadingTest, ManyFilesOfOneArchiveArePrintedInTheirOrderAndEachMissingOneIsTold) {
    const auto result =
        run({"cat", "-a", "plans.zip", "docs/a.txt", "docs", "/docs/a.txt", "none", "docs/a.txt"});
    EXPECT_EQ(result.output, "text\ntext\ntext\n");
    EXPECT_EQ(result.errors, "kxvfs: cat: docs: is a folder\nkxvfs: cat: none: not found\n");
    EXPECT_EQ(result.exitCode, 1);
}

TEST_F(ReadingTest, TheTimeZoneDoesNotMoveTimes) {
    auto with = options();
    with.environment.emplace_back("TZ", "America/New_York");
    const auto result = runProcess({binary(), "ls", "-l", "plans.zip/b.txt"}, with);
    EXPECT_EQ(result.output, "- 1 2021-12-31 23:59 plans.zip/b.txt\n");
}

TEST_F(ReadingTest, TreeDrawsAndCounts) {
    EXPECT_EQ(output({"tree", "plans.zip"}), "plans.zip\n├── b.txt\n├── docs\n│   ├── a.txt\n│   └── sub\n"
                                             "│       └── c.txt\n└── empty\n\n3 folders, 3 files\n");
    EXPECT_EQ(output({"tree", "-d", "-L", "1", "plans.zip"}),
              "plans.zip\n├── docs\n└── empty\n\n2 folders, 0 files\n");
    auto with = options();
    with.environment.emplace_back("LC_ALL", "en_US.ISO-8859-1");
    with.environment.emplace_back("LANG", "en_US.ISO-8859-1");
    EXPECT_EQ(json({"tree", "plans.zip"}).size(), 7U);
}

TEST_F(ReadingTest, FindPrintsPathsThatCanBeUsedAgain) {
    EXPECT_EQ(lines(output({"find", "plans.zip"})),
              (Names{"plans.zip", "plans.zip/b.txt", "plans.zip/docs", "plans.zip/docs/a.txt",
                     "plans.zip/docs/sub", "plans.zip/docs/sub/c.txt", "plans.zip/empty"}));
    EXPECT_EQ(output({"find", "plans.zip", "--name", "[ac].txt"}),
              "plans.zip/docs/a.txt\nplans.zip/docs/sub/c.txt\n");
    EXPECT_EQ(output({"find", "plans.zip", "--type", "d", "--name", "*"}),
              "plans.zip/docs\nplans.zip/docs/sub\nplans.zip/empty\n");
    EXPECT_EQ(output({"find", "-0", "plans.zip/docs/sub"}),
              std::string("plans.zip/docs/sub\0plans.zip/docs/sub/c.txt\0", 44));
    EXPECT_EQ(output({"find", "-a", "plans.zip", "--name", "b*"}), "/b.txt\n");
    EXPECT_NE(failure({"find", "plans.zip", "--name", "[a"}), "");
}

TEST_F(ReadingTest, DuAddsUp) {
    EXPECT_EQ(output({"du", "plans.zip"}),
              "4\tplans.zip/docs/sub\n9\tplans.zip/docs\n0\tplans.zip/empty\n10\tplans.zip\n");
    EXPECT_EQ(output({"du", "-s", "plans.zip"}), "10\tplans.zip\n");
    EXPECT_EQ(output({"du", "--all", "plans.zip/docs/sub"}),
              "4\tplans.zip/docs/sub/c.txt\n4\tplans.zip/docs/sub\n");
    save("big.zip", simpleArchive({{"big", std::string(3'000'000, 'x')}}));
    EXPECT_EQ(output({"du", "-sh", "big.zip"}), "2.9M\tbig.zip\n");
}

TEST_F(ReadingTest, FindAndDuOfAFileTellOfItAlone) {
    EXPECT_EQ(output({"find", "plans.zip/b.txt"}), "plans.zip/b.txt\n");
    EXPECT_EQ(output({"find", "plans.zip/b.txt", "--name", "b.txt"}), "");
    EXPECT_EQ(output({"du", "plans.zip/docs/a.txt"}), "5\tplans.zip/docs/a.txt\n");
    EXPECT_EQ(output({"du", "-s", "plans.zip/docs/a.txt", "plans.zip/docs"}),
              "5\tplans.zip/docs/a.txt\n9\tplans.zip/docs\n");
}

TEST_F(ReadingTest, FindGivesJson) {
    const auto document = json({"find", "plans.zip", "--name", "?.txt"});
    ASSERT_EQ(document.size(), 3U);
    EXPECT_EQ(document[0], (nlohmann::json{{"path", iri("plans.zip", "b.txt")},
                                           {"type", "file"},
                                           {"size", 1},
                                           {"modified", "2021-12-31T23:59:58Z"}}));
    EXPECT_EQ(document[1]["path"], iri("plans.zip", "docs/a.txt"));
    EXPECT_EQ(document[2]["path"], iri("plans.zip", "docs/sub/c.txt"));
    EXPECT_EQ(json({"find", "plans.zip", "--type", "d"}).size(), 4U);
}

TEST_F(ReadingTest, DuGivesTheSumsInJson) {
    const auto document = json({"du", "plans.zip/docs"});
    ASSERT_EQ(document.size(), 2U);
    EXPECT_EQ(document[0]["path"], iri("plans.zip", "docs/sub"));
    EXPECT_EQ(document[0]["type"], "folder");
    EXPECT_EQ(document[0]["size"], 4);
    EXPECT_EQ(document[1]["path"], iri("plans.zip", "docs"));
    EXPECT_EQ(document[1]["size"], 9);
}

TEST_F(ReadingTest, StatTellsTheCanonicalLocation) {
    const auto text = output({"stat", "plans.zip//docs/a.txt"});
    EXPECT_NE(text.find("Type: file\n"), std::string::npos) << text;
    EXPECT_NE(text.find("Size: 5\n"), std::string::npos) << text;
    EXPECT_NE(text.find("Modified: 2020-02-03T04:05:06Z\n"), std::string::npos) << text;
    EXPECT_NE(text.find("Location: " + iri("plans.zip", "docs/a.txt") + "\n"), std::string::npos) << text;
    std::filesystem::create_symlink("plans.zip", folder.file("link.zip"));
    EXPECT_EQ(json({"stat", "link.zip/docs"})[0]["path"], iri("plans.zip", "docs"));
    EXPECT_EQ(json({"stat", "plans.zip"})[0]["type"], "file");
    EXPECT_EQ(json({"stat", "plans.zip/"})[0]["type"], "folder");
}

TEST_F(ReadingTest, CatOfEveryEntryGivesTheBytesThatUnzipGives) {
    if (!programExists("unzip"))
        GTEST_SKIP() << "unzip is not installed";
    ArchiveBuilder builder;
    builder.add("empty", "").add("text", "line\n").add("zeros", std::string(300'000, '\0'));
    std::string mixed;
    for (unsigned i = 0; i < 200'000; ++i)
        mixed += static_cast<char>((i * i) >> 5);
    builder.add("mixed", mixed);
    builder.add("stored", mixed.substr(0, 70'000));
    builder.last().method = Method::Stored;
    builder.add("described", mixed.substr(0, 1000));
    builder.last().descriptor = DataDescriptor::WithSignature;
    save("all.zip", builder.build());
    for (const auto* name : {"empty", "text", "zeros", "mixed", "stored", "described"})
        EXPECT_EQ(output({"cat", std::string("all.zip/") + name}),
                  runProcess({"unzip", "-p", "all.zip", name}, options()).output)
            << name;
}

TEST_F(ReadingTest, OddNamesAreHandledAsTheyStand) {
    const std::string odd = "a b'\"$\\*?[x]%41\xc3\xa4!";
    save("odd.zip", simpleArchive({{odd, "odd"}, {"new\nline", "nl"}, {"-r", "dash"}, {"#!/x", "hash"}}));
    EXPECT_EQ(output({"ls", "odd.zip"}), "#!\n-r\n" + odd + "\nnew\nline\n");
    EXPECT_EQ(output({"cat", "odd.zip/" + odd, "odd.zip/new\nline", "odd.zip/-r", "odd.zip/#!/x"}),
              "oddnldashhash");
    EXPECT_EQ(output({"cat", "-a", "odd.zip", "--", "-r"}), "dash");
    EXPECT_EQ(json({"stat", "-a", "odd.zip", odd})[0]["path"],
              iri("odd.zip", "a%20b'%22$%5C*%3F%5Bx%5D%2541\xc3\xa4!"));
}

TEST_F(ReadingTest, MessagesQuoteWhatATerminalWouldActOn) {
    EXPECT_EQ(failure({"cat", "plans.zip/\x1b[31mred\n"}),
              "kxvfs: cat: plans.zip/\\x1b[31mred\\n: not found\n");
    EXPECT_EQ(failure({"cat", "plans.zip/a\tb\rc"}), "kxvfs: cat: plans.zip/a\\tb\\rc: not found\n");
    // Text that runs from right to left for the rest of the line.
    EXPECT_EQ(failure({"cat", "plans.zip/\xe2\x80\xaetxt.exe"}),
              "kxvfs: cat: plans.zip/\\u202etxt.exe: not found\n");
}

TEST_F(ReadingTest, MessagesWithQuotedSignsQuoteBackslashesToo) {
    EXPECT_EQ(failure({"cat", "plans.zip/a\\b"}), "kxvfs: cat: plans.zip/a\\b: not found\n");
    EXPECT_EQ(failure({"cat", "plans.zip/a\\b\n"}), "kxvfs: cat: plans.zip/a\\\\b\\n: not found\n");
}

TEST_F(ReadingTest, NamesAreQuotedOnATerminal) {
    if (!programExists("python3"))
        GTEST_SKIP() << "python3 is not installed";
    save("odd.zip", simpleArchive({{"\x1b[31mred\n", ""}, {"plain", ""}, {"sub/x", ""}}));
    auto with = options();
    with.environment.insert(with.environment.end(), {{"TERM", "xterm"}, {"KXVFS", binary()}});
    const auto onTerminal = [&](const std::string& arguments) {
        return runProcess({"python3", "-c",
                           "import os, pty; pty.spawn([os.environ['KXVFS']] + '" + arguments + "'.split())"},
                          with)
            .output;
    };
    EXPECT_EQ(onTerminal("ls -1 odd.zip"), "\\x1b[31mred\\n\r\nplain\r\n\x1b[1;34msub\x1b[0m\r\n");
    with.environment.emplace_back("NO_COLOR", "1");
    EXPECT_EQ(onTerminal("ls odd.zip"), "\\x1b[31mred\\n  plain          sub\r\n");
}

TEST_F(ReadingTest, CheckReadsEveryEntry) {
    EXPECT_EQ(output({"check", "plans.zip"}), "plans.zip: 5 entries, no problems\n");
    const auto document = json({"check", "plans.zip"});
    ASSERT_EQ(document.size(), 5U);
    EXPECT_EQ(document[1]["path"], iri("plans.zip", "docs/a.txt"));
    EXPECT_EQ(document[1]["crc32"].get<std::string>().size(), 8U);
    EXPECT_EQ(document[1]["modified"], "2020-02-03T04:05:06Z");
    EXPECT_EQ(document[0]["type"], "folder");
    EXPECT_EQ(document[0]["modified"], "2020-02-03T04:05:06Z");
}

TEST_F(ReadingTest, CheckReachesArchivesInArchives) {
    save("outer.zip", simpleArchive({{"inner.zip", simpleArchive({{"x", "1"}})}}));
    EXPECT_EQ(output({"check", "outer.zip", "outer.zip/inner.zip"}),
              "outer.zip: 1 entry, no problems\nouter.zip/inner.zip: 1 entry, no problems\n");
}

TEST_F(ReadingTest, CheckTakesFullLocations) {
    save("outer.zip", simpleArchive({{"inner.zip", simpleArchive({{"x", "1"}})}}));
    for (const auto& location :
         Names{iri("outer.zip", ""), iri("outer.zip", "inner.zip"),
               "zip:" + iri("outer.zip", "inner.zip") + "!/", folder.iri("outer.zip").toUtf8()})
        EXPECT_EQ(output({"check", location}), location + ": 1 entry, no problems\n");
}

TEST_F(ReadingTest, CheckOfAFolderSaysThatItIsNoArchive) {
    std::filesystem::create_directory(folder.file("local"));
    for (const auto& location :
         Names{"local", "plans.zip/docs", iri("plans.zip", "docs"), folder.iri("local").toUtf8()})
        EXPECT_EQ(failure({"check", location}),
                  "kxvfs: check: " + location + ": is a folder, not an archive\n");
    EXPECT_EQ(failure({"check", "plans.zip/none"}), "kxvfs: check: plans.zip/none: not found\n");
}

TEST_F(ReadingTest, ProvidersTellsSchemesAndBundles) {
    const auto text = output({"providers"});
    EXPECT_NE(text.find("schemes: file, zip\n"), std::string::npos) << text;
    EXPECT_NE(text.find("com_orbelkast_zipprovider"), std::string::npos) << text;
    EXPECT_EQ(json({"providers"})[0]["schemes"], (nlohmann::json{"file", "zip"}));
}

TEST_F(ReadingTest, WithoutTheBundleArchivesAreNotServed) {
    auto with = options();
    with.environment.emplace_back("KXVFS_PROVIDERS", folder.file("none").string());
    const auto result = runProcess({binary(), "ls", "plans.zip"}, with);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.errors.find("kxvfs: ls: cannot look for providers in "), std::string::npos)
        << result.errors;
    EXPECT_NE(result.errors.find("kxvfs: ls: plans.zip: no provider serves the scheme \"zip\"\n"),
              std::string::npos)
        << result.errors;
}

TEST_F(ReadingTest, ProvidersFailsWhereBundlesCannotBeRead) {
    auto with = options();
    with.environment.emplace_back("KXVFS_PROVIDERS", folder.file("none").string());
    const auto missing = runProcess({binary(), "providers"}, with);
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_NE(missing.errors.find("kxvfs: providers: cannot look for providers in "), std::string::npos)
        << missing.errors;
    save("bundles/broken" KX_LIBRARY_SUFFIX, "no library");
    with.environment.back().second = folder.file("bundles").string();
    const auto broken = runProcess({binary(), "--json", "providers"}, with);
    EXPECT_EQ(broken.exitCode, 1);
    EXPECT_NE(broken.errors.find("kxvfs: providers: cannot load provider bundle "), std::string::npos)
        << broken.errors;
    EXPECT_EQ(nlohmann::json::parse(broken.output)[0]["problems"].size(), 1U);
}

TEST_F(ReadingTest, StatOfALocalFolderTellsTheSpaceOfItsFileSystem) {
    const auto space = std::filesystem::space(folder.path());
    const auto object = json({"stat", "."})[0];
    EXPECT_EQ(object["spaceTotal"], std::to_string(space.capacity));
    EXPECT_TRUE(object["spaceFree"].is_string());
    if (std::filesystem::is_directory("/proc")) {
        EXPECT_NE(json({"stat", "/proc"})[0]["spaceTotal"], object["spaceTotal"]);
    }
    EXPECT_FALSE(json({"stat", "plans.zip"})[0].contains("spaceTotal"));
}

TEST_F(ReadingTest, StatShowsWhatTheSystemKnowsOfALocalFile) {
    save("local.txt", "12345");
    const auto text = output({"stat", "local.txt"});
    EXPECT_NE(text.find(" Size: 5\n"), std::string::npos) << text;
    const auto document = json({"stat", "local.txt"});
    for (const auto& [name, value] : document[0].items()) {
        if (value.is_string() && name != "path" && name != "type" && name != "modified") {
            EXPECT_NE(text.find(" " + name + ": " + value.get<std::string>() + "\n"), std::string::npos)
                << text;
        }
    }
}

namespace {

/// A new folder of a file system that keeps times outside of the calendar, where there is one: few do, that
/// in memory does. Removed with all that is in it.
class FarTimesFolder {
public:
    explicit FarTimesFolder(const TemporaryFolder& otherwise)
        : m_path(std::filesystem::is_directory("/dev/shm") ? "/dev/shm" / otherwise.path().filename()
                                                           : otherwise.file("place")) {
        std::filesystem::create_directory(m_path);
    }
    ~FarTimesFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }

    FarTimesFolder(const FarTimesFolder&) = delete;
    FarTimesFolder& operator=(const FarTimesFolder&) = delete;

    const std::filesystem::path& path() const { return m_path; }

private:
    const std::filesystem::path m_path;
};

} // namespace

TEST_F(ReadingTest, ATimeOutsideOfTheCalendarIsShownAsNone) {
    const FarTimesFolder place(folder);
    const auto file = (place.path() / "far.txt").string();
    std::ofstream(file).close();
    runProcess({"touch", "-d", "@300000000000", file});
    if (!json({"stat", file})[0].at("modified").is_null())
        GTEST_SKIP() << "the file system keeps no such times";
    EXPECT_EQ(output({"ls", "-l", place.path().string()}), "- 0 ---------- ----- far.txt\n");
    EXPECT_TRUE(json({"ls", place.path().string()})[0].at("modified").is_null());
    EXPECT_NE(output({"stat", file}).find("    Modified: unknown\n"), std::string::npos);
}

TEST_F(ReadingTest, CountsOfOneAreInTheSingular) {
    save("one.zip", simpleArchive({{"d/x", "1"}}));
    EXPECT_EQ(output({"tree", "one.zip"}), "one.zip\n└── d\n    └── x\n\n1 folder, 1 file\n");
}

TEST_F(ReadingTest, ReadingChangesNothing) {
    const auto before = load("plans.zip");
    const auto time = std::filesystem::last_write_time(folder.file("plans.zip"));
    output({"ls", "-lR", "plans.zip"});
    output({"cat", "plans.zip/b.txt"});
    output({"check", "plans.zip"});
    EXPECT_EQ(load("plans.zip"), before);
    EXPECT_EQ(std::filesystem::last_write_time(folder.file("plans.zip")), time);
}
