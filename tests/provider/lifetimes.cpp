#include <foundation/storage/provider/Exception.h>
#include <support/InMemoryProvider.h>
#include <support/TemporaryFolder.h>
#include <support/contents.h>

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <utility>

#include <sys/resource.h>

namespace kx::test {

namespace {

using namespace foundation::storage::provider;
namespace fs = std::filesystem;

/// Local temporary files go to a folder of the test's own.
class TransactionalFiles : public testing::Test {
protected:
    TransactionalFiles() { ::setenv("TMPDIR", m_temporary.path().c_str(), 1); }
    ~TransactionalFiles() override { ::unsetenv("TMPDIR"); }

    std::size_t temporaryFiles() const {
        return static_cast<std::size_t>(
            std::distance(fs::directory_iterator(m_temporary.path()), fs::directory_iterator()));
    }
    const TemporaryFolder& temporary() const { return m_temporary; }

private:
    const TemporaryFolder m_temporary;
};

TEST_F(TransactionalFiles, TheTemporaryFileIsPrivateAndGoesWithTheStream) {
    InMemoryProvider memory;
    auto stream = memory.openTransactionalStream(memory.at(u"/a"), ByteStreamOpenOptions::overwrite());
    writeAll(*stream, "secret");
    ASSERT_EQ(temporaryFiles(), 1U);
    const auto file = fs::directory_iterator(temporary().path())->path();
    EXPECT_EQ(fs::status(file).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_EQ(fs::file_size(file), 6U);
    stream->close();
    stream.reset();
    EXPECT_EQ(temporaryFiles(), 0U);

    memory.openTransactionalStream(memory.at(u"/b"), ByteStreamOpenOptions::overwrite());
    EXPECT_EQ(temporaryFiles(), 0U);
}

TEST_F(TransactionalFiles, AFullDiskIsReportedAsSuchAndTheFileStaysAsItWas) {
    InMemoryProvider memory;
    writeFile(memory, memory.at(u"/a"), "old");
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
    const auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
    const rlimit small{100'000, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    const auto stream = memory.openTransactionalStream(memory.at(u"/a"), ByteStreamOpenOptions::overwrite());
    try {
        writeAll(*stream, std::string(200'000, 'x'));
        ADD_FAILURE() << "nothing was thrown";
    } catch (const Exception& failure) {
        EXPECT_EQ(failure.getErrorCode(), ErrorCode::NoSpace);
        EXPECT_EQ(failure.getIRI(), memory.at(u"/a"));
        EXPECT_NE(failure.getCause().find(temporary().path().string()), std::string::npos) << failure.what();
    }
    ::setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, oldHandler);
    EXPECT_EQ(readFile(memory, memory.at(u"/a")), "old");
}

TEST_F(TransactionalFiles, AStreamKeepsASharedProviderAlive) {
    const auto store = std::make_shared<InMemoryProvider>();
    std::weak_ptr<IProvider> watch;
    for (const bool scratch : {false, true}) {
        auto provider = std::make_shared<InMemoryProvider>();
        watch = provider;
        const auto location = provider->at(u"/a");
        auto stream =
            scratch ? provider->openTransactionalStreamAtScratchLocation(location, provider->at(u"/"),
                                                                         ByteStreamOpenOptions::overwrite())
                    : provider->openTransactionalStream(location, ByteStreamOpenOptions::overwrite());
        provider.reset();
        ASSERT_FALSE(watch.expired());
        writeAll(*stream, "contents");
        stream->close();
        EXPECT_EQ(readFile(*watch.lock(), location), "contents");
        stream.reset();
        EXPECT_TRUE(watch.expired());
    }
}

TEST_F(TransactionalFiles, AStreamForWritingOnlyRefusesToBeReadAndDeliversAllTheSame) {
    InMemoryProvider memory;
    const auto stream = memory.openTransactionalStream(memory.at(u"/a"), ByteStreamOpenOptions::overwrite());
    writeAll(*stream, "contents");
    stream->seek(0, SeekOrigin::Begin);
    char byte = 'x';
    try {
        stream->read(&byte, 1);
        ADD_FAILURE() << "it was read";
    } catch (const Exception& failure) {
        EXPECT_EQ(failure.getErrorCode(), ErrorCode::InvalidArgument);
        EXPECT_EQ(failure.getIRI(), memory.at(u"/a"));
        EXPECT_EQ(failure.getCause(), "the stream is open for writing only");
    }
    EXPECT_EQ(byte, 'x');
    stream->close();
    EXPECT_EQ(readFile(memory, memory.at(u"/a")), "contents");
}

TEST_F(TransactionalFiles, APositionOutsideOfAnyFileIsRefusedAndThePositionStays) {
    constexpr auto furthest = std::numeric_limits<std::int64_t>::max();
    constexpr auto nearest = std::numeric_limits<std::int64_t>::min();
    InMemoryProvider memory;
    writeFile(memory, memory.at(u"/a"), "0123456789");
    const auto stream = memory.openTransactionalStream(memory.at(u"/a"), ByteStreamOpenOptions::modify());
    ASSERT_EQ(stream->seek(4, SeekOrigin::Begin), 4);
    const std::pair<std::int64_t, SeekOrigin> outside[] = {
        {-1, SeekOrigin::Begin},        {nearest, SeekOrigin::Begin},    {-5, SeekOrigin::Current},
        {nearest, SeekOrigin::Current}, {furthest, SeekOrigin::Current}, {furthest - 3, SeekOrigin::Current},
        {-11, SeekOrigin::End},         {furthest, SeekOrigin::End},     {furthest - 9, SeekOrigin::End},
    };
    for (const auto& [offset, origin] : outside) {
        SCOPED_TRACE(std::to_string(offset) + " from " + std::to_string(static_cast<int>(origin)));
        try {
            stream->seek(offset, origin);
            ADD_FAILURE() << "it was accepted";
        } catch (const Exception& failure) {
            EXPECT_EQ(failure.getErrorCode(), ErrorCode::InvalidArgument);
            EXPECT_EQ(failure.getCause(), "the position lies outside of any file");
        }
        EXPECT_EQ(stream->seek(0, SeekOrigin::Current), 4);
    }
    EXPECT_EQ(stream->seek(-10, SeekOrigin::End), 0);
    EXPECT_EQ(stream->seek(furthest - 10, SeekOrigin::End), furthest);
    EXPECT_EQ(stream->seek(-furthest, SeekOrigin::Current), 0);
    EXPECT_EQ(readAll(*stream), "0123456789");
}

TEST(Lifetimes, StreamsAndListingsOutliveTheProvider) {
    auto memory = std::make_unique<InMemoryProvider>();
    const auto root = memory->at(u"/");
    memory->createFolder(root.child(u"f"));
    writeFile(*memory, root.child(u"f").child(u"a"), "contents");
    const auto reader = memory->openReadStream(root.child(u"f").child(u"a"));
    const auto writer = memory->openStream(root.child(u"b"), ByteStreamOpenOptions::overwrite());
    const auto all = memory->listAll(root);
    const auto recursive = memory->listAllRecursive(root);
    const auto wildcards = memory->listAllWildcards(root, u"*");
    const auto compare = memory->getPathComparator();
    memory.reset();

    EXPECT_EQ(readAll(*reader), "contents");
    EXPECT_NO_THROW(writer->close());
    EXPECT_EQ(listNames(*all).size(), 2U);
    EXPECT_EQ(listNames(*recursive).size(), 3U);
    EXPECT_EQ(listNames(*wildcards).size(), 2U);
    EXPECT_LT(compare(u"/a", u"/b"), 0);
}

} // namespace

} // namespace kx::test
