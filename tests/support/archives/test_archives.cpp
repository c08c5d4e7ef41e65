#include <array>
#include <filesystem>
#include <fstream>
#include <functional>

#include <unistd.h>

#include <gtest/gtest.h>

#include <support/archives/ArchiveBuilder.h>
#include <support/archives/ArchiveShapes.h>
#include <support/archives/ExpectedEntries.h>
#include <support/archives/IndependentReaders.h>
#include <support/archives/Process.h>
#include <support/archives/WrittenArchives.h>

namespace {

using namespace kx::test;

class BuiltArchives : public testing::Test {
protected:
    void SetUp() override {
        m_path = std::filesystem::path(testing::TempDir()) /
                 ("archive-" + std::to_string(getpid()) + "-" +
                  testing::UnitTest::GetInstance()->current_test_info()->name() + ".zip");
    }
    void TearDown() override { std::filesystem::remove_all(m_path); }

    ArchiveVerdict verdictOf(const std::string& bytes) {
        std::ofstream(m_path, std::ios::binary)
            .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        return verifyArchive(m_path);
    }

    std::filesystem::path m_path;
};

TEST_F(BuiltArchives, SimpleOnesAreValidForEveryIndependentReader) {
    const ArchiveVerdict verdict = verdictOf(simpleArchive({{"a/", ""}, {"a/b.txt", "text"}, {"c", ""}}));
    EXPECT_EQ(verdict.problems(), "");
    EXPECT_EQ(verdict.names(), (std::vector<std::string>{"a/", "a/b.txt", "c"}));
    EXPECT_EQ(verdict.find("a/b.txt")->crc32, crc32Of("text"));
    EXPECT_EQ(verdict.find("a/b.txt")->size, 4u);
    EXPECT_EQ(verdict.find("a/b.txt")->modified, (std::array<int, 6>{2020, 2, 3, 4, 5, 6}));
}

TEST_F(BuiltArchives, WithoutEntriesAreValid) {
    const std::string bytes = ArchiveBuilder().build();
    EXPECT_EQ(bytes.size(), 22u);
    EXPECT_EQ(verdictOf(bytes).problems(), "");
}

TEST_F(BuiltArchives, WithEveryLegalFeatureAreValid) {
    ArchiveBuilder builder;
    builder.leading("#!/bin/sh\n", true);
    builder.add("stored", "stored bytes");
    builder.last().method = Method::Stored;
    builder.add("with-descriptor", std::string(5000, 'x'));
    builder.last().descriptor = DataDescriptor::WithSignature;
    builder.add("bare-descriptor", "y");
    builder.last().descriptor = DataDescriptor::WithoutSignature;
    builder.add("zip64", "z");
    builder.last().zip64 = true;
    builder.add("gr\xc3\xbc\xc3\x9f", "named in UTF-8");
    builder.last().flags = flag::utf8Name;
    builder.last().comment = "remark";
    builder.last().localExtra = builder.last().centralExtra = timestampField(1600000000);
    builder.end().comment = "an archive comment";
    const ArchiveVerdict verdict = verdictOf(builder.build());
    EXPECT_EQ(verdict.problems(), "");
    EXPECT_EQ(verdict.entries.size(), 5u);
    EXPECT_NE(verdict.find("gr\xc3\xbc\xc3\x9f"), nullptr);
}

TEST_F(BuiltArchives, WithForcedZip64RecordsAreValid) {
    ArchiveBuilder builder;
    builder.add("a", "1").add("b", "2").end().zip64 = true;
    ArchiveLayout layout;
    const std::string bytes = builder.build(&layout);
    EXPECT_NE(layout.zip64EndRecord, std::string::npos);
    EXPECT_EQ(verdictOf(bytes).problems(), "");
}

TEST_F(BuiltArchives, OfARepeatedChunkHoldWhatTheyPromise) {
    ArchiveBuilder builder;
    builder.add(repeatedEntry("big", std::string(1000, 'r') + "end", 37));
    const ArchiveVerdict verdict = verdictOf(builder.build());
    EXPECT_EQ(verdict.problems(), "");
    std::string whole;
    for (int i = 0; i != 37; ++i)
        whole += std::string(1000, 'r') + "end";
    EXPECT_EQ(verdict.find("big")->size, whole.size());
    EXPECT_EQ(verdict.find("big")->crc32, crc32Of(whole));
}

TEST_F(BuiltArchives, WithAHoleAreTheSameInMemoryAndOnDisk) {
    ArchiveBuilder builder;
    builder.add("before", "1").add(sparseEntry("hole", 100000)).add("behind", "2");
    ArchiveLayout layout;
    const std::string bytes = builder.build(&layout);
    EXPECT_EQ(bytes.compare(layout.centralHeaders[2], 4, "PK\x01\x02"), 0);
    EXPECT_EQ(bytes.compare(layout.endRecord, 4, "PK\x05\x06"), 0);
    builder.writeFile(m_path);
    std::ifstream stream(m_path, std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(stream), {}), bytes);
    const ArchiveVerdict verdict = verifyArchive(m_path);
    EXPECT_EQ(verdict.problems(), "");
    EXPECT_EQ(verdict.find("hole")->size, 100000u);
}

