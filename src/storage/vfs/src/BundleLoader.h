#pragma once

#include <foundation/core/Mutex.h>
#include <foundation/storage/provider/ContainerProviderFactory.h>
#include <storage/vfs/Vfs.h>

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace storage::vfs {

/// Runs the component runtime and the provider bundles in it. Nothing is started before the first call.
/// Threads: any.
class BundleLoader {
public:
    /// `folders` empty: the default places.
    BundleLoader(std::vector<std::filesystem::path> folders, std::function<void(const std::string&)> warn);
    /// Stops the runtime. Whatever the bundles made must be gone.
    ~BundleLoader();

    /// The factory for a container format; null where no bundle serves it.
    std::shared_ptr<foundation::storage::provider::ContainerProviderFactory>
    factory(const std::string& scheme);
    std::vector<std::string> schemes();
    std::vector<BundleReport> reports();

private:
    struct Runtime;

    void load() KX_REQUIRES(m_mutex);
    void loadFolder(const std::filesystem::path& folder) KX_REQUIRES(m_mutex);
    void loadBundle(const std::filesystem::path& file) KX_REQUIRES(m_mutex);
    void warn(const std::string& message) const;

    const std::vector<std::filesystem::path> m_folders;
    const std::function<void(const std::string&)> m_warn;

    /// Guards everything below; held while bundles start.
    foundation::core::Mutex m_mutex;
    bool m_loaded KX_GUARDED_BY(m_mutex) = false;
    std::unique_ptr<Runtime> m_runtime KX_GUARDED_BY(m_mutex);
    std::vector<BundleReport> m_reports KX_GUARDED_BY(m_mutex);
};

} // namespace storage::vfs
