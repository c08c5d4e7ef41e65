#include "LocalFilesTest.h"

#include <array>
#include <random>

namespace kx::test {

using foundation::storage::provider::SeekOrigin;

class LocalFileReading : public LocalFilesTest {};

TEST_F(LocalFileReading, ReadsAndSeeks) {
    const auto bytes = randomBytes(200'000, 1);
    spit(file("a"), bytes);
    const auto stream = files().openReadStream(iri("a"));
    EXPECT_EQ(readAll(*stream), bytes);
    EXPECT_EQ(stream->seek(-10, SeekOrigin::End), 199'990);
    EXPECT_EQ(stream->seek(5, SeekOrigin::Current), 199'995);
    EXPECT_EQ(readAll(*stream), bytes.substr(199'995));
    EXPECT_EQ(stream->seek(1'000'000, SeekOrigin::Begin), 1'000'000);
    std::array<char, 10> buffer{};
    EXPECT_EQ(stream->read(buffer.data(), 10), 0);
    expectError(ErrorCode::InvalidArgument, [&] { stream->seek(-1, SeekOrigin::Begin); });
    expectError(ErrorCode::InvalidArgument,
                [&] { stream->seek(std::numeric_limits<std::int64_t>::max(), SeekOrigin::Current); });
}

TEST_F(LocalFileReading, GivesTheSameBytesWhereverAndInWhateverPiecesItIsRead) {
    const auto bytes = randomBytes(1'000'000, 2);
    spit(file("a"), bytes);
    const auto stream = files().openReadStream(iri("a"));
    std::mt19937 random(4);
    std::string buffer(600'000, '\0');
    std::size_t place = 0;
    for (int step = 0; step < 3000; ++step) {
        if (step % 5 == 0) {
            place = random() % (bytes.size() + 1000);
            stream->seek(static_cast<std::int64_t>(place), SeekOrigin::Begin);
        }
        const auto count = random() % (step % 50 == 0 ? buffer.size() : 5000);
        const auto expected = place < bytes.size() ? bytes.substr(place, count) : std::string();
        ASSERT_EQ(stream->read(buffer.data(), static_cast<std::int64_t>(count)),
                  static_cast<std::int64_t>(expected.size()));
        ASSERT_TRUE(buffer.compare(0, expected.size(), expected) == 0) << "step " << step;
        place += expected.size();
    }
}

TEST_F(LocalFileReading, AReadStreamRefusesToWriteAndAClosedOneToRead) {
    spit(file("a"), "x");
    const auto stream = files().openReadStream(iri("a"));
    expectError(ErrorCode::NotSupported, [&] { stream->write("y", 1); });
    stream->close();
    stream->close();
    char byte = 0;
    expectError(ErrorCode::InvalidArgument, [&] { stream->read(&byte, 1); });
}

TEST_F(LocalFileReading, AReaderKeepsTheOldFileWhileANewOneTakesItsPlace) {
    save("a", "old contents");
    const auto stream = files().openReadStream(iri("a"));
    save("a", "new");
    EXPECT_EQ(readAll(*stream), "old contents");
    EXPECT_EQ(read("a"), "new");
}

TEST_F(LocalFileReading, LeavesNoTraceInFolders) {
    spit(file("a"), "x");
    read("a");
    EXPECT_EQ(namesIn(folder()), std::vector<std::string>{"a"});
    expectNothingLeft();
}

TEST_F(LocalFileReading, StreamsOutliveTheProvider) {
    auto provider = LocalFileProvider::create(options());
    spit(file("a"), "old");
    const auto reading = provider->openReadStream(iri("a"));
    const auto writing = provider->openStream(iri("a"), {});
    provider.reset();
    writeAll(*writing, "new");
    writing->close();
    EXPECT_EQ(readAll(*reading), "old");
    EXPECT_EQ(read("a"), "new");
}

} // namespace kx::test
