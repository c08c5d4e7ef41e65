#include "MemoryArchive.h"
#include "WorkingFolder.h"

#include <storage/zipprovider/src/ZipProviderFactory.h>

#include <foundation/log/ScopedRecordCollector.h>
#include <foundation/storage/provider/Exception.h>
#include <foundation/storage/provider/IProvider.h>
#include <support/FaultInjectingProvider.h>
#include <support/archives/ArchiveBuilder.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>

namespace {

using namespace kx::test;
using foundation::log::ScopedRecordCollector;
using foundation::log::severity;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;

/// A provider whose container can be made to fail. Records of its archive state are collected.
class KeptArchive : public testing::Test {
protected:
    KeptArchive() {
        storage::zipprovider::ZipProviderFactory factory;
        m_provider = factory.createProvider(
            m_archive.itemOf(std::make_shared<FaultInjectingProvider>(m_archive.memory(), m_plan)));
    }

    /// Writes an entry while calls of this operation on the container fail, and on.
    void saveInVain(ProviderOperation failing) {
        const auto stream = m_provider->openStream(m_archive.at(u"/a.txt"), {});
        writeAll(*stream, "new");
        m_plan->failCall(1, {failing}, FaultPlan::Afterwards::FailsOn);
        EXPECT_THROW(stream->close(), foundation::storage::provider::Exception);
    }

    const WorkingFolder m_temporary;
    const MemoryArchive m_archive{simpleArchive({{"a.txt", "old"}})};
    const std::shared_ptr<FaultPlan> m_plan = std::make_shared<FaultPlan>();
    std::shared_ptr<foundation::storage::provider::IProvider> m_provider;
    const ScopedRecordCollector m_log{severity::info, {"storage::zipprovider::ZipState"}};
};

TEST_F(KeptArchive, IsLoggedWithItsPathWhenTheContainerMayBeHalfWritten) {
    saveInVain(ProviderOperation::StreamWrite);
    // The working file of the entry that is still to be saved is there as well.
    const auto files = m_temporary.files();
    const auto kept = std::find_if(files.begin(), files.end(),
                                   [](const auto& name) { return name.ends_with("sanitized.zip"); });
    ASSERT_NE(kept, files.end());
    EXPECT_THAT(m_log.texts(), Contains("Could not bring the new archive into the container; it is kept as " +
                                        (m_temporary.path() / *kept).string()));
}

TEST_F(KeptArchive, IsNeitherThereNorLoggedWhenTheContainerCouldNotBeOpened) {
    saveInVain(ProviderOperation::OpenStream);
    for (const auto& name : m_temporary.files()) {
        EXPECT_FALSE(name.ends_with(".zip")) << name;
    }
    EXPECT_THAT(m_log.texts(), Not(Contains(HasSubstr("it is kept as"))));
}

} // namespace
