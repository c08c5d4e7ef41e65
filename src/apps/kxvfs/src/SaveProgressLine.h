#pragma once

#include <foundation/core/Mutex.h>
#include <storage/vfs/SaveProgress.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <thread>

namespace apps::kxvfs {

/// Shows on a terminal which archive is being saved and how far that is, from the first moment that it takes
/// long until the object goes. A thread of its own draws: much of the work does not tell of itself.
class SaveProgressLine {
public:
    explicit SaveProgressLine(bool wanted);
    ~SaveProgressLine();

    SaveProgressLine(const SaveProgressLine&) = delete;
    SaveProgressLine& operator=(const SaveProgressLine&) = delete;

    /// Callable from any thread.
    void update(const storage::vfs::SaveProgress& progress);

private:
    using Clock = std::chrono::steady_clock;

    void draw();
    /// Without the archive's name.
    std::string text(Clock::time_point time) const KX_REQUIRES(m_mutex);

    const Clock::time_point m_begin = Clock::now();

    foundation::core::Mutex m_mutex;
    foundation::core::ConditionVariable m_ending;
    bool m_ended KX_GUARDED_BY(m_mutex) = false;
    std::string m_archive KX_GUARDED_BY(m_mutex);
    storage::vfs::SaveProgress::Phase
        m_phase KX_GUARDED_BY(m_mutex) = storage::vfs::SaveProgress::Phase::Reading;
    std::uint64_t m_bytes KX_GUARDED_BY(m_mutex) = 0;
    std::uint64_t m_oldSize KX_GUARDED_BY(m_mutex) = 0;
    /// Of the last update.
    Clock::time_point m_time KX_GUARDED_BY(m_mutex) = m_begin;

    std::thread m_drawer;
};

} // namespace apps::kxvfs
