#include <foundation/storage/provider/IProvider.h>
#include <foundation/storage/provider/StorageItem.h>

#include <stdexcept>
#include <utility>

namespace foundation::storage::provider {

StorageItem::StorageItem(std::shared_ptr<IProvider> provider, StorageIRI location)
    : m_provider(std::move(provider)), m_location(std::move(location)) {
    if (!m_provider) {
        throw std::invalid_argument("cannot make a storage item for \"" + m_location.toUtf8() +
                                    "\": no provider");
    }
}

bool StorageItem::exists() const {
    return m_provider->isFile(m_location);
}

FileAttributes StorageItem::getFileAttributes() const {
    return m_provider->getFileAttributes(m_location);
}

std::unique_ptr<ByteStream> StorageItem::openReadOnlyStream() const {
    return m_provider->openReadStream(m_location);
}

std::unique_ptr<ByteStream> StorageItem::openStream(const ByteStreamOpenOptions& options) const {
    return m_provider->openStream(m_location, options);
}

} // namespace foundation::storage::provider
