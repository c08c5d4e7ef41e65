#include "InstalledBundle.h"

#include "BundleContextPrivate.h"
#include "Component.h"
#include "ComponentMetadata.h"
#include "FrameworkCore.h"
#include "SharedLibrary.h"

#include <cppmicroservices/Constants.h>
#include <cppmicroservices/GlobalConfig.h>
#include <cppmicroservices/SharedLibraryException.h>

#include <stdexcept>

namespace cppmicroservices {

using foundation::core::MutexLock;

InstalledBundle::InstalledBundle(FrameworkCore& framework, long id, const std::string& location,
                                 Manifest manifest)
    : BundlePrivate(framework, id, location, std::move(manifest.symbolicName), std::move(manifest.headers)) {}

InstalledBundle::~InstalledBundle() {
    // Only who uninstalls a bundle says that nothing of it is in use. A framework that is stopped does not
    // say so: its host may still hold what the services made.
    const MutexLock lock(m_libraryMutex);
    if (m_library)
        m_library->pin();
}

std::shared_ptr<const SharedLibrary> InstalledBundle::library() const {
    const MutexLock lock(m_libraryMutex);
    return m_library;
}

void InstalledBundle::doStart() {
    const std::lock_guard operation(m_operation);
    requireInstalled();
    if (state() == Bundle::STATE_ACTIVE || state() == Bundle::STATE_STARTING)
        return;
    if (state() == Bundle::STATE_STOPPING)
        throw std::runtime_error("cannot start " + location() + ": it is being stopped");
    if (!framework().has(*this))
        throw std::runtime_error("cannot start " + location() + ": its framework was stopped");
    setState(Bundle::STATE_STARTING);
    try {
        activate();
    } catch (const std::exception& error) {
        deactivate();
        throw std::runtime_error("cannot start " + location() + ": " + error.what());
    }
    setState(Bundle::STATE_ACTIVE);
    framework().log("started " + location());
}

void InstalledBundle::activate() {
    const auto activator = headers().find(Constants::BUNDLE_ACTIVATOR);
    const bool* const hasActivator =
        activator == headers().end() ? nullptr : any_cast<bool>(&activator->second);
    if (hasActivator && *hasActivator)
        throw std::runtime_error("it has an activator, which the embedded component runtime does not run");
    const std::shared_ptr<BundleContextPrivate> opened = openContext();
    const std::shared_ptr<const SharedLibrary> loaded = library();
    if (loaded)
        tellContext(*loaded, opened.get());
    registerComponents();
}

void InstalledBundle::registerComponents() {
    try {
        const std::shared_ptr<BundlePrivate> self = shared_from_this();
        for (ComponentMetadata& metadata : describedComponents(headers()))
            m_components.push_back(std::make_shared<Component>(self, std::move(metadata)));
        for (const std::shared_ptr<Component>& component : m_components)
            component->registerService(self);
    } catch (const std::exception& error) {
        framework().log("cannot make services of the components of " + location() + ": " + error.what());
    }
}

std::shared_ptr<const SharedLibrary> InstalledBundle::loadLibrary() {
    std::shared_ptr<const SharedLibrary> loaded = library();
    if (loaded)
        return loaded;
    try {
        loaded = std::make_shared<const SharedLibrary>(location());
    } catch (const LibraryLoadError& error) {
        throw SharedLibraryException(error.code(), "cannot load " + location() + ": " + error.what(),
                                     handle());
    }
    const MutexLock lock(m_libraryMutex);
    if (m_library)
        return m_library;
    // Before another thread can get the library, since its objects may ask for the context.
    tellContext(*loaded, context().get());
    m_library = loaded;
    return loaded;
}

void InstalledBundle::tellContext(const SharedLibrary& library, BundleContextPrivate* context) const {
    using SetContext = void(BundleContextPrivate*);
    SetContext* const setContext = library.function<SetContext>(US_STR(US_SET_CTX_PREFIX) + symbolicName());
    // A bundle that does not use its context needs no place for it.
    if (setContext)
        setContext(context);
}

void InstalledBundle::doStop() {
    const std::lock_guard operation(m_operation);
    requireInstalled();
    if (state() != Bundle::STATE_ACTIVE)
        return;
    deactivate();
    framework().log("stopped " + location());
}

void InstalledBundle::deactivate() noexcept {
    setState(Bundle::STATE_STOPPING);
    framework().services().removeAllOf(*this);
    for (const std::shared_ptr<Component>& component : m_components)
        component->withdraw();
    m_components.clear();
    const std::shared_ptr<const SharedLibrary> loaded = library();
    if (loaded)
        tellContext(*loaded, nullptr);
    closeContext();
    setState(Bundle::STATE_RESOLVED);
}

void InstalledBundle::doUninstall() {
    const std::lock_guard operation(m_operation);
    requireInstalled();
    if (state() == Bundle::STATE_STARTING || state() == Bundle::STATE_STOPPING)
        throw std::runtime_error("cannot uninstall " + location() + ": it is being started or stopped");
    if (state() == Bundle::STATE_ACTIVE)
        deactivate();
    framework().forget(*this);
    setState(Bundle::STATE_UNINSTALLED);
    unload();
    framework().log("uninstalled " + location());
}

void InstalledBundle::unload() noexcept {
    std::shared_ptr<const SharedLibrary> loaded;
    const MutexLock lock(m_libraryMutex);
    loaded.swap(m_library);
}

void InstalledBundle::requireInstalled() const {
    if (state() == Bundle::STATE_UNINSTALLED)
        throw std::logic_error("bundle " + location() + " was uninstalled");
}

} // namespace cppmicroservices
