#pragma once

#include <foundation/storage/provider/ByteStream.h>

#include <exception>
#include <memory>
#include <utility>

namespace storage::zipprovider {

/// The container's stream, with its first failure remembered: minizip knows only that a read failed, and
/// would take an archive on a failing disk for a damaged one.
///
/// A seek to a place that does not exist is no failure of the container but of the archive that named the
/// place, so seeks count only to the beginning, the end, the present place, and, once a seek to the end has
/// told where that is, to places from the beginning up to there.
/// Threads: one at a time.
class WatchedByteStream final : public foundation::storage::provider::ByteStream {
public:
    /// Precondition: `target` is not null. `failure` gets the first exception and must outlive the stream.
    WatchedByteStream(std::unique_ptr<ByteStream> target, std::exception_ptr& failure)
        : m_target(std::move(target)), m_failure(failure) {}

protected:
    std::int64_t doRead(char* buffer, std::int64_t count) override;
    std::int64_t doWrite(const char* buffer, std::int64_t count) override;
    std::int64_t doSeek(std::int64_t offset, foundation::storage::provider::SeekOrigin origin) override;
    void doClose() override { m_target->close(); }

private:
    const std::unique_ptr<ByteStream> m_target;
    std::exception_ptr& m_failure;
    std::int64_t m_knownSize = 0;
};

} // namespace storage::zipprovider
