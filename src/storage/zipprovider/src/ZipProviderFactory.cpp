#include "ZipProviderFactory.h"

#include "instantiations.h"

namespace storage::zipprovider {

using foundation::storage::provider::IProvider;
using foundation::storage::provider::StorageIRI;
using foundation::storage::provider::StorageItem;

ZipProviderFactory::ZipProviderFactory() = default;

ZipProviderFactory::~ZipProviderFactory() = default;

std::shared_ptr<IProvider> ZipProviderFactory::doCreateProvider(const StorageItem& container) {
    return std::make_shared<ZipProvider<HostItem, HostDevice>>(container);
}

StorageIRI ZipProviderFactory::doGetContainerLocation(const StorageItem& container) {
    return container.getLocation();
}

} // namespace storage::zipprovider
