#pragma once

#include <storage/fileprovider/src/Environment.h>

#include <sys/stat.h>

#include <cstdint>
#include <optional>
#include <string>

namespace storage::fileprovider {

/// The system calls with their short results and interruptions dealt with. Those that return an int return 0
/// or an errno.

/// Reads up to `count` bytes, fewer only at the end of the file. Returns the number, or -1 with `errno` set.
std::int64_t readAt(const Environment& environment, int file, char* buffer, std::int64_t count,
                    std::uint64_t position);
int writeAt(const Environment& environment, int file, const char* buffer, std::int64_t count,
            std::uint64_t position);
/// Copies the first `size` bytes of a file over those of another. Stretches of `from` that were never written
/// are left out with `skipHoles`, which is right where `to` is empty; the caller then sets the size.
/// Errors: EIO when `from` ends early.
int copyBytes(const Environment& environment, int from, int to, std::uint64_t size, bool skipHoles);
/// Reserves the space of the first `size` bytes, so that writing them cannot fail for want of space. The file
/// keeps its size and its bytes. Errors: EOPNOTSUPP where the file system cannot reserve.
int reserve(const Environment& environment, int file, std::uint64_t size);
/// Writes zeros from `begin` to `end`.
int writeZeros(const Environment& environment, int file, std::uint64_t begin, std::uint64_t end);
/// Whether all bytes from `begin` to the end of the file are zeros; disengaged, with `errno` set, when they
/// cannot be read.
std::optional<bool> isZeroFrom(const Environment& environment, int file, std::uint64_t begin);
/// When the file was made, in nanoseconds since 1970; 0 where the file system does not tell.
std::uint64_t birthTimeOf(int file);
int setSize(const Environment& environment, int file, std::uint64_t size);
/// Gives the file the time of modification that `before` has, where the user may.
void keepModified(int file, const struct stat& before) noexcept;
/// Waits until the file is on the medium, when the environment syncs at all.
int syncFile(const Environment& environment, int file);
/// The same for the names in a folder. A file system that cannot sync folders is taken to need none.
int syncFolder(const Environment& environment, const std::string& folder);

} // namespace storage::fileprovider
