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

} // namespace storage::zipprovider