TEST_F(BuiltArchives, AreTheSameBytesEachTime) {
    EXPECT_EQ(wideArchive(3, 4, true), wideArchive(3, 4, true));
    EXPECT_EQ(verdictOf(wideArchive(3, 4, true)).entries.size(), 15u);
    EXPECT_EQ(verdictOf(deepArchive(20)).entries.size(), 1u);
}

TEST_F(BuiltArchives, WithOneWrongFieldAreRefusedByTheIndependentReaders) {
    ArchiveBuilder builder;
    builder.add("a.txt", "some text");
    builder.last().central.crc32 = 1;
    builder.last().local.crc32 = 1;
    EXPECT_FALSE(verdictOf(builder.build()).python.accepted);

    ArchiveBuilder cut;
    cut.add("a.txt", "some text").end().omitEnd = true;
    const ArchiveVerdict verdict = verdictOf(cut.build());
    EXPECT_FALSE(verdict.unzip.accepted);
    EXPECT_FALSE(verdict.python.accepted);
    EXPECT_NE(verdict.problems(), "");
}

TEST_F(BuiltArchives, TellWhereTheirPartsBegin) {
    ArchiveBuilder builder;
    builder.leading("junk").add("a", "1").add("b", "2");
    builder.entry(1).omitLocal = true;
    builder.entry(0).omitCentral = true;
    ArchiveLayout layout;
    const std::string bytes = builder.build(&layout);
    EXPECT_EQ(layout.localHeaders[0], 4u);
    EXPECT_EQ(layout.localHeaders[1], std::string::npos);
    EXPECT_EQ(layout.centralHeaders[0], std::string::npos);
    EXPECT_EQ(layout.centralHeaders[1], layout.centralDirectory);
    EXPECT_EQ(bytes.compare(layout.centralDirectory, 4, "PK\x01\x02"), 0);
    EXPECT_EQ(bytes.compare(layout.endRecord, 4, "PK\x05\x06"), 0);
}

TEST_F(BuiltArchives, AreLookedIntoWhereTheyHoldOthers) {
    ArchiveBuilder broken;
    broken.add("x", "text");
    broken.last().crc32 = 1;
    const ArchiveVerdict sound =
        verdictOf(simpleArchive({{"inner.zip", simpleArchive({{"x", "text"}})}, {"b", "b"}}));
    EXPECT_EQ(sound.problems(), "");
    ASSERT_TRUE(sound.inside.contains("inner.zip"));
    EXPECT_EQ(sound.inside.at("inner.zip").names(), std::vector<std::string>{"x"});
    const ArchiveVerdict verdict = verdictOf(simpleArchive({{"inner.zip", broken.build()}}));
    EXPECT_EQ(verdict.problems().find("in inner.zip: unzip does not accept the archive: "), 0u)
        << verdict.problems();
}

