#include <cppmicroservices/ServiceRegistrationBase.h>

#include "FrameworkCore.h"
#include "ServiceRecord.h"

#include <stdexcept>

namespace cppmicroservices {

namespace {

ServiceRecord& registered(const std::shared_ptr<ServiceRecord>& record) {
    if (!record)
        throw std::logic_error("the service registration belongs to no service");
    if (!record->isRegistered())
        throw std::logic_error("the service is not registered any more");
    return *record;
}

} // namespace

ServiceRegistrationBase::ServiceRegistrationBase() = default;
ServiceRegistrationBase::ServiceRegistrationBase(const ServiceRegistrationBase&) = default;
ServiceRegistrationBase::ServiceRegistrationBase(ServiceRegistrationBase&&) noexcept = default;
ServiceRegistrationBase& ServiceRegistrationBase::operator=(const ServiceRegistrationBase&) = default;
ServiceRegistrationBase& ServiceRegistrationBase::operator=(ServiceRegistrationBase&&) noexcept = default;
ServiceRegistrationBase::~ServiceRegistrationBase() = default;

ServiceRegistrationBase::ServiceRegistrationBase(std::shared_ptr<ServiceRecord> record)
    : m_record(std::move(record)) {}

ServiceRegistrationBase& ServiceRegistrationBase::operator=(std::nullptr_t) {
    m_record.reset();
    return *this;
}

ServiceRegistrationBase::operator bool() const {
    return m_record != nullptr;
}

ServiceReferenceBase ServiceRegistrationBase::GetReference(const std::string& interfaceId) const {
    registered(m_record);
    return ServiceReferenceBase(m_record, interfaceId);
}

void ServiceRegistrationBase::SetProperties(const ServiceProperties& properties) {
    registered(m_record).setProperties(properties);
}

void ServiceRegistrationBase::Unregister() {
    registered(m_record);
    const std::shared_ptr<FrameworkCore> framework = m_record->framework();
    if (framework)
        framework->services().remove(m_record);
    else
        m_record->unregister();
}

bool ServiceRegistrationBase::operator<(const ServiceRegistrationBase& other) const {
    if (m_record == other.m_record || !other.m_record)
        return false;
    return !m_record || m_record->isLessThan(*other.m_record);
}

bool ServiceRegistrationBase::operator==(const ServiceRegistrationBase& other) const {
    return m_record == other.m_record;
}

} // namespace cppmicroservices
