#include "Component.h"

#include "BundlePrivate.h"
#include "ComponentServiceContext.h"
#include "FrameworkCore.h"
#include "LoadedInterfaces.h"
#include "SharedLibrary.h"

#include <cppmicroservices/ServiceException.h>
#include <cppmicroservices/servicecomponent/ComponentConstants.hpp>

#include <exception>
#include <stdexcept>

namespace cppmicroservices {

using foundation::core::MutexLock;

namespace {

template <typename Function>
Function* exported(const SharedLibrary& library, const std::string& name) {
    Function* const function = library.function<Function>(name);
    if (!function)
        throw std::runtime_error("it does not export " + name);
    return function;
}

/// Calls `action`; the text of what it threw, empty if it did not.
template <typename Action>
std::string failureOf(Action action) noexcept {
    try {
        action();
        return std::string();
    } catch (const std::exception& error) {
        return error.what();
    } catch (...) {
        return "an exception of an unknown type";
    }
}

} // namespace

Component::Component(const std::shared_ptr<BundlePrivate>& bundle,
                     std::shared_ptr<const SharedLibrary> library, ComponentMetadata metadata)
    : m_bundle(bundle), m_library(std::move(library)), m_metadata(std::move(metadata)),
      m_newInstance(exported<NewInstance>(*m_library, "NewInstance_" + m_metadata.symbol())),
      m_deleteInstance(exported<DeleteInstance>(*m_library, "DeleteInstance_" + m_metadata.symbol())),
      m_instance(nullptr, m_deleteInstance) {}

Component::~Component() {
    withdraw();
}

void Component::registerService(const std::shared_ptr<BundlePrivate>& bundle) {
    namespace constants = service::component::ComponentConstants;
    ServiceProperties properties(m_metadata.properties.begin(), m_metadata.properties.end());
    properties.emplace(constants::COMPONENT_NAME, m_metadata.name);
    properties.emplace(constants::COMPONENT_ID, bundle->framework().nextComponentId());
    bundle->framework().services().add(
        bundle, m_metadata.interfaces, properties,
        [component = shared_from_this()](const std::shared_ptr<ServiceRecord>& record) {
            return component->object(record);
        });
}

InterfaceMapConstPtr Component::object(const std::shared_ptr<ServiceRecord>& record) {
    MutexLock lock(m_mutex);
    while (m_phase == Phase::Busy && m_worker != std::this_thread::get_id())
        m_changed.wait(m_mutex);
    if (m_phase == Phase::Ready || m_phase == Phase::Withdrawn)
        return m_object;
    if (m_phase == Phase::Busy) {
        lock.unlock();
        log("make", "it asks for its own service");
        return nullptr;
    }
    m_phase = Phase::Busy;
    m_worker = std::this_thread::get_id();
    lock.unlock();
    const std::string failure = failureOf([&] { makeObject(record); });
    if (!failure.empty())
        log("make", failure);
    lock.lock();
    return m_object;
}

void Component::makeObject(const std::shared_ptr<ServiceRecord>& record) {
    Instance instance(nullptr, m_deleteInstance);
    InterfaceMapConstPtr object;
    const auto finish = [&] {
        const MutexLock lock(m_mutex);
        m_phase = m_withdrawWhenDone ? Phase::Withdrawn : object ? Phase::Ready : Phase::Idle;
        if (m_phase == Phase::Ready) {
            m_instance = std::move(instance);
            m_object = object;
        }
        m_changed.notifyAll();
    };
    try {
        instance = make(record);
        object = interfacesOf(*instance);
    } catch (...) {
        discard(std::move(instance));
        finish();
        throw;
    }
    finish();
    discard(std::move(instance));
}

Component::Instance Component::make(const std::shared_ptr<ServiceRecord>& record) const {
    Instance instance(m_newInstance(), m_deleteInstance);
    if (!instance)
        throw ServiceException("NewInstance_" + m_metadata.symbol() + " returned no object",
                               ServiceException::FACTORY_ERROR);
    const std::shared_ptr<BundlePrivate> bundle = m_bundle.lock();
    instance->CreateInstance(
        std::make_shared<ComponentServiceContext>(bundle ? bundle->context() : nullptr, record));
    instance->Activate();
    return instance;
}

InterfaceMapConstPtr Component::interfacesOf(ComponentInstance& instance) const {
    const InterfaceMapConstPtr interfaces = instance.GetInterfaceMap();
    for (const std::string& name : m_metadata.interfaces)
        if (!interfaces || interfaces->count(name) == 0 || !interfaces->at(name))
            throw ServiceException("its object does not offer " + name, ServiceException::FACTORY_ERROR);
    return keepLoaded(interfaces, m_library);
}

void Component::withdraw() noexcept {
    Instance instance(nullptr, m_deleteInstance);
    InterfaceMapConstPtr object;
    MutexLock lock(m_mutex);
    while (m_phase == Phase::Busy && m_worker != std::this_thread::get_id())
        m_changed.wait(m_mutex);
    if (m_phase == Phase::Busy) {
        m_withdrawWhenDone = true;
        return;
    }
    m_phase = Phase::Withdrawn;
    instance.swap(m_instance);
    object.swap(m_object);
    lock.unlock();
    discard(std::move(instance));
}

void Component::discard(Instance instance) const noexcept {
    if (!instance)
        return;
    const std::string failure = failureOf([&] { instance->Deactivate(); });
    if (!failure.empty())
        log("deactivate", failure);
}

void Component::log(const std::string& failedAction, const std::string& cause) const {
    const std::shared_ptr<BundlePrivate> bundle = m_bundle.lock();
    if (bundle)
        bundle->framework().log("cannot " + failedAction + " component " + m_metadata.name + " of " +
                                bundle->location() + ": " + cause);
}

} // namespace cppmicroservices
