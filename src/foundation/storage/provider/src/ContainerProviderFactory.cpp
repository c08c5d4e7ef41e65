#include <foundation/storage/provider/ContainerProviderFactory.h>
#include <foundation/storage/provider/IProvider.h>

namespace foundation::storage::provider {

ContainerProviderFactory::ContainerProviderFactory() = default;
ContainerProviderFactory::~ContainerProviderFactory() = default;

std::shared_ptr<IProvider> ContainerProviderFactory::createProvider(const StorageItem& container) {
    return doCreateProvider(container);
}

StorageIRI ContainerProviderFactory::getContainerLocation(const StorageItem& container) {
    return doGetContainerLocation(container);
}

} // namespace foundation::storage::provider
