#pragma once

#include "ScratchFile.h"

#include <foundation/storage/provider/ByteStream.h>
#include <foundation/storage/provider/ByteStreamOpenOptions.h>
#include <foundation/storage/provider/StorageIRI.h>

#include <memory>

namespace foundation::storage::provider {
class IProvider;
}

namespace foundation::storage::provider::detail {

/// Throws what IProvider::openStream would throw for this location, without opening it.
void checkDestination(IProvider& provider, const StorageIRI& location, const ByteStreamOpenOptions& options);

/// A stream into a local temporary file, which close() puts in place.
class TransactionalStream final : public ByteStream {
public:
    /// Precondition: checkDestination returned.
    TransactionalStream(std::shared_ptr<IProvider> provider, StorageIRI location,
                        const ByteStreamOpenOptions& options);

private:
    enum class State { Open, Closed };

    std::int64_t doRead(char* buffer, std::int64_t count) override;
    std::int64_t doWrite(const char* buffer, std::int64_t count) override;
    std::int64_t doSeek(std::int64_t offset, SeekOrigin origin) override;
    void doClose() override;

    void checkOpen() const;
    void takeOverContents();
    void putInPlace();

    const std::shared_ptr<IProvider> m_provider;
    const StorageIRI m_location;
    const ByteStreamOpenOptions m_options;

    ScratchFile m_file;
    std::uint64_t m_position = 0;
    State m_state = State::Open;
};

} // namespace foundation::storage::provider::detail
