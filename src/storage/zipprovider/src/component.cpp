#include "ZipProviderFactory.h"

#include <cppmicroservices/BundleInitialization.h>
#include <cppmicroservices/servicecomponent/detail/ComponentInstanceImpl.hpp>

#include <new>
#include <tuple>

CPPMICROSERVICES_INITIALIZE_BUNDLE

namespace {

using Component = cppmicroservices::service::component::detail::ComponentInstance;
using FactoryComponent = cppmicroservices::service::component::detail::ComponentInstanceImpl<
    storage::zipprovider::ZipProviderFactory,
    std::tuple<foundation::storage::provider::ContainerProviderFactory>>;

} // namespace

extern "C" US_ABI_EXPORT Component* NewInstance_storage_zipprovider_ZipProviderFactory() {
    return new (std::nothrow) FactoryComponent();
}

extern "C" US_ABI_EXPORT void DeleteInstance_storage_zipprovider_ZipProviderFactory(Component* instance) {
    delete instance;
}
