#pragma once

#include <cppmicroservices/servicecomponent/ComponentContext.hpp>

#include <memory>
#include <string>
#include <unordered_map>

namespace cppmicroservices {

class BundleContextPrivate;
class ServiceRecord;

/// What a component's object is told about its service and bundle.
class ComponentServiceContext final : public service::component::ComponentContext {
public:
    ComponentServiceContext(std::shared_ptr<BundleContextPrivate> bundleContext,
                            std::shared_ptr<ServiceRecord> record);
    ~ComponentServiceContext() noexcept override;

    std::unordered_map<std::string, Any> GetProperties() const override;
    BundleContext GetBundleContext() const override;
    ServiceReferenceBase GetServiceReference() const override;

private:
    const std::shared_ptr<BundleContextPrivate> m_bundleContext;
    const std::shared_ptr<ServiceRecord> m_record;
};

} // namespace cppmicroservices
