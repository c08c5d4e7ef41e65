#pragma once

#include <atomic>
#include <cstdint>

namespace storage::mount {

/// What the contents that are not saved take. The numbers are atomic: each content adds and takes away its
/// own on whatever thread it is used.
struct WorkingSpace {
    std::atomic<std::uint64_t> memory = 0;
    std::atomic<std::uint64_t> disk = 0;
    /// Scratch files, each of which takes a descriptor.
    std::atomic<std::uint64_t> files = 0;

    std::uint64_t total() const { return memory + disk; }
};

} // namespace storage::mount
