#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iostream>
#include <map>
#include <optional>
#include <string>

#include <unistd.h>

#include <gtest/gtest.h>

#include <corpus/ArchiveProbe.h>
#include <corpus/CorpusManifest.h>
#include <corpus/ExpectedTree.h>
#include <corpus/GuardedCall.h>
#include <corpus/LocalArchive.h>

#define KX_SKIP_WITHOUT_CORPUS()                                                                             \
    if (!corpus())                                                                                           \
    GTEST_SKIP() << "the collection of archives (KX_SHARED_CORPUS) is not on this machine"

namespace {

using namespace kx::test;

/// No entry of the collection is larger; a header that promises more is not worth the disk.
constexpr std::uint64_t readLimit = 64ULL << 20;

/// Where the system's own rules lead to something else than what other readers show.
enum class Rule {
    /// A date that is no day of the calendar fails the enumeration of the archive.
    DateThatDoesNotExist,
    /// A name that is not UTF-8 is shown with U+FFFD for what cannot be decoded, and cannot be opened.
    NameNotInUtf8,
    /// Entries that are neither stored nor deflated are listed and cannot be read.
    OtherMethod,
    /// Of entries of one path the first counts, and entries below a file are not shown.
    FirstOfEqualNamesCounts,
};

const std::multimap<std::string, Rule> exceptions = {
    {"Application-debug.apk", Rule::DateThatDoesNotExist},
    {"go-with-datadesc-sig.zip", Rule::DateThatDoesNotExist},
    {"no_dir_entry.zip", Rule::DateThatDoesNotExist},
    {"slice_0.apk", Rule::DateThatDoesNotExist},
    {"slice_1.apk", Rule::DateThatDoesNotExist},
    {"slice_2.apk", Rule::DateThatDoesNotExist},
    {"slice_3.apk", Rule::DateThatDoesNotExist},
    {"slice_4.apk", Rule::DateThatDoesNotExist},
    {"slice_5.apk", Rule::DateThatDoesNotExist},
    {"slice_6.apk", Rule::DateThatDoesNotExist},
    {"slice_7.apk", Rule::DateThatDoesNotExist},
    {"slice_8.apk", Rule::DateThatDoesNotExist},
    {"slice_9.apk", Rule::DateThatDoesNotExist},
    {"small.zip", Rule::DateThatDoesNotExist},
    {"cp866.zip", Rule::NameNotInUtf8},
    {"local_encoding_in_name.zip", Rule::NameNotInUtf8},
    {"sjis-filename.zip", Rule::NameNotInUtf8},
    {"test-cp437-comment-utf-8.zip", Rule::NameNotInUtf8},
    {"test-cp437.zip", Rule::NameNotInUtf8},
    {"test-winzip.zip", Rule::NameNotInUtf8},
    {"testfile-cp437.zip", Rule::NameNotInUtf8},
    {"utf-8-standardization-input.zip", Rule::NameNotInUtf8},
    {"utf8-7zip-test.zip", Rule::NameNotInUtf8},
    {"utf8-winzip-test.zip", Rule::NameNotInUtf8},
    {"2bdffc-bzip2.zip", Rule::OtherMethod},
    {"bzip.zip", Rule::OtherMethod},
    {"bzip2-zip.zip", Rule::OtherMethod},
    {"bzip2.zip", Rule::OtherMethod},
    {"romeo.bzip2.zip", Rule::OtherMethod},
    {"testbzip2.zip", Rule::OtherMethod},
    {"dupdir.zip", Rule::FirstOfEqualNamesCounts},
    {"file-dir-same-name.zip", Rule::FirstOfEqualNamesCounts},
    {"filename_duplicate.zip", Rule::FirstOfEqualNamesCounts},
    {"link-dir.zip", Rule::FirstOfEqualNamesCounts},
    {"link-samename.zip", Rule::FirstOfEqualNamesCounts},
    {"mixed-paths.zip", Rule::FirstOfEqualNamesCounts},
    {"test-cp437-comment-utf-8.zip", Rule::FirstOfEqualNamesCounts},
    {"test-cp437.zip", Rule::FirstOfEqualNamesCounts},
};

bool isListed(const std::string& file, Rule rule) {
    const auto [begin, end] = exceptions.equal_range(file);
    return std::any_of(begin, end, [rule](const auto& exception) { return exception.second == rule; });
}

std::string probeFile(const std::filesystem::path& file) {
    const auto provider = openArchive(file);
    return toText(probeArchive(*provider, archiveRoot(file), readLimit));
}

std::string describe(const ProbedEntry& entry) {
    return entry.path + (entry.folder ? "/ " : " ") + std::to_string(entry.size) + " " + entry.modified +
           (entry.error.empty() ? "" : " (" + entry.error + ")");
}

class CorpusArchives : public testing::Test {
protected:
    static void SetUpTestSuite() {
        s_corpus = Corpus::find();
        s_scratch = std::filesystem::path(testing::TempDir()) / ("corpus-" + std::to_string(getpid()));
        std::filesystem::create_directories(s_scratch);
        setenv("TMPDIR", s_scratch.c_str(), 1);
        setenv("TZ", "UTC", 1);
    }
    static void TearDownTestSuite() { std::filesystem::remove_all(s_scratch); }

