#include <cppmicroservices/ServiceReferenceBase.h>

#include "ServiceRecord.h"

#include <cppmicroservices/Bundle.h>

#include <functional>

namespace cppmicroservices {

ServiceReferenceBase::ServiceReferenceBase() = default;
ServiceReferenceBase::ServiceReferenceBase(const ServiceReferenceBase&) = default;
ServiceReferenceBase& ServiceReferenceBase::operator=(const ServiceReferenceBase&) = default;
ServiceReferenceBase::~ServiceReferenceBase() = default;

ServiceReferenceBase::ServiceReferenceBase(std::shared_ptr<ServiceRecord> record, std::string interfaceId)
    : m_record(std::move(record)), m_interfaceId(std::move(interfaceId)) {}

ServiceReferenceBase& ServiceReferenceBase::operator=(std::nullptr_t) {
    m_record.reset();
    m_interfaceId.clear();
    return *this;
}

ServiceReferenceBase::operator bool() const {
    return m_record && m_record->isRegistered();
}

Any ServiceReferenceBase::GetProperty(const std::string& key) const {
    return m_record ? m_record->property(key) : Any();
}

std::vector<std::string> ServiceReferenceBase::GetPropertyKeys() const {
    return m_record ? m_record->propertyKeys() : std::vector<std::string>();
}

Bundle ServiceReferenceBase::GetBundle() const {
    return m_record ? m_record->owner() : Bundle();
}

std::string ServiceReferenceBase::GetInterfaceId() const {
    return m_interfaceId;
}

bool ServiceReferenceBase::IsConvertibleTo(const std::string& interfaceId) const {
    return m_record && m_record->offers(interfaceId);
}

bool ServiceReferenceBase::operator<(const ServiceReferenceBase& other) const {
    if (m_record == other.m_record || !other.m_record)
        return false;
    return !m_record || m_record->isLessThan(*other.m_record);
}

bool ServiceReferenceBase::operator==(const ServiceReferenceBase& other) const {
    return m_record == other.m_record;
}

void ServiceReferenceBase::SetInterfaceId(const std::string& interfaceId) {
    m_interfaceId = interfaceId;
}

std::size_t ServiceReferenceBase::Hash() const {
    return std::hash<std::shared_ptr<ServiceRecord>>()(m_record);
}

} // namespace cppmicroservices
