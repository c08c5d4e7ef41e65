#pragma once

#include <cstdint>

namespace foundation::storage::provider {

/// What a host may ask a provider for beforehand with IProvider::hasFeature.
enum class Feature : std::uint32_t {
    /// IProvider::setLastModified.
    SetLastModified = 0,
    /// IProvider::setWritable.
    SetWritable = 1,
    /// IProvider::openTransactionalStream and openTransactionalStreamAtScratchLocation.
    TransactionalStreams = 2,
    /// IProvider::copyFileAtomic: the destination holds the old or the new contents at every moment.
    AtomicCopy = 3,
    /// IProvider::publishFolderEventsFor, publishFileEventsFor and the polling that feeds them.
    ChangeEvents = 4,
    /// IProvider::truncateToSize.
    TruncateToSize = 5,
    /// An item keeps the time that was last set or written to the microsecond; without it times may be
    /// rounded to the format's resolution.
    PreciseTimes = 6,
    /// Empty folders exist; without it a folder is only what its files' names imply.
    EmptyFolders = 7,
    /// IProvider::getProviderStorageInfo knows the free and total space.
    StorageInfo = 8,
};

} // namespace foundation::storage::provider
