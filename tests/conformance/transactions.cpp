#include "ProviderConformance.h"

#include <support/contents.h>

namespace kx::test {

using provider::SeekOrigin;
using provider::StreamAccess;
using provider::StreamDisposition;
using provider::StreamPositioning;
using provider::StreamTruncation;

namespace {

using Opener = std::function<std::unique_ptr<provider::ByteStream>(const provider::StorageIRI&,
                                                                   const provider::ByteStreamOpenOptions&)>;

/// Both ways of opening a transactional stream; the scratch folder is "scratch" in the root.
std::vector<Opener> openers(ProviderUnderTest& tested) {
    return {[&tested](const auto& location, const auto& options) {
                return tested.get().openTransactionalStream(location, options);
            },
            [&tested](const auto& location, const auto& options) {
                return tested.get().openTransactionalStreamAtScratchLocation(
                    location, tested.root().child(u"scratch"), options);
            }};
}

} // namespace

TEST_P(TransactionConformance, NewContentsAppearWhenTheStreamIsClosed) {
    makeFolder(u"scratch");
    for (const auto& open : openers(tested())) {
        write(u"a", "old");
        const auto stream = open(at(u"a"), Options::overwrite());
        writeAll(*stream, "new contents");
        EXPECT_EQ(read(u"a"), "old");
        stream->close();
        EXPECT_EQ(read(u"a"), "new contents");
        EXPECT_NO_THROW(stream->close());
        EXPECT_EQ(names(u"scratch"), Names{});
    }
    tested().reopen();
    EXPECT_EQ(read(u"a"), "new contents");
}

TEST_P(TransactionConformance, ANewFileAppearsWhenTheStreamIsClosed) {
    makeFolder(u"scratch");
    for (const auto& open : openers(tested())) {
        const auto stream = open(at(u"a"), Options::overwrite());
        writeAll(*stream, "contents");
        EXPECT_FALSE(storage().exists(at(u"a")));
        stream->close();
        EXPECT_EQ(read(u"a"), "contents");
        storage().removeFile(at(u"a"));
    }
    EXPECT_EQ(names(), Names{u"scratch"});
}

TEST_P(TransactionConformance, AStreamDestroyedWithoutCloseLeavesNoTrace) {
    makeFolder(u"scratch");
    write(u"a", "old");
    for (const auto& open : openers(tested())) {
        writeAll(*open(at(u"a"), Options::overwrite()), "new");
        writeAll(*open(at(u"a"), Options::append()), "new");
        writeAll(*open(at(u"b"), Options::overwrite()), "new");
    }
    EXPECT_EQ(read(u"a"), "old");
    EXPECT_EQ(storage().listAllRecursiveNamesOnly(tested().root()), (Names{u"a", u"scratch"}));
}

TEST_P(TransactionConformance, KeptContentsAreThereToBeginWith) {
    makeFolder(u"scratch");
    for (const auto& open : openers(tested())) {
        write(u"a", "0123456789");
        const auto changing = open(at(u"a"), Options::modify());
        writeAll(*changing, "ab");
        EXPECT_EQ(changing->seek(0, SeekOrigin::Current), 2);
        EXPECT_EQ(readAll(*changing), "23456789");
        changing->seek(-1, SeekOrigin::End);
        writeAll(*changing, "yz");
        changing->close();
        EXPECT_EQ(read(u"a"), "ab2345678yz");

        const auto appending = open(at(u"a"), Options::append());
        writeAll(*appending, "!");
        appending->seek(0, SeekOrigin::Begin);
        writeAll(*appending, "?");
        appending->close();
        EXPECT_EQ(read(u"a"), "ab2345678yz!?");
    }
}

TEST_P(TransactionConformance, AGapReadsAsZeros) {
    makeFolder(u"scratch");
    for (const auto& open : openers(tested())) {
        const auto stream = open(at(u"a"), Options::overwrite());
        stream->seek(3, SeekOrigin::Begin);
        writeAll(*stream, "x");
        stream->close();
        EXPECT_EQ(read(u"a"), (std::string{'\0', '\0', '\0', 'x'}));
    }
}

TEST_P(TransactionConformance, LargeContentsArriveWhole) {
    makeFolder(u"scratch");
    const auto bytes = randomBytes(tested().traits().largeFile, 11);
    for (const auto& open : openers(tested())) {
        const auto stream = open(at(u"a"), Options::overwrite());
        writeAll(*stream, bytes);
        stream->close();
        EXPECT_TRUE(read(u"a") == bytes);
    }
}

TEST_P(TransactionConformance, OpeningFailsAsOpeningForWritingDoes) {
    makeFolder(u"scratch");
    makeFolder(u"f");
    auto contradiction = Options::append();
    contradiction.truncation = StreamTruncation::Truncate;
    for (const auto& open : openers(tested())) {
        expectError(
            ErrorCode::AlreadyExists, [&] { open(at(u"f"), Options::overwrite()); }, at(u"f"));
        expectError(
            ErrorCode::NotFound, [&] { open(at(u"no/a"), Options::overwrite()); }, at(u"no/a"));
        expectError(
            ErrorCode::NotFound, [&] { open(at(u"a"), Options::modify()); }, at(u"a"));
        EXPECT_ANY_THROW(open(at(u"a"), contradiction));
    }
    EXPECT_EQ(storage().listAllRecursiveNamesOnly(tested().root()), (Names{u"f", u"scratch"}));
}

TEST_P(TransactionConformance, AMissingScratchFolderIsAnError) {
    write(u"file", "x");
    for (const auto* scratch : {u"no", u"file"}) {
        expectError(
            ErrorCode::NotFound,
            [&] {
                storage().openTransactionalStreamAtScratchLocation(at(u"a"), at(scratch),
                                                                   Options::overwrite());
            },
            at(scratch));
    }
    EXPECT_EQ(names(), Names{u"file"});
}

TEST_P(TransactionConformance, AClosedStreamCanOnlyBeClosed) {
    makeFolder(u"scratch");
    for (const auto& open : openers(tested())) {
        const auto stream = open(at(u"a"), {StreamAccess::ReadWrite});
        stream->close();
        char byte = 'x';
        EXPECT_ANY_THROW(stream->write(&byte, 1));
        EXPECT_ANY_THROW(stream->read(&byte, 1));
        EXPECT_ANY_THROW(stream->seek(0, SeekOrigin::Begin));
    }
    EXPECT_EQ(read(u"a"), "");
}

TEST_P(TransactionConformance, ADestinationThatBecameImpossibleFailsAtClose) {
    makeFolder(u"scratch");
    for (const auto& open : openers(tested())) {
        makeFolder(u"f");
        const auto stream = open(at(u"f/a"), Options::overwrite());
        writeAll(*stream, "x");
        try {
            storage().removeFolder(at(u"f"));
        } catch (const provider::Exception& failure) {
            EXPECT_FALSE(tested().traits().removesFoldersOfOpenFiles) << failure.what();
            EXPECT_EQ(failure.getErrorCode(), ErrorCode::Busy);
            stream->close();
            EXPECT_EQ(read(u"f/a"), "x");
            storage().removeFolderRecursively(at(u"f"));
            continue;
        }
        expectError(ErrorCode::NotFound, [&] { stream->close(); });
        EXPECT_NO_THROW(stream->close());
        EXPECT_EQ(storage().listAllRecursiveNamesOnly(tested().root()), Names{u"scratch"});
    }
}

} // namespace kx::test
