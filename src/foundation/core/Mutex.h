#pragma once

#include <foundation/core/ThreadAnnotations.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace foundation::core {

/// A std::mutex that the compiler's thread-safety analysis knows. Not recursive.
class KX_CAPABILITY("mutex") Mutex {
public:
    Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    void lock() KX_ACQUIRE() { m_mutex.lock(); }
    void unlock() KX_RELEASE() { m_mutex.unlock(); }
    bool try_lock() KX_TRY_ACQUIRE(true) { return m_mutex.try_lock(); }

    /// The mutex below, for the standard library's own functions. The analysis does not see what they do with
    /// it.
    std::mutex& native() noexcept KX_RETURN_CAPABILITY(this) { return m_mutex; }

private:
    std::mutex m_mutex;
};

/// Holds a mutex from here to the end of the block. In between it can be let go of and taken again.
class KX_SCOPED_CAPABILITY MutexLock {
public:
    explicit MutexLock(Mutex& mutex) KX_ACQUIRE(mutex) : m_mutex(mutex) { m_mutex.lock(); }
    ~MutexLock() KX_RELEASE() {
        if (m_held) {
            m_mutex.unlock();
        }
    }

    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

    /// Precondition: not held (held, for unlock).
    void lock() KX_ACQUIRE() {
        m_mutex.lock();
        m_held = true;
    }
    void unlock() KX_RELEASE() {
        m_held = false;
        m_mutex.unlock();
    }

private:
    Mutex& m_mutex;
    bool m_held = true;
};

/// A condition variable over Mutex. The caller of a wait holds the mutex; it is let go of during the wait and
/// held again on return, also when a predicate throws. Waits wake up without cause at times: loop, or give a
/// predicate.
class ConditionVariable {
public:
    void notifyOne() noexcept { m_condition.notify_one(); }
    void notifyAll() noexcept { m_condition.notify_all(); }

    void wait(Mutex& mutex) KX_REQUIRES(mutex) {
        Borrowed borrowed(mutex);
        m_condition.wait(borrowed.lock);
    }

    /// The predicate runs with the mutex held. For what a mutex guards, the loop `while (!ready) wait(mutex)`
    /// is the better form: the analysis does not see into a lambda.
    template <typename Predicate>
    void wait(Mutex& mutex, Predicate ready) KX_REQUIRES(mutex) {
        while (!ready()) {
            wait(mutex);
        }
    }

    /// Returns false if `deadline` passed without a wake-up.
    template <typename Clock, typename Duration>
    bool waitUntil(Mutex& mutex, const std::chrono::time_point<Clock, Duration>& deadline)
        KX_REQUIRES(mutex) {
        Borrowed borrowed(mutex);
        return m_condition.wait_until(borrowed.lock, deadline) == std::cv_status::no_timeout;
    }

private:
    struct Borrowed {
        explicit Borrowed(Mutex& mutex) : lock(mutex.native(), std::adopt_lock) {}
        ~Borrowed() { lock.release(); }
        Borrowed(const Borrowed&) = delete;
        Borrowed& operator=(const Borrowed&) = delete;

        std::unique_lock<std::mutex> lock;
    };

    std::condition_variable m_condition;
};

} // namespace foundation::core
