#include "LocalFilesTest.h"

#include <storage/fileprovider/src/SystemCalls.h>

#include <array>

namespace kx::test {

using foundation::storage::provider::SeekOrigin;

class LocalFileReading : public LocalFilesTest {};

TEST_F(LocalFileReading, TakesFewSystemCallsInSequenceAndLittleMoreThanAskedForElsewhere) {
    class CountedReads : public storage::fileprovider::SystemCalls {
    public:
        ssize_t read(int from, char* buffer, std::size_t count, off_t position) override {
            const auto got = SystemCalls::read(from, buffer, count, position);
            calls += 1;
            bytes += got > 0 ? got : 0;
            return got;
        }
        int calls = 0;
        ssize_t bytes = 0;
    };
    spit(file("a"), std::string(10'000'000, 'a'));
    const auto counted = std::make_shared<CountedReads>();
    const auto stream = LocalFileProvider::create(options(counted))->openReadStream(iri("a"));
    std::array<char, 1000> buffer{};
    counted->calls = 0;
    while (stream->read(buffer.data(), buffer.size()) > 0) {
    }
    EXPECT_LT(counted->calls, 60);
    counted->bytes = 0;
    for (int i = 0; i < 100; ++i) {
        stream->seek(i * 100'000, SeekOrigin::Begin);
        stream->read(buffer.data(), buffer.size());
    }
    EXPECT_LE(counted->bytes, 100 * 8192);
}

} // namespace kx::test
