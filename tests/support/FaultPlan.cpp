#include "FaultPlan.h"

#include <foundation/storage/provider/Exception.h>

#include <utility>

namespace kx::test {

using foundation::core::MutexLock;

void FaultPlan::countOnly(Operations chosen) {
    failCall(0, std::move(chosen));
}

void FaultPlan::failCall(std::uint64_t number, Operations chosen, Afterwards afterwards,
                         foundation::storage::provider::ErrorCode code) {
    MutexLock lock(m_mutex);
    m_chosen = std::move(chosen);
    m_failing = number;
    m_afterwards = afterwards;
    m_code = code;
    m_count = 0;
    m_failures = 0;
    m_counts.clear();
}

void FaultPlan::limitReads(std::int64_t bytes) {
    MutexLock lock(m_mutex);
    m_readLimit = bytes;
}

std::uint64_t FaultPlan::count() const {
    MutexLock lock(m_mutex);
    return m_count;
}

std::uint64_t FaultPlan::countOf(ProviderOperation operation) const {
    MutexLock lock(m_mutex);
    const auto found = m_counts.find(operation);
    return found == m_counts.end() ? 0 : found->second;
}

std::uint64_t FaultPlan::failures() const {
    MutexLock lock(m_mutex);
    return m_failures;
}

std::int64_t FaultPlan::readLimit() const {
    MutexLock lock(m_mutex);
    return m_readLimit;
}

void FaultPlan::enter(ProviderOperation operation,
                      const foundation::storage::provider::StorageIRI& location) {
    MutexLock lock(m_mutex);
    ++m_counts[operation];
    if (!m_chosen.empty() && !m_chosen.contains(operation)) {
        return;
    }
    ++m_count;
    const bool fails = m_failing != 0 &&
                       (m_count == m_failing || (m_count > m_failing && m_afterwards == Afterwards::FailsOn));
    if (fails) {
        ++m_failures;
        throw foundation::storage::provider::Exception(m_code, location, "injected fault");
    }
}

} // namespace kx::test
