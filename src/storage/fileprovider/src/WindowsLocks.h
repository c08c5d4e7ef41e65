#pragma once

#include <storage/fileprovider/FileLock.h>
#include <storage/fileprovider/src/WindowsFile.h>

#include <foundation/core/Mutex.h>

#include <filesystem>
#include <map>

namespace storage::fileprovider {

/// The file locks that this process holds, by the path of the locked file without links.
class WindowsLocks {
public:
    static WindowsLocks& instance();

    void add(FileLock::Held& lock);
    void remove(const FileLock::Held& lock) noexcept;
    bool holds(const std::filesystem::path& path) const noexcept;
    /// `file`, which is open and locked, is what `path` names from here on: if the path is locked, its lock
    /// becomes the one on `file`. Otherwise `file` is closed. Without an open file nothing is passed on.
    void passOn(const std::filesystem::path& path, FileHandle file) noexcept;

private:
    mutable foundation::core::Mutex m_mutex;
    std::map<std::filesystem::path, FileLock::Held*> m_locks KX_GUARDED_BY(m_mutex);
};

} // namespace storage::fileprovider
