#pragma once

#include <fl/filesystem/Export.h>
#include <fl/filesystem/path.h>

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <cstdint>

namespace fl::filesystem {

// Errors: every operation here throws FsysExceptionBase (wrapped, see there) with the operation, the path and
// the system's error code. Threads: any. Call them qualified: the argument's type brings the functions of the
// same names in std::filesystem along.

struct file_status {
    std::filesystem::file_type type = std::filesystem::file_type::none;
    /// In bytes; for what is not a regular file, what the system says.
    std::uint64_t size = 0;
    /// In UTC, with microseconds. not_a_date_time for a time outside the years 1400 to 9999.
    boost::posix_time::ptime lastModified;
};

/// Whether something is there. Symbolic links are followed: a dangling one is not there.
/// Errors: the answer cannot be known, for example because a folder above cannot be searched.
KXFOUNDATION_FILESYSTEM_API bool exists(const path& item);

/// What the system knows of a file or folder, all from one look at it. Symbolic links are followed.
/// Errors: also when there is nothing at the path.
KXFOUNDATION_FILESYSTEM_API file_status status(const path& item);

/// Removes a file, a symbolic link (not what it leads to) or an empty folder. Returns false if it was not
/// there.
KXFOUNDATION_FILESYSTEM_API bool remove(const path& item);

/// Removes a file, or a folder with all below it; symbolic links are removed, not followed. Returns the
/// number of files and folders removed, 0 if there was nothing. State after a failure: part of the tree may
/// be gone.
KXFOUNDATION_FILESYSTEM_API std::uint64_t remove_all(const path& item);

} // namespace fl::filesystem
