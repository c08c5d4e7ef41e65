#pragma once

#include <foundation/storage/provider/StorageIRI.h>

#include <cstdint>
#include <functional>

namespace storage::vfs {

/// How far the writing of a container has come, as far as its own bytes tell.
struct SaveProgress {
    enum class Phase {
        /// What did not change is taken over from the old container. What changed is taken in after it, or
        /// while it goes on; that is not seen.
        Reading,
        /// The new contents go into the container.
        Writing,
        /// All is written; the storage below puts it in place. A container inside another one is put in place
        /// by writing that.
        Closing,
    };

    const foundation::storage::provider::StorageIRI& container;
    Phase phase;
    /// Reading: how much of the old container has been looked at; what was removed or replaced never is.
    /// Otherwise the bytes written.
    std::uint64_t bytes;
    /// The old container's size.
    std::uint64_t oldSize;
};

/// Runs on the thread that saves, between two operations on the container; it must not touch storage, nor
/// throw.
using SaveProgressCallback = std::function<void(const SaveProgress&)>;

} // namespace storage::vfs
