#pragma once

#include <foundation/core/Mutex.h>
#include <storage/mount/MountOptions.h>
#include <storage/mount/src/Changes.h>
#include <storage/mount/src/WorkingSpace.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>

namespace storage::mount {

/// How one save ended.
struct SaveResult {
    /// 0 or the number of a system error.
    int error = 0;
    /// Empty when it succeeded.
    std::string cause;
    std::chrono::system_clock::time_point ended;
    std::chrono::milliseconds duration{};
};

/// Decides when changes are saved, and saves them on a thread of its own. Threads: any.
class Saver {
public:
    using Listener = std::function<void()>;

    /// `onLook` is called on the saver's thread after each save, and about once a second while something is
    /// not saved; `onSave` after each save.
    Saver(Changes& changes, const WorkingSpace& space, const MountOptions& options,
          std::function<void(const SaveResult&)> onSave, Listener onLook);
    /// Ends the thread without saving.
    ~Saver();

    Saver(const Saver&) = delete;
    Saver& operator=(const Saver&) = delete;

    /// A change was made.
    void changed();
    /// Returns when everything that was changed before the call is saved. Errors: std::system_error.
    void saveNow();
    /// Ends the thread after the save that is under way.
    void stop();

    /// How many saves have failed, for telling those who wrote before; and the error of the last one.
    std::uint64_t failures() const { return m_failures; }
    int lastError() const { return m_lastError; }

private:
    using Clock = std::chrono::steady_clock;

    void run();
    bool isDue(Clock::time_point now) const KX_REQUIRES(m_mutex);
    Clock::time_point nextLook(Clock::time_point now) const KX_REQUIRES(m_mutex);
    void save() KX_EXCLUDES(m_mutex);
    Clock::duration quietInterval() const KX_REQUIRES(m_mutex);
    Clock::time_point lastChange() const { return Clock::time_point(Clock::duration(m_lastChange)); }

    Changes& m_changes;
    const WorkingSpace& m_space;
    const MountOptions& m_options;
    const std::function<void(const SaveResult&)> m_onSave;
    const Listener m_onLook;

    // Set at each change, which must not wait for a mutex.
    std::atomic<Clock::rep> m_lastChange = 0;
    std::atomic<bool> m_pending = false;
    std::atomic<bool> m_overLimit = false;
    std::atomic<std::uint64_t> m_failures = 0;
    std::atomic<int> m_lastError = 0;

    foundation::core::Mutex m_mutex;
    foundation::core::ConditionVariable m_wake;
    foundation::core::ConditionVariable m_saved;
    bool m_stop KX_GUARDED_BY(m_mutex) = false;
    std::uint64_t m_requested KX_GUARDED_BY(m_mutex) = 0;
    std::uint64_t m_completed KX_GUARDED_BY(m_mutex) = 0;
    SaveResult m_last KX_GUARDED_BY(m_mutex);
    Clock::time_point m_firstChange KX_GUARDED_BY(m_mutex);
    Clock::time_point m_notBefore KX_GUARDED_BY(m_mutex);

    std::thread m_thread;
};

} // namespace storage::mount
