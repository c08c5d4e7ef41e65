#include <storage/mount/src/RequestLoop.h>

#include <storage/mount/src/FuseOperations.h>
#include <storage/mount/src/SystemFailure.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace storage::mount {

using foundation::core::MutexLock;
using Clock = std::chrono::steady_clock;

namespace {

/// Changes that wait for a save take a thread each; listing and reading must find one all the same.
constexpr std::size_t mostThreads = 64;
/// How long a program may take to come back with its next request, before the receiver sleeps: about what it
/// costs to be woken. A single processor has the program wait for the one that looks out for it.
Clock::duration lookOut() {
    static const bool several = std::thread::hardware_concurrency() > 1;
    return several ? std::chrono::microseconds(100) : Clock::duration::zero();
}

/// A request in hand for so long to twice as long is not waited for.
constexpr auto watchInterval = std::chrono::milliseconds(2);
/// How long the receiving of a request waits for memory.
constexpr auto memoryInterval = std::chrono::milliseconds(10);
/// Looks without a request after which the watcher goes to sleep.
constexpr int quietLooks = 250;
/// Requests in a row that make a backlog; one program alone has a few of them on their way.
constexpr int backlog = 16;

bool inHand(std::uint64_t progress) {
    return progress % 2 == 1;
}

/// Greater than all that the receiver so far can make of it.
std::uint64_t successorOf(std::uint64_t progress) {
    return ((progress >> 32) + 1) << 32;
}

unsigned mostHelpers() {
    return std::max(1U, std::thread::hardware_concurrency()) - 1;
}

/// Threads that are started meanwhile are told of no signals: those are the program's own to handle. What a
/// thread brings upon itself still reaches it.
class SignalsBlocked {
public:
    SignalsBlocked() {
        sigset_t all{};
        sigfillset(&all);
        for (const int own : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP})
            sigdelset(&all, own);
        pthread_sigmask(SIG_SETMASK, &all, &m_before);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t m_before{};
};

} // namespace

/// What libfuse receives into; it allocates the bytes.
class RequestLoop::Buffer {
public:
    Buffer() = default;
    ~Buffer() { std::free(m_buffer.mem); } // NOLINT(cppcoreguidelines-no-malloc)
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;

    int receive(fuse_session* session) { return fuse_session_receive_buf(session, &m_buffer); }
    void process(fuse_session* session) { fuse_session_process_buf(session, &m_buffer); }

private:
    fuse_buf m_buffer{};
};

RequestLoop::RequestLoop(fuse_session* session)
    : m_session(session), m_connection(fuse_session_fd(session)),
      m_alarm(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (m_alarm < 0)
        failWith(errno, "cannot make an event for the end of the mount");
    const int flags = fcntl(m_connection, F_GETFL);
    if (flags < 0 || fcntl(m_connection, F_SETFL, flags | O_NONBLOCK) < 0) {
        const int error = errno;
        close(m_alarm);
        failWith(error, "cannot prepare the connection to the system");
    }
}

RequestLoop::~RequestLoop() {
    end();
    join();
    close(m_alarm);
}

void RequestLoop::join() {
    std::vector<std::thread> threads;
    {
        const MutexLock lock(m_mutex);
        threads.swap(m_threads);
    }
    for (auto& thread : threads)
        thread.join();
}

void RequestLoop::start() {
    const MutexLock lock(m_mutex);
    m_threads.reserve(mostThreads);
    startThread();
}

void RequestLoop::run() {
    {
        const MutexLock lock(m_mutex);
        while (!m_ended)
            m_forRun.wait(m_mutex);
    }
    join();
    if (m_error != 0)
        failWith(m_error, "the connection to the system broke");
}

void RequestLoop::end() noexcept {
    const MutexLock lock(m_mutex);
    m_ended = true;
    constexpr std::uint64_t once = 1;
    // It can fail only for a count that is at its end already.
    static_cast<void>(!write(m_alarm, &once, sizeof once));
    m_forIdle.notifyAll();
    m_forWatcher.notifyAll();
    m_forRun.notifyAll();
}

