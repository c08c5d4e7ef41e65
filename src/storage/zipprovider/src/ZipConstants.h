#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace storage::zipprovider {

/// General-purpose flag, bit 0: the entry's data are encrypted.
inline constexpr std::uint32_t encryptedFlag = 0x1;
/// General-purpose bit 3: CRC-32 and sizes stand behind the data, not in the local header.
inline constexpr std::uint32_t descriptorFlag = 0x8;
/// General-purpose flag, bit 11 (language encoding): name and comment are UTF-8.
inline constexpr std::uint32_t utf8Flag = 0x800;

/// Compression method of an entry whose data are its contents.
inline constexpr std::uint32_t storedMethod = 0;
/// Bytes that a stored name can have.
inline constexpr std::size_t maximalNameSize = 0xFFFF;

/// Central-directory header, without its name, extra field and comment:
///
///     0 signature    4 made by        6 needed          8 flags              10 method
///    12 time and date                16 CRC-32          20 compressed size   24 uncompressed size
///    28 name length  30 extra length  32 comment length 34 disk              36 internal attributes
///    38 external attributes           42 offset of the local header
inline constexpr std::uint32_t centralHeaderSignature = 0x02014b50;
inline constexpr std::size_t centralHeaderSize = 46;
/// Local header, without its name and extra field:
///
///     0 signature    4 needed         6 flags           8 method             10 time and date
///    14 CRC-32       18 compressed size                 22 uncompressed size
///    26 name length  28 extra length
inline constexpr std::uint32_t localHeaderSignature = 0x04034b50;
inline constexpr std::size_t localHeaderSize = 30;
/// End-of-central-directory record, without its comment:
///
///     0 signature    4 disk numbers    8 entries on this disk    10 entries    12 size of the directory
///    16 its offset  20 comment length
inline constexpr std::uint32_t endRecordSignature = 0x06054b50;
inline constexpr std::size_t endRecordSize = 22;
/// What stands before it where a number does not fit: the Zip64 end record, without its extensible data,
///
///     0 signature     4 size of what follows    12 made by, needed   16 disk numbers
///    24 entries on this disk    32 entries      40 size of the directory    48 its offset
///
/// and the locator
///
///     0 signature     4 disk of the Zip64 end record     8 its offset     16 number of disks
inline constexpr std::uint32_t zip64EndRecordSignature = 0x06064b50;
inline constexpr std::size_t zip64EndRecordSize = 56;
inline constexpr std::uint32_t zip64LocatorSignature = 0x07064b50;
inline constexpr std::size_t zip64LocatorSize = 20;
/// Header of a block of an extra field: 0 identifier    2 size of what follows
inline constexpr std::size_t extraBlockHeaderSize = 4;
/// Block of an extra field that holds, in this order and 8 bytes each, uncompressed size, compressed size and
/// offset of the local header, those of them that are all ones in the header.
inline constexpr std::uint64_t zip64FieldId = 0x0001;
inline constexpr std::uint64_t zip64Limit = 0xFFFFFFFF;

/// What this system's writer puts into "version made by" and "version needed to extract".
inline constexpr std::uint32_t writerMadeBy = 0;
inline constexpr std::uint32_t writerNeeded = 20;
/// Internal attributes of an entry that looks like text; those of any other that the writer deflates are 0.
inline constexpr std::uint32_t textAttribute = 1;

/// An end record with this number of entries leaves open where the directory ends.
inline constexpr std::uint64_t openEntryCount = 0xFFFF;

/// minizip looks for the end record in steps of 1 KB, so a step that meets it begins at most so far before
/// it.
inline constexpr std::uint64_t endSearchStep = 2048;
/// Bytes of the central directory that are read at a time.
inline constexpr std::size_t directoryBufferSize = 65536;
/// Bytes of the data of a deflated entry that are read at a time.
inline constexpr std::size_t inflateBufferSize = 65536;
/// Bytes of a local archive that are read at a time.
inline constexpr std::size_t localReadBufferSize = 262144;
/// Bytes moved at a time when an entry is copied as it is stored.
inline constexpr int storedCopyBufferSize = 65536;
/// Bytes moved at a time when an entry is copied.
inline constexpr int entryCopyBufferSize = 8192;
/// Bytes moved at a time between a working file or a temporary archive and a stream.
inline constexpr int fileCopyBufferSize = 4096;
/// Bytes compared at a time.
inline constexpr int comparingBufferSize = 65536;

/// Appends the `size` lowest bytes of a number.
inline void putLittleEndian(std::string& out, std::uint64_t value, int size) {
    for (; size > 0; --size, value >>= 8) {
        out += static_cast<char>(value & 0xFF);
    }
}

/// The number that `bytes`, at most eight, stand for.
constexpr std::uint64_t littleEndian(std::string_view bytes) {
    std::uint64_t value = 0;
    for (std::size_t i = bytes.size(); i-- > 0;) {
        value = value << 8 | static_cast<unsigned char>(bytes[i]);
    }
    return value;
}

} // namespace storage::zipprovider
