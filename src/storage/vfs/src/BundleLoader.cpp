#include <storage/vfs/src/BundleLoader.h>

#include <storage/vfs/src/LibraryPlace.h>

#include <cppmicroservices/Bundle.h>
#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Constants.h>
#include <cppmicroservices/Framework.h>
#include <cppmicroservices/FrameworkEvent.h>
#include <cppmicroservices/FrameworkFactory.h>
#include <cppmicroservices/ServiceReference.h>
#include <fmt/format.h>
#include <microservices/ComponentRuntime.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>

namespace storage::vfs {

namespace fs = std::filesystem;
using foundation::core::MutexLock;
using foundation::storage::provider::ContainerProviderFactory;

namespace {

/// UTF-8; where names are bytes, they are taken as they stand.
std::string textOf(const fs::path& path) {
    const auto text = path.u8string();
    return {text.begin(), text.end()};
}

} // namespace

struct BundleLoader::Runtime {
    Runtime() : framework(cppmicroservices::FrameworkFactory().NewFramework()) {
        framework.Start();
        const std::string declarativeServices = microservices::declarativeServicesBundle();
        if (!declarativeServices.empty())
            for (auto& bundle : framework.GetBundleContext().InstallBundles(declarativeServices))
                bundle.Start();
    }

    ~Runtime() {
        factories.clear();
        framework.Stop();
        framework.WaitForStop(std::chrono::milliseconds::zero());
    }

    cppmicroservices::Framework framework;
    std::map<std::string, std::shared_ptr<ContainerProviderFactory>> factories;
};

BundleLoader::BundleLoader(std::vector<fs::path> folders, std::function<void(const std::string&)> warn)
    : m_folders(std::move(folders)), m_warn(std::move(warn)) {}

BundleLoader::~BundleLoader() = default;

std::shared_ptr<ContainerProviderFactory> BundleLoader::factory(const std::string& scheme) {
    const MutexLock lock(m_mutex);
    load();
    if (const auto known = m_runtime->factories.find(scheme); known != m_runtime->factories.end())
        return known->second;
    auto context = m_runtime->framework.GetBundleContext();
    for (const auto& reference :
         context.GetServiceReferences<ContainerProviderFactory>("(scheme=" + scheme + ")")) {
        const auto bundle = reference.GetBundle().GetLocation();
        try {
            if (auto service = context.GetService(reference))
                return m_runtime->factories.emplace(scheme, std::move(service)).first->second;
            warn(fmt::format("cannot use provider bundle {}: it makes no provider factory", bundle));
        } catch (const std::exception& problem) {
            warn(fmt::format("cannot use provider bundle {}: {}", bundle, problem.what()));
        }
    }
    return nullptr;
}

std::vector<std::string> BundleLoader::schemes() {
    const MutexLock lock(m_mutex);
    load();
    std::vector<std::string> found;
    for (const auto& reference :
         m_runtime->framework.GetBundleContext().GetServiceReferences<ContainerProviderFactory>())
        found.push_back(reference.GetProperty("scheme").ToString());
    std::sort(found.begin(), found.end());
    found.erase(std::unique(found.begin(), found.end()), found.end());
    return found;
}

std::vector<BundleReport> BundleLoader::reports() {
    const MutexLock lock(m_mutex);
    load();
    return m_reports;
}

void BundleLoader::load() {
    if (m_loaded)
        return;
    m_loaded = true;
    m_runtime = std::make_unique<Runtime>();
    auto folders = m_folders.empty() ? environmentPaths("KXVFS_PROVIDERS") : m_folders;
    if (folders.empty())
        folders.push_back(libraryFolder() / KX_PROVIDER_SUBDIR);
    for (const auto& folder : folders)
        loadFolder(folder);
}

void BundleLoader::loadFolder(const fs::path& folder) {
    std::vector<fs::path> files;
    std::error_code failure;
    for (fs::recursive_directory_iterator entry(folder, failure), end; !failure && entry != end;
         entry.increment(failure)) {
        std::error_code unreadable;
        if (entry->path().extension() == libraryExtension() && entry->is_regular_file(unreadable))
            files.push_back(entry->path());
    }
    if (failure)
        warn(fmt::format("cannot look for providers in {}: {}", textOf(folder), failure.message()));
    std::sort(files.begin(), files.end());
    for (const auto& file : files)
        loadBundle(file);
}

void BundleLoader::loadBundle(const fs::path& file) {
    try {
        auto installed = m_runtime->framework.GetBundleContext().InstallBundles(textOf(file));
        if (installed.empty())
            throw std::runtime_error("it holds no bundle manifest");
        for (auto& bundle : installed) {
            bundle.Start();
            if (bundle.GetRegisteredServices().empty())
                throw std::runtime_error("its manifest describes no component that can be used");
            m_reports.push_back({file, bundle.GetSymbolicName(), {}});
        }
    } catch (const std::exception& problem) {
        m_reports.push_back({file, {}, problem.what()});
        warn(fmt::format("cannot load provider bundle {}: {}", textOf(file), problem.what()));
    }
}

void BundleLoader::warn(const std::string& message) const {
    if (m_warn)
        m_warn(message);
}

} // namespace storage::vfs
