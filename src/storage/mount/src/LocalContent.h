#pragma once

#include <foundation/storage/provider/ByteStream.h>
#include <storage/mount/src/ScratchFile.h>
#include <storage/mount/src/WorkingSpace.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace storage::mount {

/// The bytes of a file that is being changed: in memory while they are few, in a scratch file otherwise.
/// Errors: std::system_error (ENOSPC, EFBIG, …); the content is then what it was, but for the part of a write
/// that was done. Threads: one at a time.
class LocalContent {
public:
    /// Empty. `space` must outlive the content.
    explicit LocalContent(WorkingSpace& space);
    ~LocalContent();

    LocalContent(const LocalContent&) = delete;
    LocalContent& operator=(const LocalContent&) = delete;

    std::uint64_t size() const { return m_size; }
    /// Returns the number of bytes read, less than `count` only at the end.
    std::size_t read(std::uint64_t offset, char* buffer, std::size_t count) const;
    /// A gap between the end and `offset` reads as zeros.
    void write(std::uint64_t offset, const char* data, std::size_t count);
    void resize(std::uint64_t size);
    /// Zeros within the present size.
    void clear(std::uint64_t offset, std::uint64_t count);

    /// Replaces the content by all that `source` has from its position on.
    void fillFrom(foundation::storage::provider::ByteStream& source);
    void copyTo(foundation::storage::provider::ByteStream& target) const;

private:
    void reserve(std::uint64_t size);
    void spill();
    void account(std::uint64_t size);

    WorkingSpace& m_space;
    std::vector<char> m_bytes;
    ScratchFile m_file;
    std::uint64_t m_size = 0;
};

} // namespace storage::mount
