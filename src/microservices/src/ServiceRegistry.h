#pragma once

#include "ServiceRecord.h"

#include <foundation/core/Mutex.h>
#include <foundation/core/ThreadAnnotations.h>

#include <memory>
#include <string>
#include <vector>

namespace cppmicroservices {

/// The registered services of one framework. May be used from several threads.
class ServiceRegistry {
public:
    using Records = std::vector<std::shared_ptr<ServiceRecord>>;

    /// Throws as the constructor of ServiceRecord; nothing is registered then.
    std::shared_ptr<ServiceRecord> add(const std::shared_ptr<BundlePrivate>& owner,
                                       std::vector<std::string> interfaces,
                                       const ServiceProperties& properties, ServiceRecord::Source source);

    /// Whether the service was registered.
    bool remove(const std::shared_ptr<ServiceRecord>& record);
    void removeAllOf(const BundlePrivate& owner);

    /// The services that offer an interface (any, if empty) and match a filter (null matches all), the
    /// preferred one first.
    Records find(const std::string& interfaceId, const FilterExpression* filter) const;
    /// The services of a bundle in the order of registration.
    Records ownedBy(const BundlePrivate& owner) const;

private:
    Records snapshot() const;

    mutable foundation::core::Mutex m_mutex;
    Records m_records KX_GUARDED_BY(m_mutex);
    long m_nextId KX_GUARDED_BY(m_mutex) = 1;
};

} // namespace cppmicroservices
