#pragma once

#include <foundation/log/basic_diagnostic_logger.h>
#include <foundation/log/log.h>

#include <concepts>
#include <cstdint>

namespace storage::zipprovider {

/// What FlushingPolicy needs of the state it flushes.
template <typename State>
concept FlushableState = requires(const State& state) {
    state.doFlush();
};

/// Decides when the archive is rebuilt: at a change while no writable stream is open, or at the closing of
/// the last one. Threads: every caller holds the file system's mutex.
template <FlushableState State>
class FlushingPolicy {
public:
    /// `state` must outlive the policy.
    explicit FlushingPolicy(const State& state)
        : m_state(state), m_logger("storage::zipprovider::FlushingPolicy") {}

    /// One more writable stream is open.
    void incrementModifiedInUse() {
        KX_LOG_FUNCTION(m_logger);
        ++m_modifiedInUse;
        KX_LOG(m_logger) << " m_modifiedInUse=" << m_modifiedInUse;
    }

    /// One writable stream was closed.
    void decrementModifiedInUse() {
        KX_LOG_FUNCTION(m_logger);
        --m_modifiedInUse;
        KX_LOG(m_logger) << " m_modifiedInUse=" << m_modifiedInUse;
    }

    /// Something changed: flushes unless writable streams are open. A count below zero never flushes.
    /// Errors: those of the flush.
    void setStateChanged() {
        KX_LOG_FUNCTION(m_logger);
        KX_LOG_DEBUG(m_logger) << "Trigger a flush if zero modified in use?";
        if (m_modifiedInUse == 0) {
            m_state.doFlush();
        }
    }

    /// The number of writable streams open.
    std::int32_t modifiedInUse() const { return m_modifiedInUse; }

private:
    std::int32_t m_modifiedInUse = 0;
    const State& m_state;
    foundation::log::basic_diagnostic_logger m_logger;
};

} // namespace storage::zipprovider
