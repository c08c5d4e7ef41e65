#include <storage/fileprovider/src/ReadAhead.h>

#include <storage/fileprovider/src/FileIo.h>

#include <algorithm>
#include <cstring>

namespace storage::fileprovider {

std::int64_t ReadAhead::read(int file, char* buffer, std::int64_t count, std::uint64_t position) {
    std::int64_t total = 0;
    while (total < count) {
        const auto at = position + static_cast<std::uint64_t>(total);
        auto& piece = pieceFor(at);
        if (!piece.holds(at)) {
            if (count - total >= largest) {
                const auto got = readAt(*m_environment, file, buffer + total, count - total, at);
                return got < 0 ? got : total + got;
            }
            if (!fetch(file, piece, count - total, at)) {
                return -1;
            }
            if (piece.size == 0) {
                break;
            }
        }
        const auto offset = static_cast<std::size_t>(at - piece.start);
        const auto now = std::min<std::size_t>(piece.size - offset, static_cast<std::size_t>(count - total));
        std::memcpy(buffer + total, piece.bytes.get() + offset, now);
        total += static_cast<std::int64_t>(now);
    }
    return total;
}

ReadAhead::Piece& ReadAhead::pieceFor(std::uint64_t position) {
    const auto other = 1 - m_lastUsed;
    const auto fits = [&](auto matches) {
        return matches(m_pieces[m_lastUsed]) || (matches(m_pieces[other]) && (m_lastUsed = other, true));
    };
    if (!fits([&](const Piece& piece) { return piece.holds(position); }) &&
        !fits([&](const Piece& piece) { return piece.size > 0 && piece.end() == position; })) {
        m_lastUsed = other;
    }
    return m_pieces[m_lastUsed];
}

bool ReadAhead::fetch(int file, Piece& piece, std::int64_t count, std::uint64_t position) const {
    const bool goesOn = piece.size > 0 && position == piece.end();
    piece.next = goesOn ? std::min(piece.next * 2, largest) : smallest;
    const auto wanted = std::max(count, piece.next);
    if (piece.capacity < wanted) {
        // Not filled with zeros, which would cost as much as reading a small entry.
        piece.bytes = std::make_unique_for_overwrite<char[]>(static_cast<std::size_t>(wanted));
        piece.capacity = wanted;
    }
    piece.start = position;
    const auto got = readAt(*m_environment, file, piece.bytes.get(), wanted, position);
    piece.size = static_cast<std::uint64_t>(std::max<std::int64_t>(got, 0));
    return got >= 0;
}

} // namespace storage::fileprovider