TEST_F(BuiltArchives, DifferFromTheExpectedEntriesInNamesKindsSizesBytesAndTimes) {
    ArchiveBuilder builder;
    builder.add("docs/").add("docs/\xC3\xBC.txt", "text");
    builder.last().modified = DosTime::of(2021, 3, 4, 5, 6, 8);
    const ArchiveVerdict verdict = verdictOf(builder.build());
    const ExpectedEntries same{{"docs/", {}},
                               {"docs/\xC3\xBC.txt", {"text", std::array{2021, 3, 4, 5, 6, 8}}}};
    EXPECT_EQ(differences(verdict, same), "");
    const auto changed = [&](const std::function<void(ExpectedEntries&)>& change) {
        auto expected = same;
        change(expected);
        return differences(verdict, expected);
    };
    const std::string file = "docs/\xC3\xBC.txt";
    EXPECT_EQ(changed([](auto& expected) { expected["more"]; }), "more is missing\n");
    EXPECT_EQ(changed([](auto& expected) { expected.erase("docs/"); }), "docs/ is not expected\n");
    EXPECT_EQ(changed([&](auto& expected) { expected[file].bytes = "longer"; }),
              file + " has 4 bytes instead of 6\n");
    EXPECT_EQ(changed([&](auto& expected) { expected[file].bytes = "tex7"; }), file + " has other bytes\n");
    EXPECT_EQ(changed([&](auto& expected) { expected[file].modified = std::array{2021, 3, 4, 5, 6, 10}; }),
              file + " is of 2021-3-4-5-6-8 instead of 2021-3-4-5-6-10\n");
    EXPECT_EQ(differences(verdictOf(simpleArchive({{"a", "1"}, {"a", "1"}})), {{"a", {"1", {}}}}),
              "a is there twice\n");
}

TEST_F(BuiltArchives, AreJudgedWhenTheSystemWroteThemAndNotWhenTheTestMadeThem) {
    ArchiveBuilder builder;
    builder.add("a", "text");
    builder.last().crc32 = 1;
    const auto damaged = builder.build();
    const auto file = m_path / "deeper" / "damaged";
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << damaged;
    const auto judge = [&](WrittenArchives& archives) {
        archives.addFolder(m_path);
        return archives.problems();
    };
    WrittenArchives known;
    known.remember(damaged);
    EXPECT_EQ(judge(known), "");
    WrittenArchives unknown;
    EXPECT_EQ(judge(unknown).find(file.string() + ": unzip does not accept the archive: "), 0u);
    WrittenArchives elsewhere;
    elsewhere.add("mem:///sound.zip", simpleArchive({{"a", "text"}}));
    elsewhere.add("mem:///letter.txt", "Dear reader");
    EXPECT_EQ(elsewhere.problems(), "");
    elsewhere.add("mem:///without-name", damaged);
    elsewhere.add("mem:///empty.zip", "");
    EXPECT_NE(elsewhere.problems().find("mem:///without-name: "), std::string::npos);
    EXPECT_NE(elsewhere.problems().find("mem:///empty.zip: "), std::string::npos);
}

TEST(Processes, ReportOutputErrorsAndExitCode) {
    ProcessOptions options;
    options.input = std::string(200000, 'i');
    options.environment = {{"KX_PROBE", "seen"}};
    const ProcessResult result =
        runProcess({"sh", "-c", "wc -c; echo $KX_PROBE; echo problem >&2; exit 3"}, options);
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_EQ(result.output, "200000\nseen\n");
    EXPECT_EQ(result.errors, "problem\n");
}

TEST(Processes, ThatDoNotEndInTimeAreKilled) {
    ProcessOptions options;
    options.timeout = std::chrono::seconds(1);
    const ProcessResult result = runProcess({"sleep", "30"}, options);
    EXPECT_TRUE(result.timedOut);
    EXPECT_FALSE(result.ok());
}

TEST(Processes, ThatDoNotExistEndWith127) {
    EXPECT_EQ(runProcess({"no-such-program-here"}).exitCode, 127);
}

} // namespace
