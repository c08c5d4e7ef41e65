#include <cppmicroservices/LDAPFilter.h>

#include "FilterExpression.h"
#include "ServiceRecord.h"

#include <cppmicroservices/Bundle.h>
#include <cppmicroservices/ServiceReferenceBase.h>

#include <ostream>

namespace cppmicroservices {

LDAPFilter::LDAPFilter() = default;

LDAPFilter::LDAPFilter(const std::string& filter)
    : m_expression(std::make_shared<const FilterExpression>(FilterExpression::parse(filter))) {}

LDAPFilter::LDAPFilter(const LDAPFilter&) = default;
LDAPFilter& LDAPFilter::operator=(const LDAPFilter&) = default;
LDAPFilter::~LDAPFilter() = default;

LDAPFilter::operator bool() const {
    return m_expression != nullptr;
}

bool LDAPFilter::Match(const ServiceReferenceBase& reference) const {
    return m_expression && reference.m_record && reference.m_record->matches(*m_expression);
}

bool LDAPFilter::Match(const Bundle& bundle) const {
    return Match(bundle.GetHeaders());
}

bool LDAPFilter::Match(const AnyMap& dictionary) const {
    return m_expression && m_expression->matches(dictionary, false);
}

bool LDAPFilter::MatchCase(const AnyMap& dictionary) const {
    return m_expression && m_expression->matches(dictionary, true);
}

std::string LDAPFilter::ToString() const {
    return m_expression ? m_expression->toString() : std::string();
}

bool LDAPFilter::operator==(const LDAPFilter& other) const {
    return ToString() == other.ToString();
}

std::ostream& operator<<(std::ostream& stream, const LDAPFilter& filter) {
    return stream << filter.ToString();
}

} // namespace cppmicroservices
