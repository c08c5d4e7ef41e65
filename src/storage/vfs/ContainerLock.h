#pragma once

#include <foundation/storage/provider/StorageIRI.h>
#include <storage/vfs/Export.h>

#include <functional>
#include <memory>
#include <vector>

namespace storage::vfs {

/// Called once for each local file that another program holds, before waiting for it.
using WaitingCallback = std::function<void(const foundation::storage::provider::StorageIRI& file)>;

/// Advisory locks on the local files under containers, held as long as the object lives. Programs that change
/// an archive take its lock before they read it, so that they queue and none overwrites another's change.
class KXVFS_API ContainerLock {
public:
    /// Holds nothing.
    ContainerLock();
    /// Locks the local file at the bottom of each location, in one order whatever the order of `locations`:
    /// two programs that change the same two archives cannot wait for each other for ever. Locations outside
    /// containers, and files that do not exist, have nothing to lock; a file is locked once, also when it is
    /// asked for under several of its names.
    /// Waits as long as another program holds one. Errors: the provider's Exception where a file cannot be
    /// locked; nothing is held then.
    explicit ContainerLock(const std::vector<foundation::storage::provider::StorageIRI>& locations,
                           const WaitingCallback& onWaiting = {});
    ~ContainerLock();

    ContainerLock(ContainerLock&&) noexcept;
    ContainerLock& operator=(ContainerLock&&) noexcept;

    /// Whether the local file at the bottom of `location` is locked by this object.
    bool covers(const foundation::storage::provider::StorageIRI& location) const;

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace storage::vfs
