#include "ZipProviderTest.h"

#include <foundation/log/ScopedRecordCollector.h>
#include <storage/zipprovider/src/instantiations.h>
#include <support/FaultInjectingProvider.h>

#include <algorithm>

namespace kx::test {

namespace {

using foundation::log::CollectedRecord;
using foundation::log::ScopedRecordCollector;
using foundation::log::severity;
using storage::zipprovider::ZipEntryPath;

/// What the classes of the upper half log, and at which level.
class ZipProviderLogging : public ZipProviderTest {
protected:
    using FileSystem =
        storage::zipprovider::ZipFileSystem<storage::zipprovider::HostItem, storage::zipprovider::HostDevice>;

    /// The texts of one channel up to a level while `work` is done, function scopes left out.
    static std::vector<std::string> logged(const char* channel, severity level,
                                           const std::function<void()>& work) {
        const ScopedRecordCollector collector(level, {channel});
        work();
        std::vector<std::string> texts;
        for (const auto& record : collector.records()) {
            EXPECT_EQ(record.channel, channel);
            if (record.text.find("src/storage/zipprovider/src/") == std::string::npos) {
                texts.push_back(record.text);
            }
        }
        return texts;
    }

    static bool has(const std::vector<std::string>& texts, const std::string& text) {
        return std::any_of(texts.begin(), texts.end(),
                           [&](const auto& one) { return one.find(text) != std::string::npos; });
    }

    const std::shared_ptr<const FileSystem> files = std::make_shared<const FileSystem>(container);
    const ZipEntryPath path{u"/a.txt"};
};

TEST_F(ZipProviderLogging, ThePolicyLogsTheNumberOfOpenWritersAndItsQuestion) {
    std::unique_ptr<foundation::storage::provider::ByteStream> one;
    const auto texts = logged("storage::zipprovider::FlushingPolicy", severity::debug, [&] {
        one = files->checkOutEntry(path, ByteStreamOpenOptions{});
        const auto two = files->checkOutEntry(path, ByteStreamOpenOptions{});
        two->close();
        one->close();
    });
    EXPECT_EQ(texts,
              (std::vector<std::string>{" m_modifiedInUse=1", " m_modifiedInUse=2", " m_modifiedInUse=1",
                                        "Trigger a flush if zero modified in use?", " m_modifiedInUse=0",
                                        "Trigger a flush if zero modified in use?"}));
}

TEST_F(ZipProviderLogging, TheStateTellsWhetherAFlushWritesAnything) {
    const auto texts = logged("storage::zipprovider::ZipState", severity::debug, [&] {
        files->flushContents();
        files->createFolder(ZipEntryPath(u"/f"));
    });
    ASSERT_FALSE(texts.empty());
    EXPECT_EQ(texts.front(), "Will actually flush and update zip? 0");
    EXPECT_TRUE(has(texts, "Will actually flush and update zip? 1"));
}

TEST_F(ZipProviderLogging, ACheckOutLogsItsArgumentsAndAtTheFinerLevelItsQuestions) {
    const auto open = [&] { files->checkOutEntry(path, ByteStreamOpenOptions{})->close(); };
    const auto coarse = logged("storage::zipprovider::ZipFileSystem", severity::info, open);
    EXPECT_TRUE(has(coarse, " path=/a.txt"));
    EXPECT_TRUE(has(coarse, " theFullPath=/a.txt"));
    EXPECT_TRUE(has(coarse, " createAnEmptyWFE=1"));
    EXPECT_FALSE(has(coarse, "?"));
    EXPECT_FALSE(has(coarse, "fileEntryDoesNotExist"));
    const auto fine = logged("storage::zipprovider::ZipFileSystem", severity::debug, open);
    EXPECT_TRUE(has(fine, " fileEntryDoesNotExist=0"));
    EXPECT_TRUE(has(fine, " createAnEmptyWFE=0"));
    EXPECT_TRUE(has(fine, "Is wfe already in map? 1"));
    EXPECT_TRUE(has(fine, "WFE is in map but empty reference?1"));
    EXPECT_TRUE(has(fine, "About to decrement modifiedInUse and set state changed"));
}

TEST_F(ZipProviderLogging, EachOperationOpensAFunctionScopeWithItsSource) {
    const ScopedRecordCollector collector(severity::info, {"storage::zipprovider::ZipFileSystem"});
    files->checkOutEntry(path, ByteStreamOpenOptions{})->close();
    const auto texts = collector.texts();
    const auto scopeOf = [&](const std::string& function) {
        return std::any_of(texts.begin(), texts.end(), [&](const auto& text) {
            return text.find(function) != std::string::npos &&
                   text.find("src/storage/zipprovider/src/ZipFileSystem") != std::string::npos;
        });
    };
    for (const auto* function : {"checkOutEntry", "setAndGetWritableWFE", "setAndGetSharedWorkingFileEntry",
                                 "buildSharedWorkingFileEntry", "modifiedFileWasClosed"}) {
        EXPECT_TRUE(scopeOf(function)) << function;
    }
}

TEST_F(ZipProviderLogging, AFailureLeavesItsScopeMarked) {
    const ScopedRecordCollector collector(severity::info, {"storage::zipprovider::ZipFileSystem"});
    EXPECT_ANY_THROW(files->removeFile(path));
    EXPECT_TRUE(has(collector.texts(), "[throw]"));
}

TEST_F(ZipProviderLogging, AnArchiveThatIsKeptBecauseItsCopyFailedIsNamed) {
    const auto plan = std::make_shared<FaultPlan>();
    MountedZip failing({std::make_shared<FaultInjectingProvider>(memory, plan), container.getLocation()});
    failing.list();
    plan->failCall(1, {ProviderOperation::StreamWrite});
    const auto texts = logged("storage::zipprovider::ZipState", severity::info,
                              [&] { EXPECT_ANY_THROW(failing.createFolder("/f")); });
    const auto kept = temporaryFiles();
    ASSERT_EQ(kept.size(), 1u);
    EXPECT_TRUE(has(texts, "it is kept as " + (temporary.path() / kept.front()).string()));
}

} // namespace

} // namespace kx::test
