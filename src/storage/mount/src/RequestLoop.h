#pragma once

#include <foundation/core/Mutex.h>

#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

struct fuse_session;
struct fuse_buf;

namespace storage::mount {

/// Answers the requests of a FUSE session.
///
/// To wake a thread takes longer than to answer most requests. So one thread, the receiver, takes a request,
/// answers it and looks out for the next one for a moment before it goes to sleep. Another one, the watcher,
/// looks every few milliseconds whether the receiver still has the same request in hand (a change may wait
/// for a save), and takes its place then. When requests come without a gap, helpers take some of them.
class RequestLoop {
public:
    /// Precondition: the session is mounted; it outlives the loop. Errors: std::system_error.
    explicit RequestLoop(fuse_session* session);
    /// Ends it and waits for its threads.
    ~RequestLoop();

    RequestLoop(const RequestLoop&) = delete;
    RequestLoop& operator=(const RequestLoop&) = delete;

    /// Begins to answer. To be called once. Errors: std::system_error when no thread can be had.
    void start();
    /// Returns when the folder was unmounted or end() was called, and all requests in hand are answered.
    /// Errors: std::system_error when the connection broke. To be called once, after start().
    void run();
    /// Callable from any thread, also before run().
    void end() noexcept;

private:
    class Buffer;
    enum class Received { Request, Nothing, End };

    void work() noexcept;
    /// Precondition: it has ended, so that no thread is started any more.
    void join();
    void receive(Buffer& buffer);
    void help(Buffer& buffer);
    void waitForCall() KX_REQUIRES(m_mutex);
    void watch() KX_REQUIRES(m_mutex);
    Received take(Buffer& buffer);
    void waitForRequest() const;
    void keepWatched();
    void callWatcher();
    void callHelper();
    /// Has an idle thread, or a new one, look for what is to be done. Returns false when there is none to be
    /// had.
    bool callThread() KX_REQUIRES(m_mutex);
    bool startThread() KX_REQUIRES(m_mutex);

    fuse_session* const m_session;
    const int m_connection;
    /// Readable from end() on.
    const int m_alarm;
    std::atomic<bool> m_ended = false;
    std::atomic<int> m_error = 0;
    /// Grows with each step of the receiver: odd while it has a request in hand. Whoever takes its place
    /// makes it even and leaves the old one behind for good.
    std::atomic<std::uint64_t> m_progress = 0;
    /// Whether the watcher looks at the receiver; it sleeps while there are no requests.
    std::atomic<bool> m_watched = false;

    foundation::core::Mutex m_mutex;
    foundation::core::ConditionVariable m_forIdle;
    foundation::core::ConditionVariable m_forWatcher;
    foundation::core::ConditionVariable m_forRun;
    bool m_hasReceiver KX_GUARDED_BY(m_mutex) = false;
    bool m_hasWatcher KX_GUARDED_BY(m_mutex) = false;
    unsigned m_helpers KX_GUARDED_BY(m_mutex) = 0;
    unsigned m_helpersCalled KX_GUARDED_BY(m_mutex) = 0;
    /// Threads with nothing to do, and how many of them are being woken.
    unsigned m_idle KX_GUARDED_BY(m_mutex) = 0;
    unsigned m_called KX_GUARDED_BY(m_mutex) = 0;
    std::vector<std::thread> m_threads KX_GUARDED_BY(m_mutex);
};

} // namespace storage::mount
