#include "MemoryArchive.h"

#include <storage/zipprovider/src/ZipProviderFactory.h>

#include <foundation/log/ScopedRecordCollector.h>
#include <foundation/storage/provider/Exception.h>
#include <foundation/storage/provider/IProvider.h>
#include <support/archives/ArchiveBuilder.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace {

using namespace kx::test;
using foundation::log::CollectedRecord;
using foundation::log::ScopedRecordCollector;
using foundation::log::severity;
using foundation::storage::provider::ByteStreamOpenOptions;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr auto fileSystem = "storage::zipprovider::ZipFileSystem";
constexpr auto state = "storage::zipprovider::ZipState";
constexpr auto policy = "storage::zipprovider::FlushingPolicy";

/// A provider that was used once, so that later records are those of one operation.
class LoggedProvider : public testing::Test {
protected:
    LoggedProvider() {
        storage::zipprovider::ZipProviderFactory factory;
        m_provider = factory.createProvider(m_archive.item());
        m_provider->isFile(at(u"/a.txt"));
    }

    foundation::storage::provider::StorageIRI at(fl::i18n::ustring_view path) const {
        return m_archive.at(path);
    }

    /// The records of one channel that `work` makes, function scopes reduced to "name path" of their source.
    template <typename Work>
    std::vector<std::string> recordsOf(const std::string& channel, Work work,
                                       severity level = severity::debug) {
        const ScopedRecordCollector log(level, {channel});
        work();
        std::vector<std::string> texts;
        for (const auto& record : log.records()) {
            EXPECT_EQ(record.channel, channel);
            texts.push_back(shortForm(record.text));
        }
        return texts;
    }

    /// "[checkOutEntry] src/storage/…/ZipFileSystem" for the record of a function; all others as they are.
    static std::string shortForm(const std::string& text) {
        const auto source = text.find(" src/storage/");
        const auto parameters = text.find('(');
        const auto name = text.rfind("::", parameters);
        if (source == std::string::npos || name == std::string::npos) {
            return text;
        }
        return "[" + text.substr(name + 2, parameters - name - 2) + "]" +
               text.substr(source, text.rfind(':') - source);
    }

    MemoryArchive m_archive{simpleArchive({{"a.txt", "text"}, {"docs/b.txt", "text"}})};
    std::shared_ptr<foundation::storage::provider::IProvider> m_provider;
};

constexpr auto inFileSystem = " src/storage/zipprovider/src/ZipFileSystem";
constexpr auto inState = " src/storage/zipprovider/src/ZipState";
constexpr auto inPolicy = " src/storage/zipprovider/src/FlushingPolicy";

std::string scope(const std::string& function, const std::string& source) {
    return "[" + function + "]" + source;
}

TEST_F(LoggedProvider, LogsWhatIsAskedOnTheWayToAStreamForReading) {
    EXPECT_THAT(recordsOf(fileSystem, [&] { m_provider->openReadStream(at(u"/a.txt")); }),
                ElementsAre(scope("checkOutEntry", inFileSystem), " path=/a.txt",
                            scope("setAndGetReadOnlyWFE", inFileSystem), " path=/a.txt",
                            scope("setAndGetSharedWorkingFileEntry", inFileSystem),
                            " theFullPath=/a.txt createAnEmptyWFE=0", "Is wfe already in map? 0",
                            scope("buildSharedWorkingFileEntry", inFileSystem)));
}

TEST_F(LoggedProvider, LogsWhetherAWorkingFileIsInTheMapAndStillAlive) {
    auto first = m_provider->openReadStream(at(u"/a.txt"));
    EXPECT_THAT(recordsOf(fileSystem, [&] { m_provider->openReadStream(at(u"/a.txt")); }),
                AllOf(Contains("Is wfe already in map? 1"), Contains("WFE is in map but empty reference?0")));
    first.reset();
    EXPECT_THAT(recordsOf(fileSystem, [&] { m_provider->openReadStream(at(u"/a.txt")); }),
                AllOf(Contains("Is wfe already in map? 1"), Contains("WFE is in map but empty reference?1")));
}

TEST_F(LoggedProvider, LogsWhetherAFileOpenedForWritingIsMadeByThat) {
    const auto open = [&](fl::i18n::ustring_view path) {
        return recordsOf(fileSystem, [&] { m_provider->openStream(at(path), {})->close(); });
    };
    EXPECT_THAT(open(u"/a.txt"),
                ElementsAre(scope("checkOutEntry", inFileSystem), " path=/a.txt",
                            scope("setAndGetWritableWFE", inFileSystem), " path=/a.txt",
                            " fileEntryDoesNotExist=0",
                            scope("setAndGetSharedWorkingFileEntry", inFileSystem),
                            " theFullPath=/a.txt createAnEmptyWFE=0", "Is wfe already in map? 0",
                            scope("buildSharedWorkingFileEntry", inFileSystem),
                            scope("modifiedFileWasClosed", inFileSystem),
                            "About to decrement modifiedInUse and set state changed"));
    const auto created = open(u"/new.txt");
    EXPECT_THAT(created, Contains(" fileEntryDoesNotExist=1"));
    EXPECT_THAT(created, Contains(" theFullPath=/new.txt createAnEmptyWFE=1"));
}

