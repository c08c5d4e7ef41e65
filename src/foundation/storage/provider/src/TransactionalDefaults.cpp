#include "ScratchLocationStream.h"
#include "TransactionalStream.h"

#include <foundation/storage/provider/Exception.h>
#include <foundation/storage/provider/IProvider.h>

namespace foundation::storage::provider {

namespace {

/// The stream keeps a shared provider alive. One that is owned in another way is its owner's business.
std::shared_ptr<IProvider> sharedOrBorrowed(IProvider& provider) {
    if (auto shared = provider.weak_from_this().lock()) {
        return shared;
    }
    return {std::shared_ptr<void>(), &provider};
}

} // namespace

std::unique_ptr<ByteStream> IProvider::doOpenTransactionalStream(const StorageIRI& location,
                                                                 const ByteStreamOpenOptions& options) {
    detail::checkDestination(*this, location, options);
    return std::make_unique<detail::TransactionalStream>(sharedOrBorrowed(*this), location, options);
}

std::unique_ptr<ByteStream> IProvider::doOpenTransactionalStreamAtScratchLocation(
    const StorageIRI& location, const StorageIRI& scratchFolder, const ByteStreamOpenOptions& options) {
    detail::checkDestination(*this, location, options);
    if (!doIsFolder(scratchFolder)) {
        throw Exception(ErrorCode::NotFound, scratchFolder);
    }
    return std::make_unique<detail::ScratchLocationStream>(sharedOrBorrowed(*this), location, scratchFolder,
                                                           options);
}

} // namespace foundation::storage::provider
