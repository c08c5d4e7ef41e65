#include <storage/vfs/src/LocalFile.h>

#include <storage/fileprovider/LocalFileProvider.h>

namespace storage::vfs {

using foundation::storage::provider::StorageIRI;

const StorageIRI& localFileUnder(const StorageIRI& location) {
    const auto* at = &location;
    while (at->hasContainer())
        at = &at->getContainer();
    return *at;
}

StorageIRI canonicalLocalFile(const StorageIRI& file) {
    static const auto localFiles = storage::fileprovider::LocalFileProvider::create();
    return localFiles->getCanonicalLocation(file);
}

bool isSameOrInside(const StorageIRI& container, const StorageIRI& outer) {
    for (const auto* at = &container;; at = &at->getContainer()) {
        if (*at == outer)
            return true;
        if (!at->hasContainer())
            return false;
    }
}

std::size_t nesting(const StorageIRI& location) {
    std::size_t depth = 0;
    for (const auto* at = &location; at->hasContainer(); at = &at->getContainer())
        ++depth;
    return depth;
}

} // namespace storage::vfs
