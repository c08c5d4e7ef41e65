#pragma once

#include <foundation/storage/provider/StorageIRI.h>
#include <storage/fileprovider/Export.h>
#include <storage/fileprovider/LocalFileOptions.h>

#include <chrono>
#include <functional>
#include <memory>

namespace storage::fileprovider {

/// Called once, before waiting for a lock that someone else holds.
using LockWaitCallback = std::function<void(const foundation::storage::provider::StorageIRI& file)>;

/// An advisory lock on one local file: programs that change a file take it before they read what they will
/// overwrite, so that they queue. It excludes other processes and other threads of this one; a thread that
/// asks twice waits for itself. A process that ends, however it ends, lets go of its locks.
///
/// The lock is on the file that the path names after links were followed, and stays on it: a save through
/// LocalFileProvider in this process that replaces the file by renaming passes the lock on to the new one
/// without a moment in between. A file that does not exist, or that this user may not open, is locked by its
/// name among the programs of this user; a file made under that lock through LocalFileProvider is locked from
/// its first moment.
///
/// Errors: the provider's Exception, when the path leads nowhere (NotFound) or the system cannot lock there.
/// Threads: different objects are independent; one object, one thread at a time.
class KXFILEPROVIDER_API FileLock {
public:
    /// Holds nothing.
    FileLock() noexcept;
    /// Lets go.
    ~FileLock();

    FileLock(FileLock&& other) noexcept;
    FileLock& operator=(FileLock&& other) noexcept;
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

    /// Waits as long as it takes.
    static FileLock acquire(const foundation::storage::provider::StorageIRI& file,
                            const LockWaitCallback& onWaiting = {}, const LocalFileOptions& options = {});
    /// Does not wait: isHeld() of the result is false when someone else holds the lock.
    static FileLock tryAcquire(const foundation::storage::provider::StorageIRI& file,
                               const LocalFileOptions& options = {});
    /// Waits up to `timeout`: isHeld() of the result is false when that was not enough.
    static FileLock acquireFor(const foundation::storage::provider::StorageIRI& file,
                               std::chrono::milliseconds timeout, const LockWaitCallback& onWaiting = {},
                               const LocalFileOptions& options = {});

    bool isHeld() const noexcept { return m_held != nullptr; }
    /// Lets go; does nothing when nothing is held.
    void release() noexcept;

    struct Held;

private:
    explicit FileLock(std::shared_ptr<Held> held) noexcept;

    std::shared_ptr<Held> m_held;
};

} // namespace storage::fileprovider
