#pragma once

#include <fl/filesystem/temporary.h>
#include <foundation/storage/provider/StorageIRI.h>

#include <cstdint>

namespace foundation::storage::provider::detail {

/// A local temporary file that lives as long as its owner.
/// Errors: Exception for the location that the bytes belong to: NoSpace, otherwise LocalFileSystem, with the
/// temporary file's name in the cause.
class ScratchFile {
public:
    explicit ScratchFile(StorageIRI location);
    ~ScratchFile();

    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;

    /// Reads up to `count` bytes at `position`; 0 only at or beyond the end.
    std::int64_t readAt(std::uint64_t position, char* buffer, std::int64_t count);
    /// Writes all of the bytes at `position`; a gap before it reads as zeros.
    void writeAt(std::uint64_t position, const char* buffer, std::int64_t count);
    /// In bytes.
    std::uint64_t size();

private:
    [[noreturn]] void fail(const char* verb, int error) const;

    StorageIRI m_location;
    fl::filesystem::TemporaryFile m_file;
};

} // namespace foundation::storage::provider::detail
