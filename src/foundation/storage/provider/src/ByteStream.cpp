#include <foundation/storage/provider/ByteStream.h>

#include <stdexcept>

namespace foundation::storage::provider {

namespace {

void checkBuffer(const char* buffer, std::int64_t count) {
    if (count < 0) {
        throw std::invalid_argument("cannot access stream: negative byte count");
    }
    if (buffer == nullptr && count > 0) {
        throw std::invalid_argument("cannot access stream: no buffer");
    }
}

} // namespace

ByteStream::~ByteStream() = default;

std::int64_t ByteStream::read(char* buffer, std::int64_t count) {
    checkBuffer(buffer, count);
    return doRead(buffer, count);
}

std::int64_t ByteStream::write(const char* buffer, std::int64_t count) {
    checkBuffer(buffer, count);
    return doWrite(buffer, count);
}

std::int64_t ByteStream::seek(std::int64_t offset, SeekOrigin origin) {
    switch (origin) {
    case SeekOrigin::Begin:
    case SeekOrigin::Current:
    case SeekOrigin::End:
        return doSeek(offset, origin);
    }
    throw std::invalid_argument("cannot seek in stream: unknown origin");
}

void ByteStream::close() {
    doClose();
}

} // namespace foundation::storage::provider
