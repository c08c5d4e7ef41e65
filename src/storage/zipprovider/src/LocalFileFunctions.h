#pragma once

#include <fl/filesystem/path.h>

#include <minizip/zip.h>

namespace storage::zipprovider {

/// Opens the archive file at `path` for writing through a table of functions for local files: adding to an
/// archive that exists, creating it (readable and writable by its owner alone) otherwise. Up to three
/// attempts are made, back to back. Null when all failed; the caller owns the handle. Errors: those of the
/// path's conversion and of looking whether it exists.
zipFile openLocalZipForWriting(const fl::filesystem::path& path);

namespace detail {

/// One attempt: `mode` is APPEND_STATUS_CREATE or APPEND_STATUS_ADDINZIP.
zipFile tryOpenLocalZip(const fl::filesystem::path& path, int mode);

/// The attempts of openLocalZipForWriting over `tryOpen(path, mode)`.
template <typename TryOpen>
zipFile openForWriting(const fl::filesystem::path& path, bool exists, TryOpen tryOpen) {
    constexpr int attempts = 3;
    zipFile zip = nullptr;
    for (int attempt = 0; attempt < attempts && zip == nullptr; ++attempt) {
        zip = tryOpen(path, exists ? APPEND_STATUS_ADDINZIP : APPEND_STATUS_CREATE);
    }
    return zip;
}

} // namespace detail

} // namespace storage::zipprovider