    static const std::optional<Corpus>& corpus() { return s_corpus; }

    static GuardedResult probe(const CorpusArchive& archive) {
        const std::filesystem::path file = s_corpus->folder / archive.file;
        const GuardedResult result = guardedCall([&] { return probeFile(file); });
        EXPECT_TRUE(std::filesystem::is_empty(s_scratch)) << "a working file was left behind";
        return result;
    }

    static std::optional<Corpus> s_corpus;
    static std::filesystem::path s_scratch;
};

std::optional<Corpus> CorpusArchives::s_corpus;
std::filesystem::path CorpusArchives::s_scratch;

/// Every path, kind, size, time and checksum that `archive` must show, and nothing else.
void expectTree(const ExpectedTree& tree, const ProbedArchive& shown) {
    EXPECT_EQ(shown.error, "");
    for (const auto& [path, expected] : tree.entries) {
        const ProbedEntry* entry = shown.find(path);
        if (!entry) {
            ADD_FAILURE() << path << " is not listed";
            continue;
        }
        EXPECT_EQ(entry->folder, expected.folder) << describe(*entry);
        EXPECT_EQ(entry->size, expected.size) << describe(*entry);
        EXPECT_EQ(entry->modified, expected.modified) << describe(*entry);
        if (expected.folder)
            continue;
        EXPECT_EQ(entry->error.empty(), expected.readable) << describe(*entry);
        if (expected.readable) {
            EXPECT_EQ(entry->crc32, expected.crc32) << describe(*entry);
        }
    }
    for (const ProbedEntry& entry : shown.entries)
        EXPECT_TRUE(tree.entries.contains(entry.path))
            << "listed though not in the archive: " << describe(entry);
}

bool anyEntry(const CorpusArchive& archive, const std::function<bool(const CorpusEntry&)>& condition) {
    return std::any_of(archive.entries.begin(), archive.entries.end(), condition);
}

/// Whether the archive has what the rule is about.
bool applies(Rule rule, const CorpusArchive& archive) {
    switch (rule) {
    case Rule::DateThatDoesNotExist:
        return anyEntry(archive, [](const CorpusEntry& entry) { return !dateExists(entry); });
    case Rule::NameNotInUtf8:
        return anyEntry(archive, [](const CorpusEntry& entry) { return !nameIsUtf8(entry); });
    case Rule::OtherMethod:
        return anyEntry(archive,
                        [](const CorpusEntry& entry) { return entry.method != 0 && entry.method != 8; });
    case Rule::FirstOfEqualNamesCounts:
        return expectedTree(archive).hiddenEntries;
    }
    return false;
}

TEST_F(CorpusArchives, CleanOnesListAndReadAsEveryReaderShowsThem) {
    KX_SKIP_WITHOUT_CORPUS();
    int compared = 0;
    for (const CorpusArchive& archive : corpus()->archives) {
        if (archive.consensus != Consensus::Clean)
            continue;
        SCOPED_TRACE(archive.file);
        const GuardedResult result = probe(archive);
        ASSERT_EQ(result.problem, "");
        const ProbedArchive shown = fromText(result.text);
        ++compared;

        for (const Rule rule : {Rule::DateThatDoesNotExist, Rule::NameNotInUtf8, Rule::OtherMethod,
                                Rule::FirstOfEqualNamesCounts}) {
            EXPECT_EQ(applies(rule, archive), isListed(archive.file, rule))
                << "the list of exceptions does not fit the archive";
        }
        if (isListed(archive.file, Rule::DateThatDoesNotExist)) {
            EXPECT_NE(shown.error, "") << "an impossible date was accepted";
            EXPECT_TRUE(shown.entries.empty());
        } else {
            expectTree(expectedTree(archive), shown);
        }
    }
    EXPECT_GT(compared, 300);
}

TEST_F(CorpusArchives, NeverCrashHangOrRunAwayInMemory) {
    KX_SKIP_WITHOUT_CORPUS();
    std::uint64_t peak = 0;
    for (const CorpusArchive& archive : corpus()->archives) {
        SCOPED_TRACE(archive.file);
        const GuardedResult result = probe(archive);
        EXPECT_EQ(result.problem, "");
        peak = std::max(peak, result.peakMemory);
    }
    std::cout << corpus()->archives.size() << " archives, at most " << (peak >> 20) << " MiB resident\n";
}

} // namespace
