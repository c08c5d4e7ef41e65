#pragma once

#include <filesystem>
#include <vector>

namespace apps::kxvfs {

/// A temporary folder of this process alone, which everything that runs in it uses (TMPDIR). So whatever ends
/// the process, its working files can be told from others': the folder is removed at the end, after a signal
/// (Interruption), or, after a process that was killed, by the next run.
class TemporarySpace {
public:
    /// Removes the folders of processes that are gone.
    static void removeAbandoned();

    /// Makes the folder. Where none can be made, the system's temporary folder is used as it is.
    TemporarySpace();
    ~TemporarySpace();

    TemporarySpace(const TemporarySpace&) = delete;
    TemporarySpace& operator=(const TemporarySpace&) = delete;

    /// Files that were left on purpose: an archive that could not be brought into its place. Marks the folder
    /// as one to keep.
    std::vector<std::filesystem::path> keepRescued();

    /// The same files, without marking the folder; none where no folder of this process could be made.
    static std::vector<std::filesystem::path> rescued();

    /// Removes the folder with all in it, unless it is one to keep.
    void remove() const noexcept { removeLeft(m_folder); }
    /// The same for the folder of a process that has ended. One that is none, or is another user's, is left
    /// alone.
    static void removeLeft(const std::filesystem::path& folder) noexcept;

    /// Empty where none could be made.
    const std::filesystem::path& folder() const { return m_folder; }

private:
    std::filesystem::path m_folder;
    int m_lock = -1;
};

} // namespace apps::kxvfs
