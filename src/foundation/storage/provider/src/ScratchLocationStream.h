#pragma once

#include <foundation/storage/provider/ByteStream.h>
#include <foundation/storage/provider/ByteStreamOpenOptions.h>
#include <foundation/storage/provider/StorageIRI.h>

#include <memory>

namespace foundation::storage::provider {
class IProvider;
}

namespace foundation::storage::provider::detail {

/// A stream into a new file in a scratch folder of the provider, which close() moves to the destination.
class ScratchLocationStream final : public ByteStream {
public:
    /// Precondition: checkDestination returned and the scratch folder exists.
    ScratchLocationStream(std::shared_ptr<IProvider> provider, StorageIRI location,
                          const StorageIRI& scratchFolder, const ByteStreamOpenOptions& options);
    /// Removes the scratch file of a stream that was not closed.
    ~ScratchLocationStream() override;

private:
    enum class State { Open, Closed };

    std::int64_t doRead(char* buffer, std::int64_t count) override;
    std::int64_t doWrite(const char* buffer, std::int64_t count) override;
    std::int64_t doSeek(std::int64_t offset, SeekOrigin origin) override;
    void doClose() override;

    ByteStream& openStream() const;
    void takeOverContents(const ByteStreamOpenOptions& options);
    void discard() noexcept;

    const std::shared_ptr<IProvider> m_provider;
    const StorageIRI m_location;
    const StorageIRI m_scratch;

    std::unique_ptr<ByteStream> m_stream;
    State m_state = State::Open;
};

} // namespace foundation::storage::provider::detail