TEST_F(LoggedProvider, LogsTheCountOfWritableStreamsAndTheQuestionWhetherToFlush) {
    EXPECT_THAT(recordsOf(policy,
                          [&] {
                              const auto first = m_provider->openStream(at(u"/a.txt"), {});
                              const auto second = m_provider->openStream(at(u"/docs/b.txt"), {});
                              first->close();
                              second->close();
                          }),
                ElementsAre(scope("incrementModifiedInUse", inPolicy), " m_modifiedInUse=1",
                            scope("incrementModifiedInUse", inPolicy), " m_modifiedInUse=2",
                            scope("decrementModifiedInUse", inPolicy), " m_modifiedInUse=1",
                            scope("setStateChanged", inPolicy), "Trigger a flush if zero modified in use?",
                            scope("decrementModifiedInUse", inPolicy), " m_modifiedInUse=0",
                            scope("setStateChanged", inPolicy), "Trigger a flush if zero modified in use?"));
}

TEST_F(LoggedProvider, LogsWhetherAFlushUpdatesTheArchive) {
    EXPECT_THAT(recordsOf(state, [&] { m_provider->openStream(at(u"/a.txt"), {})->close(); }),
                AllOf(Contains(scope("doFlush", inState)), Contains("Will actually flush and update zip? 1"),
                      Contains(scope("rebuildBasalState", inState))));
    // The provider flushes when it goes, whether there is something to flush or not.
    EXPECT_THAT(recordsOf(state, [&] { m_provider.reset(); }),
                ElementsAre(scope("doFlush", inState), "Will actually flush and update zip? 0"));
}

TEST_F(LoggedProvider, LogsNoQuestionsAtTheLevelOfArguments) {
    const auto records = recordsOf(
        fileSystem, [&] { m_provider->openStream(at(u"/a.txt"), {})->close(); }, severity::info);
    EXPECT_THAT(records, Contains(" path=/a.txt"));
    EXPECT_THAT(records, testing::Not(Contains(HasSubstr("Is wfe"))));
    EXPECT_THAT(records, testing::Not(Contains(HasSubstr("fileEntryDoesNotExist"))));
    EXPECT_THAT(records, testing::Not(Contains(HasSubstr("About to"))));
    EXPECT_THAT(recordsOf(
                    policy, [&] { m_provider->openStream(at(u"/a.txt"), {})->close(); }, severity::info),
                ElementsAre(scope("incrementModifiedInUse", inPolicy), " m_modifiedInUse=1",
                            scope("decrementModifiedInUse", inPolicy), " m_modifiedInUse=0",
                            scope("setStateChanged", inPolicy)));
}

TEST_F(LoggedProvider, MarksEveryScopeThatAnExceptionLeaves) {
    const auto records = recordsOf(fileSystem, [&] {
        EXPECT_THROW(m_provider->openReadStream(at(u"/missing/x")), foundation::storage::provider::Exception);
    });
    EXPECT_THAT(records, ElementsAre(scope("checkOutEntry", inFileSystem), " path=/missing/x",
                                     scope("setAndGetReadOnlyWFE", inFileSystem), " path=/missing/x",
                                     "[throw]", "[throw]"));
}

TEST_F(LoggedProvider, IndentsRecordsByTheScopesAroundThem) {
    const ScopedRecordCollector log(severity::debug, {fileSystem});
    m_provider->openReadStream(at(u"/a.txt"));
    std::vector<unsigned> indents;
    for (const auto& record : log.records()) {
        indents.push_back(record.indent);
    }
    EXPECT_THAT(indents, ElementsAre(0, 1, 1, 2, 2, 3, 3, 3));
}

TEST_F(LoggedProvider, OpensAScopeForEveryChangeOfTheTree) {
    using foundation::storage::provider::MoveOption;
    const auto scopesOf = [&](auto work) {
        auto records = recordsOf(fileSystem, work, severity::info);
        std::erase_if(records, [](const std::string& record) { return record.front() != '['; });
        return records;
    };
    EXPECT_THAT(scopesOf([&] { m_provider->createFolder(at(u"/d")); }),
                ElementsAre(scope("createFolder", inFileSystem)));
    EXPECT_THAT(
        scopesOf([&] { m_provider->moveFile(at(u"/a.txt"), at(u"/d/a.txt"), MoveOption::FailIfExists); }),
        ElementsAre(scope("moveFile", inFileSystem)));
    EXPECT_THAT(scopesOf([&] { m_provider->moveFolder(at(u"/d"), at(u"/e"), MoveOption::FailIfExists); }),
                ElementsAre(scope("moveFolder", inFileSystem)));
    EXPECT_THAT(scopesOf([&] { m_provider->removeFile(at(u"/e/a.txt")); }),
                ElementsAre(scope("removeFile", inFileSystem)));
    EXPECT_THAT(scopesOf([&] { m_provider->removeFolder(at(u"/e")); }),
                ElementsAre(scope("removeFolder", inFileSystem)));
}

TEST_F(LoggedProvider, LogsNothingUntilItIsSwitchedOn) {
    m_provider->openStream(at(u"/a.txt"), {})->close();
    const ScopedRecordCollector log;
    EXPECT_THAT(log.records(), IsEmpty());
}

TEST_F(LoggedProvider, BehavesTheSameWhileEverythingIsLogged) {
    const ScopedRecordCollector log;
    writeFile(*m_provider, at(u"/docs/new.txt"), "new text");
    writeFile(*m_provider, at(u"/a.txt"), " and more", ByteStreamOpenOptions::append());
    EXPECT_EQ(readFile(*m_provider, at(u"/docs/new.txt")), "new text");
    EXPECT_EQ(readFile(*m_provider, at(u"/a.txt")), "text and more");
    std::vector<std::string> channels;
    for (const auto& record : log.records()) {
        channels.push_back(record.channel);
    }
    std::sort(channels.begin(), channels.end());
    channels.erase(std::unique(channels.begin(), channels.end()), channels.end());
    EXPECT_THAT(channels, ElementsAre(policy, "storage::zipprovider::WorkingFileByteStream",
                                      "storage::zipprovider::WorkingFileEntry", fileSystem, state));
}

} // namespace
