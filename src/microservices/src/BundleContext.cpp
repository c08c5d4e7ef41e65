#include <cppmicroservices/BundleContext.h>

#include "BundleContextPrivate.h"
#include "BundlePrivate.h"
#include "FilterExpression.h"
#include "FrameworkCore.h"
#include "LoadedInterfaces.h"

#include <optional>
#include <stdexcept>

namespace cppmicroservices {

namespace {

BundleContextPrivate::Access accessOf(const std::shared_ptr<BundleContextPrivate>& context) {
    if (!context)
        throw IllegalStateException("the bundle context is not valid");
    return context->access();
}

} // namespace

BundleContextPrivate::BundleContextPrivate(const std::shared_ptr<BundlePrivate>& bundle)
    : m_framework(bundle->framework().weak_from_this()), m_bundle(bundle) {}

BundleContext BundleContextPrivate::handle() {
    return BundleContext(shared_from_this());
}

BundleContextPrivate::Access BundleContextPrivate::access() const {
    Access access{m_framework.lock(), m_bundle.lock()};
    if (!m_valid || !access.framework || !access.bundle)
        throw IllegalStateException("the bundle context is no longer valid");
    return access;
}

BundleContext detail::MakeBundleContext(BundleContextPrivate* context) {
    return context->handle();
}

BundleContext::BundleContext() = default;

BundleContext::BundleContext(std::shared_ptr<BundleContextPrivate> context) : m_context(std::move(context)) {}

BundleContext& BundleContext::operator=(std::nullptr_t) {
    m_context.reset();
    return *this;
}

BundleContext::operator bool() const {
    return m_context && m_context->isValid();
}

bool BundleContext::operator==(const BundleContext& other) const {
    return *this ? m_context == other.m_context : !other;
}

bool BundleContext::operator<(const BundleContext& other) const {
    return *this && (!other || m_context < other.m_context);
}

Any BundleContext::GetProperty(const std::string& key) const {
    const auto access = accessOf(m_context);
    const AnyMap& properties = access.framework->properties();
    const auto found = properties.find(key);
    return found == properties.end() ? Any() : found->second;
}

AnyMap BundleContext::GetProperties() const {
    return accessOf(m_context).framework->properties();
}

Bundle BundleContext::GetBundle() const {
    return accessOf(m_context).bundle->handle();
}

Bundle BundleContext::GetBundle(long id) const {
    for (const Bundle& bundle : GetBundles())
        if (bundle.GetBundleId() == id)
            return bundle;
    return Bundle();
}

std::vector<Bundle> BundleContext::GetBundles() const {
    return accessOf(m_context).framework->bundles();
}

std::vector<Bundle> BundleContext::GetBundles(const std::string& location) const {
    std::vector<Bundle> result = GetBundles();
    std::erase_if(result, [&](const Bundle& bundle) { return bundle.GetLocation() != location; });
    return result;
}

std::vector<Bundle> BundleContext::InstallBundles(const std::string& location) {
    return accessOf(m_context).framework->install(location);
}

ServiceRegistrationU BundleContext::RegisterService(const InterfaceMapConstPtr& service,
                                                    const ServiceProperties& properties) {
    const auto access = accessOf(m_context);
    if (!service || service->empty())
        throw std::invalid_argument("a service without an interface cannot be registered");
    std::vector<std::string> interfaces;
    for (const auto& [interfaceId, object] : *service) {
        if (interfaceId.empty() || !object)
            throw std::invalid_argument("a service without an object cannot be registered");
        interfaces.push_back(interfaceId);
    }
    return ServiceRegistrationBase(access.framework->services().add(
        access.bundle, std::move(interfaces), properties,
        [object = keepLoaded(service, access.bundle->library())](const auto&) { return object; }));
}

std::vector<ServiceReferenceU> BundleContext::GetServiceReferences(const std::string& interfaceId,
                                                                   const std::string& filter) {
    const auto access = accessOf(m_context);
    std::optional<FilterExpression> expression;
    if (!filter.empty())
        expression = FilterExpression::parse(filter);
    std::vector<ServiceReferenceU> result;
    for (const auto& record :
         access.framework->services().find(interfaceId, expression ? &*expression : nullptr))
        result.emplace_back(ServiceReferenceBase(record, interfaceId));
    return result;
}

ServiceReferenceU BundleContext::GetServiceReference(const std::string& interfaceId) {
    const std::vector<ServiceReferenceU> found = GetServiceReferences(interfaceId);
    return found.empty() ? ServiceReferenceU() : found.front();
}

std::shared_ptr<void> BundleContext::GetService(const ServiceReferenceBase& reference) {
    return ExtractInterface(GetService(ServiceReferenceU(reference)), reference.GetInterfaceId());
}

InterfaceMapConstPtr BundleContext::GetService(const ServiceReferenceU& reference) {
    if (!reference)
        throw std::invalid_argument("the service reference refers to no service");
    const auto access = accessOf(m_context);
    return reference.m_record->object();
}

} // namespace cppmicroservices
