#pragma once

#include <cstddef>
#include <cstdint>

/// Layout of the records of a ZIP archive that lie outside the entries' data. All numbers are little-endian.
namespace storage::vfs::records {

/// Central directory header.
///
///     0 signature   4 made by   6 needed    8 flags       10 method     12 time     14 date
///    16 crc        20 packed   24 size     28 name len    30 extra len  32 comment len
///    34 disk       36 internal 38 external 42 local header offset       46 name, extra field, comment
constexpr std::uint32_t centralHeaderSignature = 0x02014b50;
constexpr std::size_t centralHeaderSize = 46;

/// End-of-central-directory record.
///
///     0 signature   4 disk   6 disk of the directory   8 entries on disk   10 entries
///    12 directory size      16 directory offset       20 comment len       22 comment
constexpr std::uint32_t endSignature = 0x06054b50;
constexpr std::size_t endSize = 22;

/// Zip64 end-of-central-directory locator.
///
///     0 signature   4 disk of the record   8 offset of the record   16 number of disks
constexpr std::uint32_t zip64LocatorSignature = 0x07064b50;
constexpr std::size_t zip64LocatorSize = 20;

/// Zip64 end-of-central-directory record.
///
///     0 signature   4 size of the rest   12 made by   14 needed   16 disk   20 disk of the directory
///    24 entries on disk   32 entries   40 directory size   48 directory offset
constexpr std::uint32_t zip64EndSignature = 0x06064b50;
constexpr std::size_t zip64EndSize = 56;

/// Header ID of the Zip64 extra field: the 64-bit forms of those of size, packed size and local header
/// offset, in this order, that stand as all ones in the header.
constexpr std::uint16_t zip64ExtraId = 0x0001;

constexpr std::uint32_t all32 = 0xffffffff;
constexpr std::uint16_t all16 = 0xffff;

/// How far from the end of the file the end record may begin. A comment of the longest kind would put it 22
/// bytes farther; minizip, which reads the archives, does not look there.
constexpr std::uint64_t searchDistance = 0xffff;

inline std::uint16_t get16(const unsigned char* at) {
    return static_cast<std::uint16_t>(at[0] | (at[1] << 8));
}

inline std::uint32_t get32(const unsigned char* at) {
    return static_cast<std::uint32_t>(get16(at)) | static_cast<std::uint32_t>(get16(at + 2)) << 16;
}

inline std::uint64_t get64(const unsigned char* at) {
    return static_cast<std::uint64_t>(get32(at)) | static_cast<std::uint64_t>(get32(at + 4)) << 32;
}

} // namespace storage::vfs::records