void RequestLoop::work() noexcept {
    Buffer buffer;
    MutexLock lock(m_mutex);
    while (!m_ended) {
        if (!m_hasReceiver) {
            m_hasReceiver = true;
            lock.unlock();
            callWatcher();
            receive(buffer);
            lock.lock();
        } else if (!m_hasWatcher) {
            m_hasWatcher = true;
            watch();
            m_hasWatcher = false;
        } else if (m_helpersCalled > 0) {
            --m_helpersCalled;
            lock.unlock();
            help(buffer);
            lock.lock();
            --m_helpers;
        } else {
            waitForCall();
        }
    }
}

void RequestLoop::waitForCall() {
    ++m_idle;
    while (!m_ended && m_called == 0)
        m_forIdle.wait(m_mutex);
    if (m_called > 0)
        --m_called;
    --m_idle;
}

RequestLoop::Received RequestLoop::take(Buffer& buffer) {
    if (m_ended)
        return Received::End;
    const int got = buffer.receive(m_session);
    if (got > 0)
        return Received::Request;
    if (got == -EAGAIN || got == -EINTR)
        return Received::Nothing;
    if (got == -ENOMEM) {
        std::this_thread::sleep_for(memoryInterval);
        return Received::Nothing;
    }
    int none = 0;
    if (got < 0)
        m_error.compare_exchange_strong(none, -got);
    end();
    return Received::End;
}

void RequestLoop::receive(Buffer& buffer) {
    auto progress = m_progress.load();
    auto last = Clock::now();
    for (int inARow = 0;;) {
        const auto received = take(buffer);
        if (received == Received::End)
            return;
        if (received == Received::Nothing) {
            inARow = 0;
            if (Clock::now() - last < lookOut()) {
                sched_yield();
            } else {
                callWatcher();
                waitForRequest();
                last = Clock::now();
            }
            continue;
        }
        m_progress = ++progress;
        keepWatched();
        buffer.process(m_session);
        // Fails when another one has taken this one's place.
        if (!m_progress.compare_exchange_strong(progress, progress + 1))
            return;
        ++progress;
        last = Clock::now();
        if (++inARow == backlog) {
            callHelper();
            inARow = 0;
        }
    }
}

void RequestLoop::help(Buffer& buffer) {
    for (auto last = Clock::now();;) {
        const auto received = take(buffer);
        if (received == Received::Request) {
            buffer.process(m_session);
            last = Clock::now();
        } else if (received == Received::End || Clock::now() - last >= lookOut()) {
            return;
        } else {
            sched_yield();
        }
    }
}

void RequestLoop::waitForRequest() const {
    std::array<pollfd, 2> events{{{m_connection, POLLIN, 0}, {m_alarm, POLLIN, 0}}};
    poll(events.data(), events.size(), -1);
}

void RequestLoop::keepWatched() {
    if (m_watched)
        return;
    const MutexLock lock(m_mutex);
    m_watched = true;
    m_forWatcher.notifyOne();
}

void RequestLoop::watch() {
    auto seen = m_progress.load();
    for (int quiet = 0; !m_ended;) {
        if (m_watched)
            m_forWatcher.waitUntil(m_mutex, Clock::now() + watchInterval);
        else
            m_forWatcher.wait(m_mutex);
        auto now = m_progress.load();
        if (now != seen) {
            seen = now;
            quiet = 0;
        } else if (inHand(now)) {
            if (m_progress.compare_exchange_strong(now, successorOf(now))) {
                m_hasReceiver = false;
                return;
            }
        } else if (++quiet >= quietLooks) {
            quiet = 0;
            m_watched = false;
            // The receiver looks at these two the other way round: one of the two notices.
            m_watched = m_progress != seen;
        }
    }
}

void RequestLoop::callWatcher() {
    const MutexLock lock(m_mutex);
    if (!m_hasWatcher)
        callThread();
}

void RequestLoop::callHelper() {
    const MutexLock lock(m_mutex);
    if (m_helpers >= mostHelpers() || !callThread())
        return;
    ++m_helpers;
    ++m_helpersCalled;
}

bool RequestLoop::callThread() {
    if (m_idle > m_called) {
        ++m_called;
        m_forIdle.notifyOne();
        return true;
    }
    try {
        return startThread();
    } catch (const std::exception&) {
        // The next one who needs it tries again.
        return false;
    }
}

bool RequestLoop::startThread() {
    if (m_ended || m_threads.size() >= mostThreads)
        return false;
    const SignalsBlocked blocked;
    m_threads.emplace_back([this] { work(); });
    return true;
}

} // namespace storage::mount
