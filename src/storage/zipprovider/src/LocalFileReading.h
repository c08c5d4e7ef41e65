#pragma once

#include <fl/filesystem/FsysExceptionBase.h>
#include <fl/filesystem/path.h>
#include <foundation/core/except/throwInternal.h>

#include <cerrno>
#include <ios>
#include <system_error>

namespace storage::zipprovider {

/// What `read` returns. A file device throws the standard library's failure, which does not name the file.
/// Errors: FsysExceptionBase in its place; all others of `read`.
template <typename Read>
auto readingLocalFile(const fl::filesystem::path& file, Read read) {
    errno = 0;
    try {
        return read();
    } catch (const std::ios_base::failure&) {
        foundation::core::except::throwInternal(fl::filesystem::FsysExceptionBase(
            "read", file, std::error_code(errno != 0 ? errno : EIO, std::generic_category())));
    }
}

/// Whether a read that gave fewer bytes than asked for has failed, by the `errno` that readingLocalFile()
/// leaves, rather than come to the end of the file. Standard streams make a call again that a signal has
/// interrupted.
inline bool readingFailed() noexcept {
    return errno != 0 && errno != EINTR;
}

} // namespace storage::zipprovider
