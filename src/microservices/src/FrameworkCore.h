#pragma once

#include "ServiceRegistry.h"

#include <cppmicroservices/AnyMap.h>
#include <cppmicroservices/Bundle.h>

#include <foundation/core/Mutex.h>
#include <foundation/core/ThreadAnnotations.h>

#include <iosfwd>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace cppmicroservices {

class BundlePrivate;
class SystemBundle;

/// What the bundles of one framework share. It owns them; handles own it.
///
/// Its lock is never held while code of a bundle may run, that of destroying a bundle included.
class FrameworkCore : public std::enable_shared_from_this<FrameworkCore> {
public:
    /// `logger` gets a line for each event unless it is null; it must outlive the framework.
    FrameworkCore(AnyMap properties, std::ostream* logger);
    /// Stops the framework if it runs.
    ~FrameworkCore();

    FrameworkCore(const FrameworkCore&) = delete;
    FrameworkCore& operator=(const FrameworkCore&) = delete;

    const AnyMap& properties() const noexcept { return m_properties; }
    ServiceRegistry& services() noexcept { return m_services; }
    const std::shared_ptr<SystemBundle>& systemBundle() const noexcept { return m_systemBundle; }

    /// Lets bundles be installed and started; stops and forgets all bundles, the last installed first, and
    /// lets no other be.
    void open();
    void close();
    /// As BundleContext::InstallBundles.
    std::vector<Bundle> install(const std::string& location);
    void forget(const BundlePrivate& bundle);
    /// Whether the bundle is installed.
    bool has(const BundlePrivate& bundle) const;
    /// The framework's own and all others, in the order of installation.
    std::vector<Bundle> bundles() const;

    unsigned long nextComponentId();
    void log(const std::string& event);

private:
    using Bundles = std::vector<std::shared_ptr<BundlePrivate>>;

    Bundles installedFrom(const std::string& location) const KX_REQUIRES(m_mutex);
    void requireUnique(const BundlePrivate& bundle) const KX_REQUIRES(m_mutex);
    static std::vector<Bundle> handles(const Bundles& bundles);

    const AnyMap m_properties;
    const std::shared_ptr<SystemBundle> m_systemBundle;
    ServiceRegistry m_services;

    mutable foundation::core::Mutex m_mutex;
    std::map<long, std::shared_ptr<BundlePrivate>> m_bundles KX_GUARDED_BY(m_mutex);
    long m_nextBundleId KX_GUARDED_BY(m_mutex) = 1;
    unsigned long m_nextComponentId KX_GUARDED_BY(m_mutex) = 1;
    bool m_stopped KX_GUARDED_BY(m_mutex) = false;

    foundation::core::Mutex m_logMutex;
    std::ostream* const m_logger KX_PT_GUARDED_BY(m_logMutex);
};

} // namespace cppmicroservices
