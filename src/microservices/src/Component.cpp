#include "Component.h"

#include "BundlePrivate.h"
#include "ComponentServiceContext.h"
#include "FrameworkCore.h"
#include "LoadedInterfaces.h"
#include "SharedLibrary.h"

#include <cppmicroservices/ServiceException.h>
#include <cppmicroservices/SharedLibraryException.h>
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

Component::Component(const std::shared_ptr<BundlePrivate>& bundle, ComponentMetadata metadata)
    : m_bundle(bundle), m_metadata(std::move(metadata)) {}

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
        return m_made.object;
    if (m_phase == Phase::Busy) {
        lock.unlock();
        log("make", "it asks for its own service");
        return nullptr;
    }
    m_phase = Phase::Busy;
    m_worker = std::this_thread::get_id();
    lock.unlock();
    std::exception_ptr unloadable;
    const std::string failure = failureOf([&] {
        try {
            makeObject(record);
        } catch (const SharedLibraryException&) {
            unloadable = std::current_exception();
            throw;
        }
    });
    if (!failure.empty())
        log("make", failure);
    if (unloadable)
        std::rethrow_exception(unloadable);
    lock.lock();
    return m_made.object;
}

void Component::makeObject(const std::shared_ptr<ServiceRecord>& record) {
    Made made;
    const auto finish = [&] {
        const MutexLock lock(m_mutex);
        m_phase = m_withdrawWhenDone ? Phase::Withdrawn : made.object ? Phase::Ready : Phase::Idle;
        if (m_phase == Phase::Ready)
            std::swap(m_made, made);
        m_changed.notifyAll();
    };
    try {
        const std::shared_ptr<BundlePrivate> bundle = m_bundle.lock();
        if (!bundle)
            throw ServiceException("its bundle is gone", ServiceException::FACTORY_ERROR);
        made.library = bundle->loadLibrary();
        made.instance = make(bundle, *made.library, record);
        made.object = interfacesOf(made);
    } catch (...) {
        discard(std::move(made));
        made = Made();
        finish();
        throw;
    }
    finish();
    discard(std::move(made));
}

Component::Instance Component::make(const std::shared_ptr<BundlePrivate>& bundle,
                                    const SharedLibrary& library,
                                    const std::shared_ptr<ServiceRecord>& record) const {
    NewInstance* const newInstance = exported<NewInstance>(library, "NewInstance_" + m_metadata.symbol());
    DeleteInstance* const deleteInstance =
        exported<DeleteInstance>(library, "DeleteInstance_" + m_metadata.symbol());
    Instance instance(newInstance(), deleteInstance);
    if (!instance)
        throw ServiceException("NewInstance_" + m_metadata.symbol() + " returned no object",
                               ServiceException::FACTORY_ERROR);
    instance->CreateInstance(std::make_shared<ComponentServiceContext>(bundle->context(), record));
    instance->Activate();
    return instance;
}

InterfaceMapConstPtr Component::interfacesOf(const Made& made) const {
    const InterfaceMapConstPtr interfaces = made.instance->GetInterfaceMap();
    for (const std::string& name : m_metadata.interfaces)
        if (!interfaces || interfaces->count(name) == 0 || !interfaces->at(name))
            throw ServiceException("its object does not offer " + name, ServiceException::FACTORY_ERROR);
    return keepLoaded(interfaces, made.library);
}

void Component::withdraw() noexcept {
    Made made;
    MutexLock lock(m_mutex);
    while (m_phase == Phase::Busy && m_worker != std::this_thread::get_id())
        m_changed.wait(m_mutex);
    if (m_phase == Phase::Busy) {
        m_withdrawWhenDone = true;
        return;
    }
    m_phase = Phase::Withdrawn;
    std::swap(m_made, made);
    lock.unlock();
    discard(std::move(made));
}

void Component::discard(Made made) const noexcept {
    if (!made.instance)
        return;
    const std::string failure = failureOf([&] { made.instance->Deactivate(); });
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
