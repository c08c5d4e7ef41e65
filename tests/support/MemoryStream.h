#pragma once

#include "MemoryStore.h"

#include <foundation/storage/provider/ByteStream.h>
#include <foundation/storage/provider/ByteStreamOpenOptions.h>

namespace kx::test {

/// A stream of an InMemoryProvider.
class MemoryStream final : public provider::ByteStream {
public:
    /// For reading.
    MemoryStream(std::shared_ptr<MemoryStore> store, provider::StorageIRI location,
                 const MemoryStore::OpenedFile& opened);
    /// For writing.
    MemoryStream(std::shared_ptr<MemoryStore> store, provider::StorageIRI location,
                 const MemoryStore::OpenedFile& opened, const provider::ByteStreamOpenOptions& options);
    ~MemoryStream() override;

private:
    enum class State { Open, Closed };

    std::int64_t doRead(char* buffer, std::int64_t count) override;
    std::int64_t doWrite(const char* buffer, std::int64_t count) override;
    std::int64_t doSeek(std::int64_t offset, provider::SeekOrigin origin) override;
    void doClose() override;

    const std::string& bytes() const { return m_writable ? m_changed : *m_bytes; }
    void enter(ProviderOperation operation) const;

    const std::shared_ptr<MemoryStore> m_store;
    const provider::StorageIRI m_location;
    const std::shared_ptr<MemoryFile> m_file;
    const bool m_created;
    const bool m_readable;
    const bool m_writable;
    const bool m_append;

    /// What a stream for reading shows.
    std::shared_ptr<const std::string> m_bytes;
    /// What a stream for writing puts in place.
    std::string m_changed;
    std::size_t m_position = 0;
    State m_state = State::Open;
};

} // namespace kx::test
