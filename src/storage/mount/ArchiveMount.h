#pragma once

#include <foundation/storage/provider/StorageIRI.h>
#include <storage/mount/Export.h>
#include <storage/mount/MountOptions.h>
#include <storage/vfs/Vfs.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace storage::mount {

/// The last save of a mounted archive.
struct LastSave {
    std::chrono::system_clock::time_point ended;
    std::chrono::milliseconds duration{};
    /// Empty when it succeeded.
    std::string failure;
};

/// How a mount is doing.
struct MountCondition {
    /// Files and folders that were made, changed, moved or removed and are not saved.
    std::uint64_t unsavedChanges = 0;
    /// What their contents take.
    std::uint64_t unsavedBytes = 0;
    /// How often the archive was saved.
    std::uint64_t saves = 0;
    std::optional<LastSave> lastSave;
    /// Where the changes are that the last save could not bring into the archive; empty where there are none.
    std::filesystem::path rescue;
    /// The list of changes with which "kxvfs batch" makes them; empty where there is none.
    std::filesystem::path rescueList;
};

/// An archive as a folder of the system.
///
/// The archive's file is locked as long as it is mounted for writing, so that other programs that change
/// archives through the vfs wait; one that does not know of the lock is noticed, and its change is not
/// overwritten.
///
///     // From here on the folder shows the archive.
///     ArchiveMount mount(vfs, root, "/mnt", options, listeners);
///     mount.start();
///     // Until it is unmounted.
///     mount.serve();
///     if (!mount.finish())
///         tell(mount.condition());
class KXMOUNT_API ArchiveMount {
public:
    struct Listeners {
        /// Something that the person who mounted it should know.
        std::function<void(const std::string& message)> warn;
        /// After each save, and about once a second while changes are not saved.
        std::function<void(const MountCondition&)> look;
    };

    /// Mounts the archive whose root is `root` over the folder `mountPoint`.
    /// Errors: those of Vfs::mount; Exception with Busy when another program changes the archive, NotWritable
    /// when it cannot be written and `options` do not say read-only; std::runtime_error when the system
    /// refuses. `vfs` must outlive the mount. No thread may have been started before whose signal mask
    /// matters.
    ArchiveMount(vfs::Vfs& vfs, const foundation::storage::provider::StorageIRI& root,
                 const std::filesystem::path& mountPoint, const MountOptions& options, Listeners listeners);
    /// Unmounts; what was not saved by then is lost. Call finish() before.
    ~ArchiveMount();

    ArchiveMount(const ArchiveMount&) = delete;
    ArchiveMount& operator=(const ArchiveMount&) = delete;

    /// Begins to answer the system; until then, whoever looks into the folder waits. To be called once.
    /// Errors: std::system_error when no thread can be had.
    void start();
    /// After start(): answers the system until the folder is unmounted or end() was called. Errors:
    /// std::system_error when the connection to the system broke; finish() still saves.
    void serve();
    /// Has serve() return, after everything that programs have written so far has arrived here. Callable from
    /// another thread.
    void end();
    /// Saves what is not saved. Returns whether the archive holds everything; where it does not, what was
    /// made, changed or moved is put into an archive of its own, which condition() names.
    bool finish();

    MountCondition condition() const;

    /// Whether this build can mount anything.
    static bool isSupported();

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace storage::mount
