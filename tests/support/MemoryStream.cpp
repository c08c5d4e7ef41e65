#include "MemoryStream.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace kx::test {

using provider::ErrorCode;
using provider::Exception;
using provider::SeekOrigin;

MemoryStream::MemoryStream(std::shared_ptr<MemoryStore> store, provider::StorageIRI location,
                           const MemoryStore::OpenedFile& opened)
    : m_store(std::move(store)), m_location(std::move(location)), m_file(opened.file), m_created(false),
      m_readable(true), m_writable(false), m_append(false), m_bytes(opened.bytes) {
    m_store->streamOpened();
}

MemoryStream::MemoryStream(std::shared_ptr<MemoryStore> store, provider::StorageIRI location,
                           const MemoryStore::OpenedFile& opened,
                           const provider::ByteStreamOpenOptions& options)
    : m_store(std::move(store)), m_location(std::move(location)), m_file(opened.file),
      m_created(opened.created), m_readable(options.access == provider::StreamAccess::ReadWrite),
      m_writable(true), m_append(options.positioning == provider::StreamPositioning::Append) {
    if (options.truncation == provider::StreamTruncation::Keep) {
        m_changed = *opened.bytes;
    }
    m_store->streamOpened();
}

MemoryStream::~MemoryStream() {
    if (m_state == State::Open && m_created) {
        m_store->discardCreated(*m_file);
    }
    m_store->streamDestroyed();
}

std::int64_t MemoryStream::doRead(char* buffer, std::int64_t count) {
    enter(ProviderOperation::StreamRead);
    if (!m_readable) {
        throw Exception(ErrorCode::InvalidArgument, m_location, "the stream is open for writing only");
    }
    const auto begin = std::min(m_position, bytes().size());
    const auto got = std::min(static_cast<std::size_t>(count), bytes().size() - begin);
    std::copy_n(bytes().data() + begin, got, buffer);
    m_position += got;
    return static_cast<std::int64_t>(got);
}

std::int64_t MemoryStream::doWrite(const char* buffer, std::int64_t count) {
    enter(ProviderOperation::StreamWrite);
    if (!m_writable) {
        throw Exception(ErrorCode::InvalidArgument, m_location, "the stream is open for reading only");
    }
    m_position = m_append ? m_changed.size() : m_position;
    const auto end = m_position + static_cast<std::size_t>(count);
    if (count > 0) {
        m_changed.resize(std::max(m_changed.size(), end));
        std::copy_n(buffer, count, m_changed.data() + m_position);
    }
    m_position = end;
    return count;
}

std::int64_t MemoryStream::doSeek(std::int64_t offset, SeekOrigin origin) {
    enter(ProviderOperation::StreamSeek);
    const auto from = static_cast<std::int64_t>(origin == SeekOrigin::Begin     ? 0
                                                : origin == SeekOrigin::Current ? m_position
                                                                                : bytes().size());
    if (offset < -from || offset > std::numeric_limits<std::int64_t>::max() - from) {
        throw Exception(ErrorCode::InvalidArgument, m_location, "the position lies outside of any file");
    }
    m_position = static_cast<std::size_t>(from + offset);
    return from + offset;
}

void MemoryStream::doClose() {
    m_store->count(ProviderOperation::StreamClose);
    if (std::exchange(m_state, State::Closed) == State::Open && m_writable) {
        m_store->commit(*m_file, std::move(m_changed));
    }
}

void MemoryStream::enter(ProviderOperation operation) const {
    m_store->count(operation);
    if (m_state != State::Open) {
        throw Exception(ErrorCode::InvalidArgument, m_location, "the stream is closed");
    }
}

} // namespace kx::test
