#include "ReadFailures.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace kx::test;
using namespace storage::zipprovider;

TEST(ReadHandle, OpensAnArchiveThroughTheContainersStream) {
    const auto script = scriptOf(simpleArchive({{"a", "text"}}));
    const auto handle = openArchive(script);
    EXPECT_TRUE(handle->isOpen());
    EXPECT_EQ(script->alive, 1);
    EXPECT_EQ(script->closes, 0);
}

TEST(ReadHandle, ClosesTheContainersStreamWhenTheLastOfItsUsersGoes) {
    const auto script = scriptOf(simpleArchive({{"a", "text"}}));
    auto handle = openArchive(script);
    auto enumerator = std::make_unique<Enumerator>(handle);
    auto source = std::make_unique<EntrySource>(handle, ZipEntryPath(u"a"));
    handle.reset();
    EXPECT_TRUE(enumerator->next().has_value());
    enumerator.reset();
    EXPECT_EQ(contentsOf(*source), "text");
    EXPECT_EQ(script->closes, 0);
    source.reset();
    EXPECT_EQ(script->closes, 1);
    EXPECT_EQ(script->alive, 0);
}

TEST(ReadHandle, CanBeClosedExplicitlyAndClosedAgain) {
    const auto script = scriptOf(simpleArchive({{"a", "text"}}));
    const auto handle = openArchive(script);
    handle->close();
    EXPECT_FALSE(handle->isOpen());
    EXPECT_EQ(script->closes, 1);
    EXPECT_NO_THROW(handle->close());
    EXPECT_EQ(script->closes, 1);
}

TEST(ReadHandle, SwallowsAStreamThatCannotBeClosed) {
    const auto script = scriptOf(simpleArchive({{"a", "text"}}));
    script->failClose = true;
    EXPECT_NO_THROW(openArchive(script));
    EXPECT_EQ(script->alive, 0);
}

TEST(ReadHandle, OverNoArchiveStaysNullAndTheFirstUseFailsWithItsOwnMessage) {
    for (const std::string bytes : {"", "no archive", "PK\x05\x06"}) {
        const auto handle = openArchive(bytes);
        EXPECT_FALSE(handle->isOpen());
        EXPECT_EQ(failureOf([&] { Enumerator(handle).goToFirstFileEntry(); }),
                  "Error while calling unzGoToFirstFile in MiniZipEntryEnumerator::goToFirstFileEntry");
        EXPECT_EQ(
            failureOf([&] { Enumerator(handle).getCurrentEntryInfo(); }),
            "Error while calling unzGetCurrentFileInfo64 in MiniZipEntryEnumerator::getCurrentEntryInfo");
        EXPECT_EQ(failureOf([&] { EntrySource(handle, ZipEntryPath(u"a")); }), locateFailed);
        EXPECT_FALSE(Enumerator(handle).next().has_value());
        EXPECT_NO_THROW(handle->close());
    }
}

TEST(ReadHandle, OverAStreamThatThrowsStaysNull) {
    const auto script = scriptOf(simpleArchive({{"a", "text"}}));
    script->failReads = true;
    EXPECT_FALSE(openArchive(script)->isOpen());
    script->failReads = false;
    script->failSeeks = true;
    EXPECT_FALSE(openArchive(script)->isOpen());
    EXPECT_EQ(script->alive, 0);
}

TEST(ReadHandle, WorksOverAStreamThatReadsByteByByte) {
    const auto script = scriptOf(simpleArchive({{"a", "text"}, {"b", std::string(9000, 'b')}}));
    script->longestRead = 1;
    const auto handle = openArchive(script);
    EXPECT_EQ(EntryInfos(handle).size(), 2u);
    EntrySource source(handle, ZipEntryPath(u"b"));
    EXPECT_EQ(contentsOf(source), std::string(9000, 'b'));
}

} // namespace
