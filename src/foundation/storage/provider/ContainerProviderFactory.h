#pragma once

#include <foundation/storage/provider/Export.h>
#include <foundation/storage/provider/StorageItem.h>

#include <memory>

namespace foundation::storage::provider {

class IProvider;

/// The service that a container format's plug-in offers, with the service property "scheme" naming the
/// format. Threads: all operations may be called from several threads.
class KXFLSTORAGEPROVIDER_API ContainerProviderFactory {
public:
    virtual ~ContainerProviderFactory();

    ContainerProviderFactory(const ContainerProviderFactory&) = delete;
    ContainerProviderFactory& operator=(const ContainerProviderFactory&) = delete;

    /// A provider over the contents of `container`, never null. Nothing is opened or read by this call. The
    /// provider keeps a copy of the item. Make one provider per container and share it: two providers over
    /// one container do not see each other's changes.
    std::shared_ptr<IProvider> createProvider(const StorageItem& container);
    /// The container's own location.
    StorageIRI getContainerLocation(const StorageItem& container);

protected:
    ContainerProviderFactory();

    virtual std::shared_ptr<IProvider> doCreateProvider(const StorageItem& container) = 0;
    virtual StorageIRI doGetContainerLocation(const StorageItem& container) = 0;
};

} // namespace foundation::storage::provider
