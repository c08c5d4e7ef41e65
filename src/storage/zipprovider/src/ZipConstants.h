#pragma once

#include <cstddef>
#include <cstdint>

namespace storage::zipprovider {

/// General-purpose flag, bit 0: the entry's data are encrypted.
inline constexpr std::uint32_t encryptedFlag = 0x1;
/// General-purpose flag, bit 11 (language encoding): name and comment are UTF-8.
inline constexpr std::uint32_t utf8Flag = 0x800;

/// Compression method of an entry whose data are its contents.
inline constexpr std::uint32_t storedMethod = 0;
/// Bytes that a stored name can have.
inline constexpr std::size_t maximalNameSize = 0xFFFF;
/// Bytes of a central-directory header without its name, extra field and comment.
inline constexpr std::uint64_t centralHeaderSize = 46;

/// Bytes moved at a time when an entry is copied.
inline constexpr int entryCopyBufferSize = 8192;
/// Bytes moved at a time between a working file or a temporary archive and a stream.
inline constexpr int fileCopyBufferSize = 4096;

} // namespace storage::zipprovider
