#include <storage/mount/src/Saver.h>

#include <storage/mount/src/SystemFailure.h>

#include <algorithm>
#include <exception>

namespace storage::mount {

using foundation::core::MutexLock;
using namespace std::chrono_literals;

namespace {

/// How long after a failed save it is tried again without being asked for.
constexpr auto retryInterval = 10s;
constexpr auto lookInterval = 1s;
/// Descriptors that scratch files may take before they are handed over.
constexpr std::uint64_t fileLimit = 512;

} // namespace

Saver::Saver(Changes& changes, const WorkingSpace& space, const MountOptions& options,
             std::function<void(const SaveResult&)> onSave, Listener onLook)
    : m_changes(changes), m_space(space), m_options(options), m_onSave(std::move(onSave)),
      m_onLook(std::move(onLook)), m_thread([this] { run(); }) {}

Saver::~Saver() {
    stop();
}

void Saver::stop() {
    {
        const MutexLock lock(m_mutex);
        m_stop = true;
        m_wake.notifyAll();
        m_saved.notifyAll();
    }
    if (m_thread.joinable())
        m_thread.join();
}

void Saver::changed() {
    m_lastChange = Clock::now().time_since_epoch().count();
    const bool first = !m_pending.exchange(true);
    const bool over = m_space.total() > m_options.spaceLimit || m_space.files > fileLimit;
    const bool firstOver = over && !m_overLimit.exchange(true);
    if (!first && !firstOver)
        return;
    const MutexLock lock(m_mutex);
    if (first)
        m_firstChange = Clock::now();
    m_wake.notifyAll();
}

void Saver::saveNow() {
    if (!m_changes.areUnsaved())
        return;
    const MutexLock lock(m_mutex);
    const auto target = ++m_requested;
    m_wake.notifyAll();
    while (m_completed < target && !m_stop)
        m_saved.wait(m_mutex);
    if (m_completed < target)
        failWith(EIO, "the mount has ended");
    if (m_last.error != 0)
        failWith(m_last.error, m_last.cause);
}

/// A save that takes long is not done again before as much time has passed in which nothing changed.
Saver::Clock::duration Saver::quietInterval() const {
    return std::max<Clock::duration>(m_options.saveAfter, m_last.duration);
}

bool Saver::isDue(Clock::time_point now) const {
    if (m_completed < m_requested)
        return true;
    if (!m_pending || now < m_notBefore)
        return false;
    return m_overLimit || now >= lastChange() + quietInterval() ||
           now >= m_firstChange + m_options.saveWithin;
}

Saver::Clock::time_point Saver::nextLook(Clock::time_point now) const {
    if (!m_pending)
        return now + 1h;
    const auto due = std::min(lastChange() + quietInterval(), m_firstChange + m_options.saveWithin);
    return std::min(std::max(due, m_notBefore), now + lookInterval);
}

void Saver::run() {
    MutexLock lock(m_mutex);
    while (!m_stop) {
        const auto now = Clock::now();
        const bool due = isDue(now);
        if (!due)
            m_wake.waitUntil(m_mutex, nextLook(now));
        lock.unlock();
        if (due)
            save();
        m_onLook();
        lock.lock();
    }
}

void Saver::save() {
    std::uint64_t target = 0;
    {
        const MutexLock lock(m_mutex);
        target = m_requested;
    }
    m_pending = false;
    const auto begun = Clock::now();
    SaveResult result;
    try {
        m_changes.save();
    } catch (...) {
        const auto failure = std::current_exception();
        result.error = errorNumberOf(failure);
        result.cause = causeOf(failure);
    }
    result.ended = std::chrono::system_clock::now();
    result.duration = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begun);
    m_overLimit = false;
    if (result.error != 0) {
        m_lastError = result.error;
        ++m_failures;
    }
    m_onSave(result);
    const MutexLock lock(m_mutex);
    if (result.error != 0) {
        m_pending = true;
        m_notBefore = Clock::now() + retryInterval;
    } else {
        m_notBefore = {};
    }
    m_last = std::move(result);
    m_completed = target;
    m_saved.notifyAll();
}

} // namespace storage::mount
