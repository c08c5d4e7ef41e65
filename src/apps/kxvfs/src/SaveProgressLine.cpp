#include <apps/kxvfs/src/SaveProgressLine.h>

#include <apps/kxvfs/src/Printable.h>
#include <apps/kxvfs/src/Progress.h>
#include <apps/kxvfs/src/Terminal.h>

#include <fl/i18n/utf8.h>
#include <fmt/format.h>

#include <algorithm>

namespace apps::kxvfs {

using namespace std::chrono_literals;
using foundation::core::MutexLock;
using foundation::storage::provider::StorageIRI;
using storage::vfs::SaveProgress;

namespace {

/// Nothing was read of the old archive for so long: what changed is being packed.
constexpr auto silence = 300ms;

/// "outer.zip/inner.zip".
std::string nameOf(const StorageIRI& container) {
    if (!container.hasContainer())
        return fl::i18n::toUtf8(container.getName());
    return nameOf(container.getContainer()) + fl::i18n::toUtf8(container.getResolvedPath());
}

} // namespace

SaveProgressLine::SaveProgressLine(bool wanted) {
    if (wanted && errorIsTerminal())
        m_drawer = std::thread([this] { draw(); });
}

SaveProgressLine::~SaveProgressLine() {
    if (!m_drawer.joinable())
        return;
    {
        const MutexLock lock(m_mutex);
        m_ended = true;
        m_ending.notifyAll();
    }
    m_drawer.join();
    ProgressLine::clear();
}

void SaveProgressLine::update(const SaveProgress& progress) {
    if (!m_drawer.joinable())
        return;
    const MutexLock lock(m_mutex);
    m_archive = nameOf(progress.container);
    m_phase = progress.phase;
    m_bytes = progress.bytes;
    m_oldSize = progress.oldSize;
    m_time = Clock::now();
}

void SaveProgressLine::draw() {
    MutexLock lock(m_mutex);
    for (auto next = m_begin + ProgressLine::patience;; next += ProgressLine::interval) {
        while (!m_ended && m_ending.waitUntil(m_mutex, next)) {
        }
        if (m_ended)
            return;
        const auto archive = "saving " + m_archive;
        const auto rest = text(Clock::now());
        // A terminal that takes nothing must not hold up the saving.
        lock.unlock();
        ProgressLine::show(ProgressLine::fitted(archive, rest));
        lock.lock();
    }
}

std::string SaveProgressLine::text(Clock::time_point time) const {
    switch (m_phase) {
    case SaveProgress::Phase::Writing:
        return fmt::format(": writing {}", humanSize(m_bytes));
    case SaveProgress::Phase::Closing:
        return fmt::format(": putting {} in place", humanSize(m_bytes));
    case SaveProgress::Phase::Reading:
        break;
    }
    if (m_oldSize == 0 || time - m_time > silence)
        return fmt::format(": packing, {} s",
                           std::chrono::duration_cast<std::chrono::seconds>(time - m_begin).count());
    return fmt::format(": reading {:.0f}%", 100.0 * static_cast<double>(std::min(m_bytes, m_oldSize)) /
                                                static_cast<double>(m_oldSize));
}

} // namespace apps::kxvfs
