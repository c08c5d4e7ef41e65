#pragma once

#include <storage/fileprovider/src/Environment.h>

#include <cstdint>
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
/// grows to `size` when it is shorter. Where the file system cannot reserve, the growth is written as zeros.
int reserve(const Environment& environment, int file, std::uint64_t oldSize, std::uint64_t size);
int setSize(const Environment& environment, int file, std::uint64_t size);
/// Waits until the file is on the medium, when the environment syncs at all.
int syncFile(const Environment& environment, int file);
/// The same for the names in a folder. A file system that cannot sync folders is taken to need none.
int syncFolder(const Environment& environment, const std::string& folder);

} // namespace storage::fileprovider
