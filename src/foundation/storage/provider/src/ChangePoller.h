#pragma once

#include "ChangeSnapshot.h"

#include <foundation/core/Mutex.h>
#include <foundation/core/ThreadAnnotations.h>
#include <foundation/storage/provider/ChangeEvent.h>

#include <chrono>
#include <deque>
#include <map>
#include <memory>
#include <thread>

namespace foundation::storage::provider {
class IProvider;
}

namespace foundation::storage::provider::detail {

/// Looks at the watched locations of one provider from time to time, on one thread while it is started, and
/// tells the listeners what changed since the look before. The first look is made by watch() itself.
///
/// A look that fails counts for nothing; the location is looked at again the next time. A folder that is gone
/// has no entries.
///
/// Threads: all operations may be called from any thread, watch(), unwatch() and start() from listeners too.
class ChangePoller {
public:
    enum class Target { File, Folder };

    /// `provider` must outlive this object and be whole while the polling runs.
    explicit ChangePoller(IProvider& provider);
    /// As stop().
    ~ChangePoller();

    ChangePoller(const ChangePoller&) = delete;
    ChangePoller& operator=(const ChangePoller&) = delete;

    /// Replaces the listener of the same location, of which no call runs or follows after the return.
    /// Errors: those of the first look.
    void watch(const StorageIRI& location, Target target, ChangeListener listener);
    /// No call of the location's listener runs or follows after the return. Called from that listener, the
    /// running call is the last.
    void unwatch(const StorageIRI& location);
    void unwatchAll();

    /// Starts the polling or sets its interval.
    void start(std::chrono::milliseconds interval);
    /// Ends the polling and waits for it. Errors: std::logic_error when called from a listener, for which it
    /// would have to wait.
    void stop();

private:
    enum class State { Idle, Running, Stopping };

    struct Watch {
        StorageIRI location;
        Target target;
        ChangeListener listener;
        /// Touched by watch() before others see it, then by the polling thread only.
        ChangeSnapshot snapshot;
        /// What the listener has not been told yet because the polling was stopped; the polling thread's.
        std::deque<ChangeEvent> pending = {};
        /// Whether the listener may still be called; guarded by the poller's mutex.
        bool active = true;
    };

    void run();
    void lookAt(Watch& watch);
    void tell(Watch& watch);
    bool beginCall(const Watch& watch);
    void endCall();
    ChangeSnapshot look(const StorageIRI& location, Target target) const;
    ChangeSnapshot lookAgain(const Watch& watch) const;
    void retire(Watch& watch) KX_REQUIRES(m_mutex);
    bool isPollingThread() const KX_REQUIRES(m_mutex);

    IProvider& m_provider;

    core::Mutex m_mutex;
    core::ConditionVariable m_changed;
    State m_state KX_GUARDED_BY(m_mutex) = State::Idle;
    std::chrono::milliseconds m_interval KX_GUARDED_BY(m_mutex){0};
    std::map<StorageIRI, std::shared_ptr<Watch>> m_watches KX_GUARDED_BY(m_mutex);
    /// The watch whose listener is being called.
    const Watch* m_called KX_GUARDED_BY(m_mutex) = nullptr;
    std::thread m_thread KX_GUARDED_BY(m_mutex);
    std::thread::id m_threadId KX_GUARDED_BY(m_mutex);
};

} // namespace foundation::storage::provider::detail
