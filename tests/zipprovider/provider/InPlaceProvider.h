#pragma once

#include <support/ForwardingProvider.h>

#include <memory>

namespace kx::test {

/// A provider like a plain file system: a stream for writing empties the file when it is opened, every write
/// shows at once, and a stream that is destroyed without close() takes nothing back.
class InPlaceProvider final : public ForwardingProvider {
public:
    using ForwardingProvider::ForwardingProvider;
    ~InPlaceProvider() override { endChangePolling(); }

protected:
    std::unique_ptr<provider::ByteStream>
    doOpenStream(const provider::StorageIRI& location,
                 const provider::ByteStreamOpenOptions& options) override;
};

} // namespace kx::test
