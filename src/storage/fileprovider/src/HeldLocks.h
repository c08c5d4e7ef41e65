#pragma once

#include <storage/fileprovider/FileLock.h>
#include <storage/fileprovider/src/Descriptor.h>

#include <foundation/core/Mutex.h>

#include <map>
#include <string>

namespace storage::fileprovider {

/// The file locks that this process holds, by the path of the locked file without links.
class HeldLocks {
public:
    static HeldLocks& instance();

    void add(FileLock::Held& lock);
    void remove(const FileLock::Held& lock) noexcept;
    /// `file`, which is open and locked, is what `path` names from here on: if the path is locked, its lock
    /// becomes the one on `file`. Otherwise `file` is closed.
    void passOn(const std::string& path, Descriptor file) noexcept;

private:
    foundation::core::Mutex m_mutex;
    std::map<std::string, FileLock::Held*> m_locks KX_GUARDED_BY(m_mutex);
};

} // namespace storage::fileprovider
