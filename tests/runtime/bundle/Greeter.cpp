#include <runtime/bundle/Greeter.h>

#include <cppmicroservices/Bundle.h>
#include <cppmicroservices/GetBundleContext.h>
#include <cppmicroservices/servicecomponent/ComponentContext.hpp>

#include <stdexcept>

namespace runtime::bundle {

namespace {

std::shared_ptr<Witness> findWitness() {
    cppmicroservices::BundleContext context = cppmicroservices::GetBundleContext();
    const auto reference = context.GetServiceReference<Witness>();
    return reference ? context.GetService(reference) : nullptr;
}

} // namespace

Greeter::Greeter() : m_witness(findWitness()) {
    if (m_witness)
        m_witness->saw("made");
}

Greeter::~Greeter() {
    if (m_witness)
        m_witness->saw("destroyed");
}

void Greeter::Activate(const Context& context) {
    if (m_witness)
        m_witness->saw("activated for " + context->GetProperties().at("language").ToString() + " in " +
                       context->GetBundleContext().GetBundle().GetSymbolicName());
}

void Greeter::Deactivate(const Context&) {
    if (m_witness)
        m_witness->saw("deactivated");
}

std::string Greeter::greet(const std::string& name) {
    return "Hello, " + name;
}

std::string Greeter::ownBundle() {
    const cppmicroservices::BundleContext context = cppmicroservices::GetBundleContext();
    return context ? context.GetBundle().GetSymbolicName() : std::string();
}

std::string Greeter::takeLeave() {
    return "Goodbye";
}

Narcissist::Narcissist() {
    cppmicroservices::BundleContext context = cppmicroservices::GetBundleContext();
    m_self = context.GetService(context.GetServiceReferences<Greeting>("(language=self)").front());
}

std::string Narcissist::greet(const std::string&) {
    return m_self ? "we" : "I";
}

std::string Narcissist::ownBundle() {
    return std::string();
}

void Clinger::Deactivate(const Context& context) {
    const auto properties = context->GetProperties();
    const auto reason = properties.find("reason");
    if (reason == properties.end())
        throw 1;
    throw std::runtime_error(reason->second.ToString());
}

std::string Clinger::greet(const std::string&) {
    return "Stay";
}

std::string Clinger::ownBundle() {
    return std::string();
}

std::string Hermit::greet(const std::string& name) {
    return "Salute, " + name;
}

std::string Hermit::ownBundle() {
    return std::string();
}

Quitter::Quitter() {
    cppmicroservices::GetBundleContext().GetBundle().Stop();
}

std::string Quitter::greet(const std::string&) {
    return std::string();
}

std::string Quitter::ownBundle() {
    return std::string();
}

Sulker::Sulker() {
    throw std::runtime_error("not in the mood");
}

std::string Sulker::greet(const std::string&) {
    return std::string();
}

std::string Sulker::ownBundle() {
    return std::string();
}

} // namespace runtime::bundle
