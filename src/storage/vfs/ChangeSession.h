#pragma once

#include <foundation/storage/provider/IProvider.h>
#include <foundation/storage/provider/StorageIRI.h>
#include <storage/vfs/ContainerLock.h>
#include <storage/vfs/Export.h>
#include <storage/vfs/SaveProgress.h>
#include <storage/vfs/Vfs.h>

#include <memory>
#include <vector>

namespace storage::vfs {

/// Many changes, one rebuild of each archive they touch.
///
/// A container's provider writes the archive when its last writable stream closes. The session holds one open
/// from the first change to commit(), over a temporary entry that is removed at once and leaves no trace.
///
///     ChangeSession session(vfs);
///     session.lock({location});          // before anything of the archive is read
///     auto provider = session.changing(location);
///     provider->createFolder(…); …
///     failures = session.commit();
///
/// Threads: one at a time. `vfs` must outlive the session.
class KXVFS_API ChangeSession {
public:
    /// `onProgress` is told how far flush() and commit() have come.
    explicit ChangeSession(Vfs& vfs, WaitingCallback onWaiting = {}, SaveProgressCallback onProgress = {});
    /// A session that was not committed lets go of its streams; the providers then write what was changed,
    /// and a failure of that is only logged.
    ~ChangeSession();

    ChangeSession(const ChangeSession&) = delete;
    ChangeSession& operator=(const ChangeSession&) = delete;

    /// Takes the locks of the local files under all of `locations`. Call it once, with everything that the
    /// session will change, before reading any of it: locks that are taken one after another can deadlock
    /// with another program's. Providers of these containers that were mounted before are read again; what is
    /// pending in them is written first. Errors: those of locking and of that write.
    void lock(const std::vector<foundation::storage::provider::StorageIRI>& locations);

    /// The provider to change `location` with. From the first call on for a container its writes are held
    /// back. Ask for it when a change is certain to be tried: the archive is rewritten by commit().
    /// Errors: those of Vfs::mount; NotWritable, with the container's location, for a container that cannot
    /// be written; std::logic_error when the container is not locked.
    std::shared_ptr<foundation::storage::provider::IProvider>
    changing(const foundation::storage::provider::StorageIRI& location);

    /// Whether commit() has an archive to write.
    bool hasChanges() const;

    /// Lets the archives be written, inner ones before those that hold them, and goes on holding the locks.
    /// All are tried; what failed is returned, and nothing is lost of the old archive. With nothing changed
    /// since the last time it does nothing. Providers of containers inside a written one are made anew.
    std::vector<CloseFailure> flush();
    /// The same, and then releases the locks.
    std::vector<CloseFailure> commit();

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace storage::vfs
