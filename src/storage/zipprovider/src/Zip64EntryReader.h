#pragma once

#include "Zip64Extent.h"

#include <zlib.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

namespace storage::zipprovider {

/// The uncompressed bytes of an entry whose place and sizes minizip may not know (see Zip64Extent.h) or need
/// not look up.
/// Threads: one at a time.
class Zip64EntryReader {
public:
    /// Finds the entry's data behind its local header. Null when no local header is there, or one that
    /// contradicts the central directory. `method` is stored or deflated; what `readAt` reads
    /// from must outlive the reader.
    static std::unique_ptr<Zip64EntryReader> open(const ReadArchiveAt& readAt, const Zip64Extent& extent,
                                                  std::uint32_t method);

    Zip64EntryReader(const Zip64EntryReader&) = delete;
    Zip64EntryReader& operator=(const Zip64EntryReader&) = delete;

    /// Reads up to `count` bytes. Returns their number, 0 at the end of the entry, -1 when the data are
    /// damaged or end before the entry does.
    int read(char* buffer, int count);

private:
    Zip64EntryReader(ReadArchiveAt readAt, std::uint64_t data, const Zip64Extent& extent,
                     std::uint32_t method);

    struct InflateEnd {
        void operator()(z_stream* stream) const noexcept;
    };

    std::size_t inputSize() const;
    bool readData(char* buffer, std::uint32_t count);
    /// The number of bytes, 0 where there are no more; nothing when the data are damaged.
    std::optional<std::uint32_t> readStored(char* buffer, std::uint32_t count);
    std::optional<std::uint32_t> readInflated(char* buffer, std::uint32_t count);

    ReadArchiveAt m_readAt;
    /// Where the data that were not read yet begin, and how many there are.
    std::uint64_t m_data;
    std::uint64_t m_dataLeft;
    /// Null for a stored entry.
    std::unique_ptr<z_stream, InflateEnd> m_stream;
    std::unique_ptr<char[]> m_input;
    /// Uncompressed bytes that are still to come.
    std::uint64_t m_left;
};

} // namespace storage::zipprovider
