#pragma once

#include <foundation/storage/provider/ByteStream.h>
#include <foundation/storage/provider/ByteStreamOpenOptions.h>
#include <foundation/storage/provider/Export.h>
#include <foundation/storage/provider/FileAttributes.h>
#include <foundation/storage/provider/StorageIRI.h>

#include <memory>

namespace foundation::storage::provider {

class IProvider;

/// A file as a provider presents it: the provider and the location in one value, so that whoever works on the
/// file (a container format's provider above all) needs to know neither scheme nor host. Copies share the
/// provider and keep it alive. Making an item touches nothing: the file need not exist.
/// Errors: those of the provider's operations. Threads: as the provider's.
class KXFLSTORAGEPROVIDER_API StorageItem {
public:
    /// Precondition: `provider` is not null and serves the location's scheme.
    StorageItem(std::shared_ptr<IProvider> provider, StorageIRI location);

    const StorageIRI& getLocation() const noexcept { return m_location; }
    const std::shared_ptr<IProvider>& getProvider() const noexcept { return m_provider; }

    /// Whether a file is there.
    bool exists() const;
    /// Size, time and writability, asked afresh at each call.
    FileAttributes getFileAttributes() const;
    /// Opens the file for reading. The caller owns the stream, never null.
    std::unique_ptr<ByteStream> openReadOnlyStream() const;
    /// Opens the file for writing. The caller owns the stream, never null.
    std::unique_ptr<ByteStream> openStream(const ByteStreamOpenOptions& options = {}) const;

private:
    std::shared_ptr<IProvider> m_provider;
    StorageIRI m_location;
};

} // namespace foundation::storage::provider
