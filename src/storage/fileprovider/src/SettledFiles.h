#pragma once

#include <foundation/core/Mutex.h>
#include <foundation/core/ThreadAnnotations.h>

#include <sys/stat.h>

#include <ctime>
#include <map>
#include <string>

namespace storage::fileprovider {

/// Remembers files for which no interrupted save is left, so that one that has not changed since is not
/// searched for each time it is opened: whatever such a save does to a file changes its times. Where the
/// clock of a file server is seconds behind, the times of two changes may be the same. Threads: any.
class SettledFiles {
public:
    /// Whether the file at `path`, which is `status`, was remembered as it is.
    bool contains(const std::string& path, const struct stat& status) const KX_EXCLUDES(m_mutex);
    /// `status` is what the file at `path` was before it was looked whether anything is left, which
    /// mayBeRemembered() has allowed at that moment.
    void add(const std::string& path, const struct stat& status) KX_EXCLUDES(m_mutex);

    /// Not a file that was changed so shortly before `now` that the next change might leave the same times;
    /// nor one with several names, which an interrupted save may have begun under another one.
    static bool mayBeRemembered(const struct stat& status, const timespec& now) noexcept;

private:
    mutable foundation::core::Mutex m_mutex;
    std::map<std::string, struct stat> m_files KX_GUARDED_BY(m_mutex);
};

} // namespace storage::fileprovider
