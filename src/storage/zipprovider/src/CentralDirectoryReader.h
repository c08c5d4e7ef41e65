#pragma once

#include "ZipConstants.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace storage::zipprovider {

/// Reads up to `count` bytes of the archive from `position` on; fewer where it ends or cannot be read.
using ReadArchiveUpTo =
    std::function<std::uint32_t(std::uint64_t position, char* buffer, std::uint32_t count)>;

/// The fields of a central-directory header.
struct CentralHeader {
    std::uint32_t madeBy;
    std::uint32_t needed;
    std::uint32_t flags;
    std::uint32_t method;
    std::uint32_t dosTime;
    std::uint32_t crc32;
    std::uint32_t compressedSize;
    std::uint32_t uncompressedSize;
    std::uint32_t extraLength;
    std::uint32_t commentLength;
    std::uint32_t disk;
    std::uint32_t internalAttributes;
    std::uint32_t externalAttributes;
    std::uint32_t localHeader;
    /// Valid until the next header is read.
    std::string_view name;
    /// From this header to the next one.
    std::uint32_t length;
};

/// Where a central directory begins, and where the end record stands right behind it.
struct DirectoryPlace {
    std::uint64_t begin;
    std::uint64_t end;
    /// Bytes in front of the archive, from whose end its own positions count.
    std::uint64_t before;
};

/// Reads the headers of a central directory one behind the other, in large pieces. minizip takes every field
/// by a call of its own, several times for each entry; this gives the same for headers that hold nothing out
/// of the ordinary, and leaves the others to minizip.
class CentralDirectoryReader {
public:
    /// Begins at the header at `position` of the archive's bytes, and reads at least `pieceSize` bytes at a
    /// time.
    CentralDirectoryReader(ReadArchiveUpTo read, std::uint64_t position,
                           std::size_t pieceSize = directoryBufferSize)
        : m_read(std::move(read)), m_position(position), m_pieceSize(pieceSize) {}

    /// The header at the place that was reached, which stays; nothing where no whole header stands, or one
    /// with an extra field that minizip may read in its own way: a Zip64 block, or blocks that do not fill
    /// the field.
    std::optional<CentralHeader> header();
    void goTo(std::uint64_t position) { m_position = position; }
    std::uint64_t position() const { return m_position; }

private:
    /// The bytes at the place that was reached; fewer where the archive ends.
    std::string_view bytes(std::size_t count);

    ReadArchiveUpTo m_read;
    std::uint64_t m_position;
    std::size_t m_pieceSize;
    std::vector<char> m_buffer;
    std::uint64_t m_start = 0;
    std::size_t m_size = 0;
};

} // namespace storage::zipprovider
