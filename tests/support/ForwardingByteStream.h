#pragma once

#include <foundation/storage/provider/ByteStream.h>

#include <memory>
#include <utility>

namespace kx::test {

/// Hands every operation on to another stream, which it owns; a base for streams that change a few.
class ForwardingByteStream : public foundation::storage::provider::ByteStream {
public:
    /// Precondition: `target` is not null.
    explicit ForwardingByteStream(std::unique_ptr<ByteStream> target) : m_target(std::move(target)) {}

protected:
    std::int64_t doRead(char* buffer, std::int64_t count) override { return m_target->read(buffer, count); }
    std::int64_t doWrite(const char* buffer, std::int64_t count) override {
        return m_target->write(buffer, count);
    }
    std::int64_t doSeek(std::int64_t offset, foundation::storage::provider::SeekOrigin origin) override {
        return m_target->seek(offset, origin);
    }
    void doClose() override { m_target->close(); }

private:
    const std::unique_ptr<ByteStream> m_target;
};

} // namespace kx::test
