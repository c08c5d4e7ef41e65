#pragma once

#include <storage/fileprovider/src/Environment.h>

#include <array>
#include <cstdint>
#include <memory>
#include <utility>

namespace storage::fileprovider {

/// Reads a file in larger pieces than it is asked for, once it is read in sequence: a reader that takes a few
/// kilobytes at a time costs a system call for every quarter of a megabyte. A read elsewhere fetches little,
/// so that jumping about costs no more than it asks for. Two places are kept, since whoever reads an archive
/// goes to and fro between its directory and its entries. Threads: one at a time.
class ReadAhead {
public:
    explicit ReadAhead(EnvironmentPtr environment) : m_environment(std::move(environment)) {}

    /// Reads up to `count` bytes from `position` on, fewer only at the end of the file. Bytes of the two
    /// pieces that were fetched last, each at most `largest`, are not read from the file again. Returns the
    /// number, or -1 with `errno` set.
    std::int64_t read(int file, char* buffer, std::int64_t count, std::uint64_t position);

    static constexpr std::int64_t smallest = 8192;
    static constexpr std::int64_t largest = 256 * 1024;

private:
    struct Piece {
        std::unique_ptr<char[]> bytes;
        std::int64_t capacity = 0;
        std::uint64_t start = 0;
        std::uint64_t size = 0;
        /// How much the next fetch takes when it goes on behind this one.
        std::int64_t next = smallest;

        std::uint64_t end() const { return start + size; }
        bool holds(std::uint64_t position) const { return position >= start && position < end(); }
    };

    /// The piece that holds the position; else the one that ends there, else the one that was used less
    /// recently.
    Piece& pieceFor(std::uint64_t position);
    /// Fetches a piece that begins at `position` in place of `piece`; false with `errno` set.
    bool fetch(int file, Piece& piece, std::int64_t count, std::uint64_t position) const;

    const EnvironmentPtr m_environment;
    std::array<Piece, 2> m_pieces;
    std::size_t m_lastUsed = 0;
};

} // namespace storage::fileprovider
