#include "ChangePoller.h"

#include <foundation/storage/provider/Exception.h>
#include <foundation/storage/provider/IProvider.h>

#include <algorithm>
#include <stdexcept>
#include <utility>
#include <vector>

namespace foundation::storage::provider::detail {

ChangePoller::ChangePoller(IProvider& provider) : m_provider(provider) {}

ChangePoller::~ChangePoller() {
    stop();
}

void ChangePoller::watch(const StorageIRI& location, Target target, ChangeListener listener) {
    const auto place = m_provider.getCanonicalLocation(location);
    auto watch = std::make_shared<Watch>(Watch{place, target, std::move(listener), look(place, target)});
    // Declared before the lock: a listener's own state is destroyed without it.
    std::shared_ptr<Watch> replaced;
    core::MutexLock lock(m_mutex);
    replaced = std::exchange(m_watches[place], std::move(watch));
    if (replaced) {
        retire(*replaced);
    }
}

void ChangePoller::unwatch(const StorageIRI& location) {
    const auto place = m_provider.getCanonicalLocation(location);
    std::shared_ptr<Watch> watch;
    core::MutexLock lock(m_mutex);
    const auto found = m_watches.find(place);
    if (found != m_watches.end()) {
        watch = std::move(found->second);
        m_watches.erase(found);
        retire(*watch);
    }
}

void ChangePoller::unwatchAll() {
    std::map<StorageIRI, std::shared_ptr<Watch>> watches;
    core::MutexLock lock(m_mutex);
    watches.swap(m_watches);
    for (const auto& [place, watch] : watches) {
        retire(*watch);
    }
}

void ChangePoller::start(std::chrono::milliseconds interval) {
    core::MutexLock lock(m_mutex);
    m_interval = interval;
    m_changed.notifyAll();
    if (isPollingThread()) {
        return;
    }
    while (m_state == State::Stopping) {
        m_changed.wait(m_mutex);
    }
    if (m_state == State::Idle) {
        m_thread = std::thread([this] { run(); });
        m_threadId = m_thread.get_id();
        m_state = State::Running;
    }
}

void ChangePoller::stop() {
    core::MutexLock lock(m_mutex);
    if (isPollingThread()) {
        throw std::logic_error("cannot stop change polling: a change listener asks for it");
    }
    while (m_state == State::Stopping) {
        m_changed.wait(m_mutex);
    }
    if (m_state == State::Idle) {
        return;
    }
    m_state = State::Stopping;
    m_changed.notifyAll();
    std::thread thread = std::move(m_thread);
    lock.unlock();
    thread.join();
    lock.lock();
    m_threadId = {};
    m_state = State::Idle;
    m_changed.notifyAll();
}

void ChangePoller::run() {
    core::MutexLock lock(m_mutex);
    while (m_state == State::Running) {
        std::vector<std::shared_ptr<Watch>> watches;
        for (const auto& [place, watch] : m_watches) {
            watches.push_back(watch);
        }
        lock.unlock();
        for (const auto& watch : watches) {
            lookAt(*watch);
            tell(*watch);
        }
        watches.clear();
        lock.lock();
        // A new interval counts from here on, so the deadline is made afresh after every wake-up.
        const auto looked = std::chrono::steady_clock::now();
        const auto longest = std::chrono::milliseconds(std::chrono::hours(24));
        while (m_state == State::Running &&
               m_changed.waitUntil(m_mutex, looked + std::min(m_interval, longest))) {
        }
    }
}

void ChangePoller::lookAt(Watch& watch) {
    try {
        auto snapshot = lookAgain(watch);
        const auto events = changesBetween(watch.location, watch.snapshot, snapshot);
        watch.pending.insert(watch.pending.end(), events.begin(), events.end());
        watch.snapshot = std::move(snapshot);
    } catch (...) {
        // What could not be looked at is looked at again the next time.
    }
}

void ChangePoller::tell(Watch& watch) {
    while (!watch.pending.empty() && beginCall(watch)) {
        const auto event = std::move(watch.pending.front());
        watch.pending.pop_front();
        try {
            watch.listener(event);
        } catch (...) {
            // Other listeners and later events must not suffer from one that breaks its contract.
        }
        endCall();
    }
}

bool ChangePoller::beginCall(const Watch& watch) {
    core::MutexLock lock(m_mutex);
    const bool call = watch.active && m_state == State::Running;
    m_called = call ? &watch : nullptr;
    return call;
}

void ChangePoller::endCall() {
    core::MutexLock lock(m_mutex);
    m_called = nullptr;
    m_changed.notifyAll();
}

ChangeSnapshot ChangePoller::look(const StorageIRI& location, Target target) const {
    return target == Target::File ? lookAtFile(m_provider, location) : lookAtFolder(m_provider, location);
}

ChangeSnapshot ChangePoller::lookAgain(const Watch& watch) const {
    try {
        return look(watch.location, watch.target);
    } catch (const Exception& failure) {
        if (failure.getErrorCode() != ErrorCode::NotFound) {
            throw;
        }
        return {};
    }
}

void ChangePoller::retire(Watch& watch) {
    watch.active = false;
    while (m_called == &watch && !isPollingThread()) {
        m_changed.wait(m_mutex);
    }
}

bool ChangePoller::isPollingThread() const {
    return m_threadId == std::this_thread::get_id();
}

} // namespace foundation::storage::provider::detail
