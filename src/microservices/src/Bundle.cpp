#include <cppmicroservices/Bundle.h>

#include "BundleContextPrivate.h"
#include "BundlePrivate.h"
#include "FrameworkCore.h"

#include <cppmicroservices/BundleContext.h>

#include <ostream>
#include <stdexcept>

namespace cppmicroservices {

Bundle::Bundle() = default;
Bundle::Bundle(const Bundle&) = default;
Bundle::Bundle(Bundle&&) noexcept = default;
Bundle& Bundle::operator=(const Bundle&) = default;
Bundle& Bundle::operator=(Bundle&&) noexcept = default;
Bundle::~Bundle() = default;

Bundle::Bundle(std::shared_ptr<BundlePrivate> bundle)
    : m_framework(bundle->framework().shared_from_this()), m_bundle(std::move(bundle)) {}

Bundle& Bundle::operator=(std::nullptr_t) {
    m_bundle.reset();
    m_framework.reset();
    return *this;
}

Bundle::operator bool() const {
    return m_bundle != nullptr;
}

bool Bundle::operator==(const Bundle& other) const {
    return m_bundle == other.m_bundle;
}

bool Bundle::operator<(const Bundle& other) const {
    if (!m_bundle || !other.m_bundle)
        return m_bundle && !other.m_bundle;
    if (m_framework != other.m_framework)
        return m_framework < other.m_framework;
    return m_bundle->id() < other.m_bundle->id();
}

BundlePrivate& Bundle::checked() const {
    if (!m_bundle)
        throw std::invalid_argument("the bundle is not valid");
    return *m_bundle;
}

Bundle::State Bundle::GetState() const {
    return checked().state();
}

BundleContext Bundle::GetBundleContext() const {
    const std::shared_ptr<BundleContextPrivate> context = checked().context();
    return context ? context->handle() : BundleContext();
}

long Bundle::GetBundleId() const {
    return checked().id();
}

std::string Bundle::GetLocation() const {
    return checked().location();
}

std::string Bundle::GetSymbolicName() const {
    return checked().symbolicName();
}

const AnyMap& Bundle::GetHeaders() const {
    return checked().headers();
}

std::vector<ServiceReferenceU> Bundle::GetRegisteredServices() const {
    BundlePrivate& bundle = checked();
    if (bundle.state() == STATE_UNINSTALLED)
        throw std::logic_error("bundle " + bundle.location() + " was uninstalled");
    std::vector<ServiceReferenceU> result;
    for (const auto& record : bundle.framework().services().ownedBy(bundle))
        result.emplace_back(ServiceReferenceBase(record, std::string()));
    return result;
}

void Bundle::Start() {
    Start(0);
}

void Bundle::Start(std::uint32_t) {
    checked().start();
}

void Bundle::Stop() {
    Stop(0);
}

void Bundle::Stop(std::uint32_t) {
    checked().stop();
}

void Bundle::Uninstall() {
    checked().uninstall();
}

std::ostream& operator<<(std::ostream& stream, Bundle::State state) {
    switch (state) {
    case Bundle::STATE_UNINSTALLED:
        return stream << "UNINSTALLED";
    case Bundle::STATE_INSTALLED:
        return stream << "INSTALLED";
    case Bundle::STATE_RESOLVED:
        return stream << "RESOLVED";
    case Bundle::STATE_STARTING:
        return stream << "STARTING";
    case Bundle::STATE_STOPPING:
        return stream << "STOPPING";
    case Bundle::STATE_ACTIVE:
        return stream << "ACTIVE";
    }
    return stream << static_cast<std::uint32_t>(state);
}

std::ostream& operator<<(std::ostream& stream, const Bundle& bundle) {
    if (!bundle)
        return stream << "Bundle[]";
    return stream << "Bundle[id=" << bundle.GetBundleId() << ", location=" << bundle.GetLocation()
                  << ", name=" << bundle.GetSymbolicName() << ", state=" << bundle.GetState() << "]";
}

} // namespace cppmicroservices
