#include <cstdlib>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include <corpus/CorpusManifest.h>
#include <support/archives/Process.h>

namespace {

using namespace kx::test;

/// No reader of the manifest accepts these, but all that the system keeps of them is whole.
const std::set<std::string> readable = {
    // The central directory gives a comment's length as shorter than it is.
    "incons-central-file-comment-shorter.zip",
};

std::string tool() {
    const char* path = std::getenv("KXVFS");
    return path ? path : "kxvfs";
}

TEST(CorpusThroughTheTool, UnreadableArchivesEndWithStatusOneAndAMessageThatNamesThem) {
    const std::optional<Corpus> corpus = Corpus::find();
    if (!corpus)
        GTEST_SKIP() << "the collection of archives (KX_SHARED_CORPUS) is not on this machine";
    for (const CorpusArchive& archive : corpus->archives) {
        if (archive.consensus != Consensus::Unreadable)
            continue;
        SCOPED_TRACE(archive.file);
        const std::string path = (corpus->folder / archive.file).string();
        const ProcessResult result = runProcess({tool(), "check", path});
        EXPECT_EQ(result.exitCode, readable.contains(archive.file) ? 0 : 1) << result.output << result.errors;
        EXPECT_NE((result.output + result.errors).find(archive.file), std::string::npos)
            << result.output << result.errors;
    }
}

TEST(CorpusThroughTheTool, EveryArchiveEndsACommandWithOneOfItsOwnStatuses) {
    const std::optional<Corpus> corpus = Corpus::find();
    if (!corpus)
        GTEST_SKIP() << "the collection of archives (KX_SHARED_CORPUS) is not on this machine";
    for (const CorpusArchive& archive : corpus->archives) {
        SCOPED_TRACE(archive.file);
        const std::string path = (corpus->folder / archive.file).string();
        const ProcessResult result = runProcess({tool(), "ls", "-lR", path});
        EXPECT_TRUE(result.exitCode == 0 || result.exitCode == 1) << result.exitCode << result.errors;
        EXPECT_EQ(result.exitCode == 0, result.errors.empty()) << result.errors;
    }
}

} // namespace
