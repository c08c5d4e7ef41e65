#include "ServiceRegistry.h"

#include <algorithm>

namespace cppmicroservices {

using foundation::core::MutexLock;

std::shared_ptr<ServiceRecord> ServiceRegistry::add(const std::shared_ptr<BundlePrivate>& owner,
                                                    std::vector<std::string> interfaces,
                                                    const ServiceProperties& properties,
                                                    ServiceRecord::Source source) {
    MutexLock lock(m_mutex);
    const long id = m_nextId++;
    lock.unlock();
    auto record =
        std::make_shared<ServiceRecord>(owner, id, std::move(interfaces), properties, std::move(source));
    lock.lock();
    m_records.push_back(record);
    return record;
}

bool ServiceRegistry::remove(const std::shared_ptr<ServiceRecord>& record) {
    MutexLock lock(m_mutex);
    std::erase(m_records, record);
    lock.unlock();
    return record->unregister();
}

void ServiceRegistry::removeAllOf(const BundlePrivate& owner) {
    for (const std::shared_ptr<ServiceRecord>& record : ownedBy(owner))
        remove(record);
}

ServiceRegistry::Records ServiceRegistry::find(const std::string& interfaceId,
                                               const FilterExpression* filter) const {
    Records found = snapshot();
    std::erase_if(found, [&](const std::shared_ptr<ServiceRecord>& record) {
        return (!interfaceId.empty() && !record->offers(interfaceId)) ||
               (filter && !record->matches(*filter));
    });
    // The rankings are read once: they may change while the list is put in order.
    std::vector<std::pair<int, std::shared_ptr<ServiceRecord>>> ranked;
    for (const std::shared_ptr<ServiceRecord>& record : found)
        ranked.emplace_back(record->ranking(), record);
    std::stable_sort(ranked.begin(), ranked.end(),
                     [](const auto& left, const auto& right) { return left.first > right.first; });
    std::transform(ranked.begin(), ranked.end(), found.begin(),
                   [](const auto& entry) { return entry.second; });
    return found;
}

ServiceRegistry::Records ServiceRegistry::ownedBy(const BundlePrivate& owner) const {
    Records result = snapshot();
    std::erase_if(result,
                  [&](const std::shared_ptr<ServiceRecord>& record) { return !record->isOwnedBy(owner); });
    return result;
}

ServiceRegistry::Records ServiceRegistry::snapshot() const {
    const MutexLock lock(m_mutex);
    Records result = m_records;
    std::sort(result.begin(), result.end(),
              [](const auto& left, const auto& right) { return left->id() < right->id(); });
    return result;
}

} // namespace cppmicroservices
