#pragma once

#include "BundlePrivate.h"
#include "ManifestReader.h"

#include <foundation/core/Mutex.h>
#include <foundation/core/ThreadAnnotations.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace cppmicroservices {

class Component;
class SharedLibrary;

/// A bundle that was installed from a file.
class InstalledBundle final : public BundlePrivate {
public:
    InstalledBundle(FrameworkCore& framework, long id, const std::string& location, Manifest manifest);
    ~InstalledBundle() override;

    std::shared_ptr<const SharedLibrary> library() const override;
    std::shared_ptr<const SharedLibrary> loadLibrary() override;

private:
    void doStart() override;
    void doStop() override;
    void doUninstall() override;

    void requireInstalled() const;
    void activate();
    void deactivate() noexcept;
    /// Makes services of the components that the manifest describes. What is wrong with a description goes to
    /// the framework's logger.
    void registerComponents();
    /// The library goes with the last user of an object of the bundle.
    void unload() noexcept;
    void tellContext(const SharedLibrary& library, BundleContextPrivate* context) const;

    // Held through starting, stopping and uninstalling. Recursive, since code of the bundle runs meanwhile,
    // and may call these operations: the state then tells that one of them is under way.
    std::recursive_mutex m_operation;
    // Touched with m_operation held only.
    std::vector<std::shared_ptr<Component>> m_components;

    mutable foundation::core::Mutex m_libraryMutex;
    std::shared_ptr<const SharedLibrary> m_library KX_GUARDED_BY(m_libraryMutex);
};

} // namespace cppmicroservices
