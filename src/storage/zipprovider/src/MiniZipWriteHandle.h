#pragma once

#include <fl/filesystem/path.h>

#include <minizip/zip.h>

namespace storage::zipprovider {

/// Owns one archive opened for writing in a local file. The archive is complete only after close().
/// Threads: one at a time.
class MiniZipWriteHandle {
public:
    /// Opens the archive at `path`: adds to one that exists, creates it otherwise.
    /// Errors: MiniZipException naming the path.
    explicit MiniZipWriteHandle(const fl::filesystem::path& path);
    /// Opens the archive at `path` to add to it. Errors: MiniZipException naming the path, also when it is
    /// gone.
    static MiniZipWriteHandle addingTo(const fl::filesystem::path& path);
    /// Closes the archive if that was not done; a failure is lost, so close() it to learn of one.
    ~MiniZipWriteHandle();

    MiniZipWriteHandle(const MiniZipWriteHandle&) = delete;
    MiniZipWriteHandle& operator=(const MiniZipWriteHandle&) = delete;

    /// Finishes the entry being written and writes the central directory. A closed handle is left alone.
    /// Errors: MiniZipException; the handle counts as closed all the same.
    void close();

    /// minizip's handle, null when closed; owned by this object.
    zipFile get() const { return m_zip; }

private:
    MiniZipWriteHandle(const fl::filesystem::path& path, zipFile zip);

    zipFile m_zip;
};

} // namespace storage::zipprovider
