#include "ListenerLog.h"

namespace kx::test {

using foundation::core::MutexLock;

ListenerLog::ListenerLog() : m_shared(std::make_shared<Shared>()) {}

foundation::storage::provider::ChangeListener ListenerLog::listener() const {
    return [log = m_shared](const ChangeEvent& event) {
        MutexLock lock(log->mutex);
        log->events.push_back(event);
        log->arrived.notifyAll();
    };
}

std::vector<ListenerLog::ChangeEvent> ListenerLog::events() const {
    MutexLock lock(m_shared->mutex);
    return m_shared->events;
}

std::vector<ListenerLog::ChangeEvent> ListenerLog::waitFor(std::size_t count,
                                                           std::chrono::milliseconds timeout) const {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    MutexLock lock(m_shared->mutex);
    while (m_shared->events.size() < count && m_shared->arrived.waitUntil(m_shared->mutex, deadline)) {
    }
    return m_shared->events;
}

void ListenerLog::clear() {
    MutexLock lock(m_shared->mutex);
    m_shared->events.clear();
}

} // namespace kx::test
