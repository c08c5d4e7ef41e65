#pragma once

#include "ComponentMetadata.h"
#include "ServiceRecord.h"

#include <cppmicroservices/servicecomponent/detail/ComponentInstance.hpp>

#include <foundation/core/Mutex.h>
#include <foundation/core/ThreadAnnotations.h>

#include <memory>
#include <thread>

namespace cppmicroservices {

class BundlePrivate;
class SharedLibrary;

/// One component of a started bundle: its service, and its one object, which is made when it is first asked
/// for. May be used from several threads. No lock is held while code of the component runs.
class Component : public std::enable_shared_from_this<Component> {
public:
    using ComponentInstance = service::component::detail::ComponentInstance;

    Component(const std::shared_ptr<BundlePrivate>& bundle, ComponentMetadata metadata);
    ~Component();

    Component(const Component&) = delete;
    Component& operator=(const Component&) = delete;

    /// Registers the component's service. Throws as the constructor of ServiceRecord.
    void registerService(const std::shared_ptr<BundlePrivate>& bundle);

    /// The object of the component's service `record`, made on the calling thread if there is none; null if
    /// that fails, which is logged, or the component was withdrawn. Loads the bundle's library if need be.
    /// Throws SharedLibraryException.
    InterfaceMapConstPtr object(const std::shared_ptr<ServiceRecord>& record);

    /// Gives up the object for good. Waits for another thread that is making it.
    void withdraw() noexcept;

private:
    /// Busy: the thread m_worker runs code of the component.
    enum class Phase { Idle, Busy, Ready, Withdrawn };

    using NewInstance = ComponentInstance*();
    using DeleteInstance = void(ComponentInstance*);
    using Instance = std::unique_ptr<ComponentInstance, DeleteInstance*>;

    /// The component's object, with what must outlive it in front.
    struct Made {
        std::shared_ptr<const SharedLibrary> library;
        Instance instance{nullptr, nullptr};
        InterfaceMapConstPtr object;
    };

    Instance make(const std::shared_ptr<BundlePrivate>& bundle, const SharedLibrary& library,
                  const std::shared_ptr<ServiceRecord>& record) const;
    InterfaceMapConstPtr interfacesOf(const Made& made) const;
    void makeObject(const std::shared_ptr<ServiceRecord>& record) KX_EXCLUDES(m_mutex);
    void discard(Made made) const noexcept;
    void log(const std::string& failedAction, const std::string& cause) const;

    const std::weak_ptr<BundlePrivate> m_bundle;
    const ComponentMetadata m_metadata;

    foundation::core::Mutex m_mutex;
    foundation::core::ConditionVariable m_changed;
    Phase m_phase KX_GUARDED_BY(m_mutex) = Phase::Idle;
    std::thread::id m_worker KX_GUARDED_BY(m_mutex);
    /// Set when the component was withdrawn by its own code while its object was made.
    bool m_withdrawWhenDone KX_GUARDED_BY(m_mutex) = false;
    Made m_made KX_GUARDED_BY(m_mutex);
};

} // namespace cppmicroservices
