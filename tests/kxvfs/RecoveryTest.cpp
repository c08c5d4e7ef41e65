#include "Tool.h"

#include <fileprovider/LocalFilesTest.h>
#include <fileprovider/SimulatedCrash.h>

using namespace kx::test;
namespace fs = std::filesystem;

namespace {

/// Saves of an archive by a process that ended in the middle of them.
class RecoveryTest : public Tool {
protected:
    void SetUp() override {
        Tool::SetUp();
        save("a.zip", m_old);
        // A file with a second name is overwritten, not replaced.
        fs::create_hard_link(folder.file("a.zip"), folder.file("second name"));
    }

    /// The process ends before its first call of this name.
    void endSaveBefore(std::string_view call) const {
        const auto calls = std::make_shared<SimulatedCrash>(std::vector<fs::path>{folder.path()});
        calls->crashBeforeFirst(call);
        LocalFileOptions how;
        how.stateFolder = temporary.path().string();
        how.systemCalls = calls;
        EXPECT_THROW(writeFile(*LocalFileProvider::create(how), folder.iri("a.zip"), m_new), Exception);
        ASSERT_TRUE(calls->crashed());
    }

    const std::string m_old = simpleArchive({{"old", std::string(9000, 'o')}});
    const std::string m_new = simpleArchive({{"new", "n"}, {"more", "m"}});
};

const std::string undone = "a.zip: an interrupted write was undone; the archive is the old one\n";
const std::string finished = "a.zip: an interrupted write was finished; the archive is the new one\n";
const std::string leftAlone =
    "a.zip: what an interrupted write left belongs to another file or cannot be removed\n";

} // namespace

TEST_F(RecoveryTest, RecoverUndoesAWriteThatHadNotBegunToOverwrite) {
    endSaveBefore("rename");
    const auto text = output({"recover", "a.zip"});
    EXPECT_EQ(text.find(undone + "  "), 0U) << text;
    EXPECT_EQ(load("a.zip"), m_old);
    EXPECT_EQ(output({"recover", "a.zip"}), "a.zip: nothing to recover\n");
}

TEST_F(RecoveryTest, RecoverFinishesAWriteThatHadBegunToOverwrite) {
    endSaveBefore("copyRange");
    const auto text = output({"recover", "a.zip"});
    EXPECT_EQ(text.find(finished + "  "), 0U) << text;
    EXPECT_EQ(load("a.zip"), m_new);
    EXPECT_EQ(output({"recover", "a.zip"}), "a.zip: nothing to recover\n");
}

TEST_F(RecoveryTest, RecoverLeavesAloneWhatBelongsToAnotherFile) {
    endSaveBefore("copyRange");
    const auto backup = simpleArchive({{"backup", "b"}});
    fs::remove(folder.file("a.zip"));
    save("a.zip", backup);
    const auto text = output({"recover", "a.zip"});
    EXPECT_EQ(text.find(leftAlone + "  "), 0U) << text;
    EXPECT_EQ(load("a.zip"), backup);
    // It is half old and half new.
    fs::remove(folder.file("second name"));
}

TEST_F(RecoveryTest, RecoverTellsWhatItDidInJson) {
    endSaveBefore("copyRange");
    const auto object = json({"recover", "a.zip"})[0];
    EXPECT_EQ(object["path"], folder.iri("a.zip").toUtf8());
    EXPECT_EQ(object["size"], m_new.size());
    EXPECT_EQ(object["result"], "finished");
    EXPECT_FALSE(object["details"].empty());
    EXPECT_EQ(json({"recover", "a.zip"})[0]["result"], "nothing");
}

TEST_F(RecoveryTest, EveryCommandRecoversTheArchiveThatItOpens) {
    endSaveBefore("copyRange");
    EXPECT_EQ(output({"ls", "a.zip"}), "more\nnew\n");
    EXPECT_EQ(load("a.zip"), m_new);
}
