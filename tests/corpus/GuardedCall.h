#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

namespace kx::test {

struct Guard {
    std::chrono::seconds processorTime{5};
    std::chrono::seconds wallTime{60};   ///< for a call that sleeps or waits for a lock
    std::uint64_t memory = 256ULL << 20; ///< bytes of private memory; not limited under a sanitizer
    std::uint64_t fileSize = 1ULL << 30; ///< of each file that the call writes
};

struct GuardedResult {
    std::string problem; ///< "ended by signal 11", "took too long", …; empty when the call returned
    std::string text;    ///< what the call returned
    std::uint64_t peakMemory = 0; ///< resident, in bytes
};

/// Makes the call in a process of its own under these limits. Precondition: one thread runs in this process.
GuardedResult guardedCall(const std::function<std::string()>& call, const Guard& guard = {});

} // namespace kx::test
