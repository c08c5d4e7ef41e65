#include "FrameworkCore.h"

#include "InstalledBundle.h"
#include "ManifestReader.h"
#include "SystemBundle.h"

#include <cppmicroservices/Constants.h>

#include <ostream>
#include <stdexcept>

namespace cppmicroservices {

using foundation::core::MutexLock;

namespace {

std::string versionOf(const BundlePrivate& bundle) {
    const auto found = bundle.headers().find(Constants::BUNDLE_VERSION);
    return found == bundle.headers().end() ? std::string() : found->second.ToStringNoExcept();
}

} // namespace

FrameworkCore::FrameworkCore(AnyMap properties, std::ostream* logger)
    : m_properties(std::move(properties)), m_systemBundle(std::make_shared<SystemBundle>(*this)),
      m_logger(logger) {}

FrameworkCore::~FrameworkCore() {
    m_systemBundle->stop();
}

void FrameworkCore::open() {
    const MutexLock lock(m_mutex);
    m_stopped = false;
}

void FrameworkCore::close() {
    std::map<long, std::shared_ptr<BundlePrivate>> bundles;
    {
        const MutexLock lock(m_mutex);
        m_stopped = true;
        bundles.swap(m_bundles);
    }
    for (auto bundle = bundles.rbegin(); bundle != bundles.rend(); ++bundle) {
        try {
            bundle->second->stop();
        } catch (const std::logic_error&) {
            // It was uninstalled meanwhile, which stopped it.
        }
    }
    m_services.removeAllOf(*m_systemBundle);
}

bool FrameworkCore::has(const BundlePrivate& bundle) const {
    const MutexLock lock(m_mutex);
    const auto found = m_bundles.find(bundle.id());
    return found != m_bundles.end() && found->second.get() == &bundle;
}

std::vector<Bundle> FrameworkCore::install(const std::string& location) {
    {
        const MutexLock lock(m_mutex);
        const Bundles present = installedFrom(location);
        if (!present.empty())
            return handles(present);
    }
    try {
        std::vector<Manifest> manifests = readManifests(location);
        Bundles added;
        MutexLock lock(m_mutex);
        const Bundles present = installedFrom(location);
        if (!present.empty())
            return handles(present);
        if (m_stopped)
            throw std::runtime_error("the framework was stopped");
        for (Manifest& manifest : manifests) {
            added.push_back(std::make_shared<InstalledBundle>(
                *this, m_nextBundleId + static_cast<long>(added.size()), location, std::move(manifest)));
            requireUnique(*added.back());
        }
        for (const std::shared_ptr<BundlePrivate>& bundle : added)
            m_bundles.emplace(m_nextBundleId++, bundle);
        lock.unlock();
        log("installed " + location);
        return handles(added);
    } catch (const std::runtime_error& error) {
        throw std::runtime_error("cannot install " + location + ": " + error.what());
    }
}

void FrameworkCore::requireUnique(const BundlePrivate& bundle) const {
    for (const auto& [id, other] : m_bundles)
        if (other->symbolicName() == bundle.symbolicName() && versionOf(*other) == versionOf(bundle))
            throw std::runtime_error("a bundle " + bundle.symbolicName() +
                                     " of the same version is installed from " + other->location());
}

FrameworkCore::Bundles FrameworkCore::installedFrom(const std::string& location) const {
    Bundles result;
    for (const auto& [id, bundle] : m_bundles)
        if (bundle->location() == location)
            result.push_back(bundle);
    return result;
}

void FrameworkCore::forget(const BundlePrivate& bundle) {
    std::shared_ptr<BundlePrivate> forgotten;
    const MutexLock lock(m_mutex);
    const auto found = m_bundles.find(bundle.id());
    if (found == m_bundles.end())
        return;
    forgotten.swap(found->second);
    m_bundles.erase(found);
}

std::vector<Bundle> FrameworkCore::bundles() const {
    Bundles all;
    all.push_back(m_systemBundle);
    const MutexLock lock(m_mutex);
    for (const auto& [id, bundle] : m_bundles)
        all.push_back(bundle);
    return handles(all);
}

std::vector<Bundle> FrameworkCore::handles(const Bundles& bundles) {
    std::vector<Bundle> result;
    for (const std::shared_ptr<BundlePrivate>& bundle : bundles)
        result.push_back(bundle->handle());
    return result;
}

unsigned long FrameworkCore::nextComponentId() {
    const MutexLock lock(m_mutex);
    return m_nextComponentId++;
}

void FrameworkCore::log(const std::string& event) {
    const MutexLock lock(m_logMutex);
    if (m_logger)
        *m_logger << event << std::endl;
}

} // namespace cppmicroservices
