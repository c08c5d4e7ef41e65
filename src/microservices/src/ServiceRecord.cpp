#include "ServiceRecord.h"

#include "BundlePrivate.h"
#include "FilterExpression.h"
#include "FrameworkCore.h"

#include <cppmicroservices/Bundle.h>
#include <cppmicroservices/Constants.h>

#include <algorithm>
#include <stdexcept>

namespace cppmicroservices {

using foundation::core::MutexLock;

ServiceRecord::ServiceRecord(const std::shared_ptr<BundlePrivate>& owner, long id,
                             std::vector<std::string> interfaces, const ServiceProperties& properties,
                             Source source)
    : m_framework(owner->framework().weak_from_this()), m_owner(owner), m_id(id),
      m_interfaces(std::move(interfaces)), m_properties(completed(properties)), m_source(std::move(source)) {}

AnyMap ServiceRecord::completed(const ServiceProperties& properties) const {
    AnyMap result(AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS);
    for (const auto& [key, value] : properties)
        if (!result.emplace(key, value).second)
            throw std::runtime_error("the service property '" + key + "' is given twice");
    const auto ranking = result.find(Constants::SERVICE_RANKING);
    if (ranking != result.end() && !any_cast<int>(&ranking->second))
        throw std::invalid_argument("the service property " + Constants::SERVICE_RANKING + " is not an int");
    result[Constants::OBJECTCLASS] = m_interfaces;
    result[Constants::SERVICE_ID] = m_id;
    result[Constants::SERVICE_SCOPE] = Constants::SCOPE_SINGLETON;
    return result;
}

bool ServiceRecord::offers(const std::string& interfaceId) const {
    return std::find(m_interfaces.begin(), m_interfaces.end(), interfaceId) != m_interfaces.end();
}

bool ServiceRecord::isOwnedBy(const BundlePrivate& bundle) const {
    return m_owner.lock().get() == &bundle;
}

std::shared_ptr<FrameworkCore> ServiceRecord::framework() const {
    return m_framework.lock();
}

Bundle ServiceRecord::owner() const {
    const std::shared_ptr<FrameworkCore> framework = m_framework.lock();
    const std::shared_ptr<BundlePrivate> owner = m_owner.lock();
    return framework && owner && isRegistered() ? owner->handle() : Bundle();
}

bool ServiceRecord::isRegistered() const {
    const MutexLock lock(m_mutex);
    return m_source != nullptr;
}

bool ServiceRecord::unregister() {
    Source source;
    const MutexLock lock(m_mutex);
    source.swap(m_source);
    return source != nullptr;
}

InterfaceMapConstPtr ServiceRecord::object() {
    MutexLock lock(m_mutex);
    const Source source = m_source;
    lock.unlock();
    return source ? source(shared_from_this()) : nullptr;
}

Any ServiceRecord::property(const std::string& key) const {
    const MutexLock lock(m_mutex);
    const auto found = m_properties.find(key);
    return found == m_properties.end() ? Any() : found->second;
}

std::vector<std::string> ServiceRecord::propertyKeys() const {
    const MutexLock lock(m_mutex);
    std::vector<std::string> result;
    for (const auto& entry : m_properties)
        result.push_back(entry.first);
    return result;
}

bool ServiceRecord::matches(const FilterExpression& filter) const {
    const MutexLock lock(m_mutex);
    return filter.matches(m_properties, false);
}

int ServiceRecord::ranking() const {
    const Any ranking = property(Constants::SERVICE_RANKING);
    return ranking.Empty() ? 0 : any_cast<int>(ranking);
}

void ServiceRecord::setProperties(const ServiceProperties& properties) {
    ServiceProperties given = properties;
    for (const std::string& key : {Constants::OBJECTCLASS, Constants::SERVICE_ID, Constants::SERVICE_SCOPE})
        given.erase(key);
    AnyMap replaced = completed(given);
    const MutexLock lock(m_mutex);
    std::swap(m_properties, replaced);
}

bool ServiceRecord::isLessThan(const ServiceRecord& other) const {
    const int own = ranking();
    const int others = other.ranking();
    return own != others ? own < others : m_id > other.m_id;
}

} // namespace cppmicroservices
