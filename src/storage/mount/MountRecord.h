#pragma once

#include <storage/mount/ArchiveMount.h>
#include <storage/mount/Export.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace storage::mount {

/// What is known of one mounted archive, also to other processes.
struct MountRecord {
    std::string archive;
    /// Absolute, without links.
    std::filesystem::path mountPoint;
    std::int64_t process = 0;
    bool readOnly = false;
    /// Whether the process that serves it is there.
    bool alive = false;
    /// Whether it has been unmounted and the last save was tried.
    bool ended = false;
    /// Why the archive does not hold everything at the end; empty where it does.
    std::string failure;
    MountCondition condition;
};

/// The record in JSON: archive, mountPoint, process, readOnly, state ("mounted", "saving", "ended",
/// "killed"), unsavedChanges, unsavedBytes, saves, lastSave (time, milliseconds, failure), failure, rescue,
/// rescueList.
KXMOUNT_API std::string toJson(const MountRecord& record);

/// The file in which a mounting process tells of its mount: in $XDG_RUNTIME_DIR/kxvfs or, without that, in
/// the user's state folder. A lock on it tells whether the process is alive. Errors: std::system_error.
/// Threads: any.
class KXMOUNT_API MountRecordFile {
public:
    /// Writes a new file; what dead processes left about the same mount point goes.
    explicit MountRecordFile(MountRecord record);
    ~MountRecordFile();

    MountRecordFile(const MountRecordFile&) = delete;
    MountRecordFile& operator=(const MountRecordFile&) = delete;

    void update(const MountCondition& condition);
    /// The last word. A file about a mount that ended well is removed, another stays until somebody has
    /// asked.
    void end(const MountCondition& condition, const std::string& failure);

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

/// The mounts of this user, those of dead processes included that did not end well.
KXMOUNT_API std::vector<MountRecord> listMounts();

/// A look at one mount from outside.
class KXMOUNT_API MountWatch {
public:
    /// The mount over `mountPoint`; absent when this user has none there.
    static std::optional<MountWatch> find(const std::filesystem::path& mountPoint);
    ~MountWatch();
    MountWatch(MountWatch&&) noexcept;
    MountWatch& operator=(MountWatch&&) noexcept;

    MountRecord look() const;
    /// Asks the process to save and to end, as SIGTERM does. Nothing happens when it is gone.
    void end() const;
    /// Returns when the process is gone.
    MountRecord waitForEnd() const;
    /// Its end has been reported: the file is removed.
    void forget() const;

private:
    struct Impl;
    explicit MountWatch(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> m_impl;
};

/// Unmounts what is mounted over `mountPoint`; with `detach`, also from under programs that use it.
/// Errors: std::system_error; EBUSY while programs use it.
KXMOUNT_API void unmount(const std::filesystem::path& mountPoint, bool detach);

} // namespace storage::mount
