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

    /// Throws std::runtime_error if `library` does not export the functions for the implementation class.
    Component(const std::shared_ptr<BundlePrivate>& bundle, std::shared_ptr<const SharedLibrary> library,
              ComponentMetadata metadata);
    ~Component();

    Component(const Component&) = delete;
    Component& operator=(const Component&) = delete;

    /// Registers the component's service. Throws as the constructor of ServiceRecord.
    void registerService(const std::shared_ptr<BundlePrivate>& bundle);

    /// The object of the component's service `record`, made on the calling thread if there is none; null if
    /// that fails, which is logged, or the component was withdrawn.
    InterfaceMapConstPtr object(const std::shared_ptr<ServiceRecord>& record);

    /// Gives up the object for good. Waits for another thread that is making it.
    void withdraw() noexcept;

private:
    /// Busy: the thread m_worker runs code of the component.
    enum class Phase { Idle, Busy, Ready, Withdrawn };

    using NewInstance = ComponentInstance*();
    using DeleteInstance = void(ComponentInstance*);
    using Instance = std::unique_ptr<ComponentInstance, DeleteInstance*>;

    Instance make(const std::shared_ptr<ServiceRecord>& record) const;
    InterfaceMapConstPtr interfacesOf(ComponentInstance& instance) const;
    void makeObject(const std::shared_ptr<ServiceRecord>& record) KX_EXCLUDES(m_mutex);
    void discard(Instance instance) const noexcept;
    void log(const std::string& failedAction, const std::string& cause) const;

    const std::weak_ptr<BundlePrivate> m_bundle;
    // Before the objects that it must outlive.
    const std::shared_ptr<const SharedLibrary> m_library;
    const ComponentMetadata m_metadata;
    NewInstance* const m_newInstance;
    DeleteInstance* const m_deleteInstance;

    foundation::core::Mutex m_mutex;
    foundation::core::ConditionVariable m_changed;
    Phase m_phase KX_GUARDED_BY(m_mutex) = Phase::Idle;
    std::thread::id m_worker KX_GUARDED_BY(m_mutex);
    /// Set when the component was withdrawn by its own code while its object was made.
    bool m_withdrawWhenDone KX_GUARDED_BY(m_mutex) = false;
    Instance m_instance KX_GUARDED_BY(m_mutex);
    InterfaceMapConstPtr m_object KX_GUARDED_BY(m_mutex);
};

} // namespace cppmicroservices
