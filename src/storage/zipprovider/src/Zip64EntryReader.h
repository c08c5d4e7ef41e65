#pragma once

#include "Zip64Extent.h"

#include <boost/iostreams/filtering_streambuf.hpp>

#include <cstdint>
#include <memory>

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

    boost::iostreams::filtering_streambuf<boost::iostreams::input> m_contents;
    /// Uncompressed bytes that are still to come.
    std::uint64_t m_left;
};

} // namespace storage::zipprovider
