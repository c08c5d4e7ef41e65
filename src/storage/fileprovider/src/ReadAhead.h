#pragma once

#include <storage/fileprovider/src/Environment.h>

#include <cstdint>
#include <utility>
#include <vector>

namespace storage::fileprovider {

/// Reads a file in larger pieces than it is asked for, once it is read in sequence: a reader that takes a few
/// kilobytes at a time costs a system call for every quarter of a megabyte. A read elsewhere fetches little,
/// so that jumping about costs no more than it asks for. Threads: one at a time.
class ReadAhead {
public:
    explicit ReadAhead(EnvironmentPtr environment) : m_environment(std::move(environment)) {}

    /// Reads up to `count` bytes from `position` on, fewer only at the end of the file. Bytes of the piece
    /// that was fetched last, at most `largest`, are not read from the file again. Returns the number, or -1
    /// with `errno` set.
    std::int64_t read(int file, char* buffer, std::int64_t count, std::uint64_t position);

    static constexpr std::int64_t smallest = 4096;
    static constexpr std::int64_t largest = 256 * 1024;

private:
    /// Fetches a piece that begins at `position`; false with `errno` set.
    bool fetch(int file, std::int64_t count, std::uint64_t position);

    const EnvironmentPtr m_environment;
    std::vector<char> m_bytes;
    std::uint64_t m_start = 0;
    /// How much the next fetch takes when it goes on behind this one.
    std::int64_t m_next = smallest;
};

} // namespace storage::fileprovider
