#include "ComponentServiceContext.h"

#include "BundleContextPrivate.h"
#include "ServiceRecord.h"

#include <cppmicroservices/servicecomponent/detail/ComponentInstance.hpp>

namespace cppmicroservices {

service::component::ComponentContext::~ComponentContext() noexcept = default;
service::component::detail::ComponentInstance::~ComponentInstance() noexcept = default;

ComponentServiceContext::ComponentServiceContext(std::shared_ptr<BundleContextPrivate> bundleContext,
                                                 std::shared_ptr<ServiceRecord> record)
    : m_bundleContext(std::move(bundleContext)), m_record(std::move(record)) {}

ComponentServiceContext::~ComponentServiceContext() noexcept = default;

std::unordered_map<std::string, Any> ComponentServiceContext::GetProperties() const {
    std::unordered_map<std::string, Any> result;
    for (const std::string& key : m_record->propertyKeys())
        result.emplace(key, m_record->property(key));
    return result;
}

BundleContext ComponentServiceContext::GetBundleContext() const {
    return m_bundleContext && m_bundleContext->isValid() ? m_bundleContext->handle() : BundleContext();
}

ServiceReferenceBase ComponentServiceContext::GetServiceReference() const {
    return ServiceReferenceBase(m_record, std::string());
}

} // namespace cppmicroservices
