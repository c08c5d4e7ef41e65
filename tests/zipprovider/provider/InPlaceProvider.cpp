#include "InPlaceProvider.h"

#include <utility>

namespace kx::test {

namespace {

/// Every write goes through a stream of its own that is closed at once.
class InPlaceStream final : public provider::ByteStream {
public:
    InPlaceStream(std::shared_ptr<provider::IProvider> target, provider::StorageIRI location,
                  const provider::ByteStreamOpenOptions& options)
        : m_target(std::move(target)), m_location(std::move(location)), m_options(options) {
        m_target->openStream(m_location, m_options)->close();
        m_options.truncation = provider::StreamTruncation::Keep;
    }

private:
    std::int64_t doRead(char* buffer, std::int64_t count) override {
        const auto stream = m_target->openReadStream(m_location);
        stream->seek(m_position, provider::SeekOrigin::Begin);
        const auto got = stream->read(buffer, count);
        m_position += got;
        return got;
    }
    std::int64_t doWrite(const char* buffer, std::int64_t count) override {
        const auto stream = m_target->openStream(m_location, m_options);
        stream->seek(m_position, provider::SeekOrigin::Begin);
        stream->write(buffer, count);
        m_position = stream->seek(0, provider::SeekOrigin::Current);
        stream->close();
        return count;
    }
    std::int64_t doSeek(std::int64_t offset, provider::SeekOrigin origin) override {
        const auto stream = m_target->openReadStream(m_location);
        stream->seek(m_position, provider::SeekOrigin::Begin);
        return m_position = stream->seek(offset, origin);
    }
    void doClose() override {}

    const std::shared_ptr<provider::IProvider> m_target;
    const provider::StorageIRI m_location;
    provider::ByteStreamOpenOptions m_options;
    std::int64_t m_position = 0;
};

} // namespace

std::unique_ptr<provider::ByteStream>
InPlaceProvider::doOpenStream(const provider::StorageIRI& location,
                              const provider::ByteStreamOpenOptions& options) {
    return std::make_unique<InPlaceStream>(target(), location, options);
}

} // namespace kx::test
