#include "TransactionalStream.h"

#include "StreamCopy.h"

#include <foundation/storage/provider/Exception.h>
#include <foundation/storage/provider/IProvider.h>

#include <algorithm>
#include <limits>
#include <utility>
#include <vector>

namespace foundation::storage::provider::detail {

void checkDestination(IProvider& provider, const StorageIRI& location, const ByteStreamOpenOptions& options) {
    if (options.truncation == StreamTruncation::Truncate &&
        options.positioning == StreamPositioning::Append) {
        throw Exception(ErrorCode::InvalidArgument, location, "truncating and appending exclude each other");
    }
    if (provider.isFolder(location)) {
        throw Exception(ErrorCode::AlreadyExists, location, "a folder of this name exists");
    }
    bool writable = false;
    if (provider.isFile(location)) {
        writable = provider.getFileAttributes(location).isWritable();
    } else {
        const auto folder = location.parent();
        if (options.disposition == StreamDisposition::OpenExisting || !provider.isFolder(folder)) {
            throw Exception(ErrorCode::NotFound, location);
        }
        writable = provider.getFolderAttributes(folder).isWritable();
    }
    if (!writable) {
        throw Exception(ErrorCode::NotWritable, location);
    }
}

TransactionalStream::TransactionalStream(std::shared_ptr<IProvider> provider, StorageIRI location,
                                         const ByteStreamOpenOptions& options)
    : m_provider(std::move(provider)), m_location(std::move(location)), m_options(options),
      m_file(m_location) {
    if (m_options.truncation == StreamTruncation::Keep && m_provider->isFile(m_location)) {
        takeOverContents();
    }
}

std::int64_t TransactionalStream::doRead(char* buffer, std::int64_t count) {
    checkOpen();
    if (m_options.access != StreamAccess::ReadWrite) {
        throw Exception(ErrorCode::InvalidArgument, m_location, "the stream is open for writing only");
    }
    const auto got = m_file.readAt(m_position, buffer, count);
    m_position += static_cast<std::uint64_t>(got);
    return got;
}

std::int64_t TransactionalStream::doWrite(const char* buffer, std::int64_t count) {
    checkOpen();
    if (m_options.positioning == StreamPositioning::Append) {
        m_position = m_file.size();
    }
    m_file.writeAt(m_position, buffer, count);
    m_position += static_cast<std::uint64_t>(count);
    return count;
}

std::int64_t TransactionalStream::doSeek(std::int64_t offset, SeekOrigin origin) {
    checkOpen();
    const std::uint64_t from = origin == SeekOrigin::Begin     ? 0
                               : origin == SeekOrigin::Current ? m_position
                                                               : m_file.size();
    // Positions are at most the greatest signed number, so that neither sum leaves the unsigned range.
    const auto base = static_cast<std::int64_t>(from);
    if (offset < -base || offset > std::numeric_limits<std::int64_t>::max() - base) {
        throw Exception(ErrorCode::InvalidArgument, m_location, "the position lies outside of any file");
    }
    m_position = static_cast<std::uint64_t>(base + offset);
    return base + offset;
}

void TransactionalStream::doClose() {
    if (std::exchange(m_state, State::Closed) == State::Open) {
        putInPlace();
    }
}

void TransactionalStream::checkOpen() const {
    if (m_state != State::Open) {
        throw Exception(ErrorCode::InvalidArgument, m_location, "the stream is closed");
    }
}

void TransactionalStream::takeOverContents() {
    const auto source = m_provider->openReadStream(m_location);
    std::vector<char> buffer(std::size_t{64} * 1024);
    std::uint64_t position = 0;
    while (const auto got = source->read(buffer.data(), static_cast<std::int64_t>(buffer.size()))) {
        m_file.writeAt(position, buffer.data(), got);
        position += static_cast<std::uint64_t>(got);
    }
    source->close();
}

void TransactionalStream::putInPlace() {
    const auto destination =
        m_provider->openStream(m_location, {StreamAccess::Write, m_options.disposition,
                                            StreamTruncation::Truncate, StreamPositioning::Position});
    std::vector<char> buffer(std::size_t{64} * 1024);
    std::uint64_t position = 0;
    while (const auto got =
               m_file.readAt(position, buffer.data(), static_cast<std::int64_t>(buffer.size()))) {
        destination->write(buffer.data(), got);
        position += static_cast<std::uint64_t>(got);
    }
    destination->close();
}

} // namespace foundation::storage::provider::detail
