#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>

/// The system's calls below LocalArchiveFile. One file per system implements them; none throws, and all set
/// `errno` when they fail.
namespace storage::zipprovider::detail {

/// Opens a file for reading and writing; -1 when that fails. With `create` it is made, or emptied, and is
/// readable and writable by its owner alone; a symbolic link is not followed.
int openPositioned(const std::filesystem::path& accessForm, bool create) noexcept;
/// The number of bytes read, fewer than `count` only at the end of the file; -1 after a failure.
std::int64_t readAt(int file, char* buffer, std::size_t count, std::uint64_t position) noexcept;
/// Whether all bytes were written.
bool writeAt(int file, const char* data, std::size_t count, std::uint64_t position) noexcept;
/// -1 after a failure.
std::int64_t sizeOf(int file) noexcept;
bool endAt(int file, std::uint64_t size) noexcept;
bool closePositioned(int file) noexcept;

} // namespace storage::zipprovider::detail
