#pragma once

#include <cstdint>
#include <iosfwd>

namespace storage::zipprovider {

/// Where the uncompressed bytes of one entry come from, from the first to the last.
class IEntrySource {
public:
    virtual ~IEntrySource() = default;

    IEntrySource(const IEntrySource&) = delete;
    IEntrySource& operator=(const IEntrySource&) = delete;

    /// Reads up to `count` bytes. Returns the number obtained, 0 at the end of the entry.
    /// Errors: MiniZipException.
    virtual std::int64_t read(char* buffer, std::int64_t count) = 0;

    /// Copies what remains of the entry into `out`, flushes it, and returns the number of bytes copied.
    /// Errors: MiniZipException when reading fails or `out` is bad before a write; what was copied until then
    /// has been written. The state after the last write is the caller's to test.
    std::uint64_t doWrite(std::ostream& out);

protected:
    IEntrySource() = default;
};

} // namespace storage::zipprovider
