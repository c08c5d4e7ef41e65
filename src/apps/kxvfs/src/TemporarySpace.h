#pragma once

#include <atomic>
#include <filesystem>
#include <vector>

namespace apps::kxvfs {

/// A temporary folder of this process alone, which everything that runs in it uses (TMPDIR). So whatever ends
/// the process, its working files can be told from others': the folder is removed at the end, by the signal
/// handling, or, after a process that was killed, by the next run.
class TemporarySpace {
public:
    /// Removes the folders of processes that are gone, then makes one. Where none can be made, the system's
    /// temporary folder is used as it is.
    TemporarySpace();
    ~TemporarySpace();

    TemporarySpace(const TemporarySpace&) = delete;
    TemporarySpace& operator=(const TemporarySpace&) = delete;

    /// Files that were left on purpose: an archive that could not be brought into its place. Marks the folder
    /// as one to keep.
    std::vector<std::filesystem::path> keepRescued();

    /// Removes the folder with all in it, unless it is one to keep. Callable from another thread.
    void remove() const noexcept;

private:
    std::filesystem::path m_folder;
    int m_lock = -1;
    /// The signals' thread asks while the main thread may set it.
    std::atomic<bool> m_kept = false;
};

} // namespace apps::kxvfs
