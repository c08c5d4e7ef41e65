#pragma once

#include <fl/filesystem/path.h>

namespace storage::zipprovider {

/// The name of a temporary archive in the temporary directory, and its removal: the file of that name is
/// deleted with this object unless keep() was called. Not created here.
class TemporaryArchive {
public:
    /// Errors: FsysExceptionBase when the temporary directory cannot be used.
    TemporaryArchive();
    ~TemporaryArchive();

    TemporaryArchive(const TemporaryArchive&) = delete;
    TemporaryArchive& operator=(const TemporaryArchive&) = delete;

    const fl::filesystem::path& path() const { return m_path; }
    /// Leaves the file for good, under a name that begins with "kept-" where it can be renamed: whoever
    /// cleans the temporary directory up can tell it from those that are under way. Returns its path; path()
    /// is not to be asked for afterwards.
    fl::filesystem::path keep() noexcept;

private:
    /// Deletes the file. Errors: FsysExceptionBase.
    void remove();

    fl::filesystem::path m_path;
    fl::filesystem::path m_keptPath;
    bool m_kept = false;
};

} // namespace storage::zipprovider
