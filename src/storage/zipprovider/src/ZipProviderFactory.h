#pragma once

#include <foundation/storage/provider/ContainerProviderFactory.h>

#include <memory>

namespace storage::zipprovider {

/// The plug-in's service: makes the provider for an archive. Has no state of its own.
class ZipProviderFactory : public foundation::storage::provider::ContainerProviderFactory {
public:
    ZipProviderFactory();
    ~ZipProviderFactory() override;

protected:
    std::shared_ptr<foundation::storage::provider::IProvider>
    doCreateProvider(const foundation::storage::provider::StorageItem& container) override;
    foundation::storage::provider::StorageIRI
    doGetContainerLocation(const foundation::storage::provider::StorageItem& container) override;
};

} // namespace storage::zipprovider
