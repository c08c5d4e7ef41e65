#pragma once

#include "ProviderOperation.h"

#include <foundation/core/Mutex.h>
#include <foundation/storage/provider/ErrorCode.h>
#include <foundation/storage/provider/StorageIRI.h>

#include <cstdint>
#include <map>
#include <set>

namespace kx::test {

/// Which of the calls that go through a FaultInjectingProvider and its streams fail. Calls are counted from 1
/// over all chosen operations together: run a scenario once, take count(), then run it again for every number
/// up to it with that call failing.
/// Threads: all operations may be called from several threads.
class FaultPlan {
public:
    using Operations = std::set<ProviderOperation>;

    enum class Afterwards {
        /// Only the one call fails.
        Works,
        /// Every later call fails, too, as on a disk that is full or gone.
        FailsOn,
    };

    /// Counts the chosen operations from 0 on; an empty set stands for all. None fails.
    void countOnly(Operations chosen = {});
    /// Counts the chosen operations from 0 on and lets the call of this number fail.
    void failCall(std::uint64_t number, Operations chosen = {}, Afterwards afterwards = Afterwards::Works,
                  foundation::storage::provider::ErrorCode code =
                      foundation::storage::provider::ErrorCode::LocalFileSystem);
    /// The greatest number of bytes that a stream reads in one call; 0 for no limit.
    void limitReads(std::int64_t bytes);

    /// The number of calls of the chosen operations.
    std::uint64_t count() const;
    /// The number of calls of one operation, chosen or not.
    std::uint64_t countOf(ProviderOperation operation) const;
    /// The number of calls that were made to fail.
    std::uint64_t failures() const;
    std::int64_t readLimit() const;

    /// Counts a call. Errors: the provider's Exception for `location` when it is the call's turn to fail.
    void enter(ProviderOperation operation, const foundation::storage::provider::StorageIRI& location);

private:
    mutable foundation::core::Mutex m_mutex;
    Operations m_chosen KX_GUARDED_BY(m_mutex);
    std::uint64_t m_failing KX_GUARDED_BY(m_mutex) = 0;
    Afterwards m_afterwards KX_GUARDED_BY(m_mutex) = Afterwards::Works;
    foundation::storage::provider::ErrorCode
        m_code KX_GUARDED_BY(m_mutex) = foundation::storage::provider::ErrorCode::LocalFileSystem;
    std::uint64_t m_count KX_GUARDED_BY(m_mutex) = 0;
    std::uint64_t m_failures KX_GUARDED_BY(m_mutex) = 0;
    std::map<ProviderOperation, std::uint64_t> m_counts KX_GUARDED_BY(m_mutex);
    std::int64_t m_readLimit KX_GUARDED_BY(m_mutex) = 0;
};

} // namespace kx::test
