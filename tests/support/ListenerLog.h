#pragma once

#include <foundation/core/Mutex.h>
#include <foundation/storage/provider/ChangeEvent.h>

#include <chrono>
#include <memory>
#include <vector>

namespace kx::test {

/// Collects the change events that its listeners are told. Threads: any.
class ListenerLog {
public:
    using ChangeEvent = foundation::storage::provider::ChangeEvent;

    ListenerLog();

    /// A listener that writes into this log; it may outlive it.
    foundation::storage::provider::ChangeListener listener() const;
    std::vector<ChangeEvent> events() const;
    /// Waits until there are `count` events or the time is over, and returns the events there are.
    std::vector<ChangeEvent> waitFor(std::size_t count,
                                     std::chrono::milliseconds timeout = std::chrono::seconds(20)) const;
    void clear();

private:
    struct Shared {
        foundation::core::Mutex mutex;
        foundation::core::ConditionVariable arrived;
        std::vector<ChangeEvent> events KX_GUARDED_BY(mutex);
    };

    const std::shared_ptr<Shared> m_shared;
};

} // namespace kx::test
