#include <storage/fileprovider/src/ReadAhead.h>

#include <storage/fileprovider/src/FileIo.h>

#include <algorithm>
#include <cstring>

namespace storage::fileprovider {

std::int64_t ReadAhead::read(int file, char* buffer, std::int64_t count, std::uint64_t position) {
    std::int64_t total = 0;
    while (total < count) {
        const auto at = position + static_cast<std::uint64_t>(total);
        if (at < m_start || at - m_start >= m_bytes.size()) {
            if (count - total >= largest) {
                const auto got = readAt(*m_environment, file, buffer + total, count - total, at);
                return got < 0 ? got : total + got;
            }
            if (!fetch(file, count - total, at)) {
                return -1;
            }
            if (m_bytes.empty()) {
                break;
            }
        }
        const auto offset = static_cast<std::size_t>(at - m_start);
        const auto now =
            std::min<std::size_t>(m_bytes.size() - offset, static_cast<std::size_t>(count - total));
        std::memcpy(buffer + total, m_bytes.data() + offset, now);
        total += static_cast<std::int64_t>(now);
    }
    return total;
}

bool ReadAhead::fetch(int file, std::int64_t count, std::uint64_t position) {
    const bool goesOn = !m_bytes.empty() && position == m_start + m_bytes.size();
    m_next = goesOn ? std::min(m_next * 2, largest) : smallest;
    const auto wanted = std::max(count, m_next);
    m_bytes.resize(static_cast<std::size_t>(wanted));
    m_start = position;
    const auto got = readAt(*m_environment, file, m_bytes.data(), wanted, position);
    m_bytes.resize(static_cast<std::size_t>(std::max<std::int64_t>(got, 0)));
    return got >= 0;
}

} // namespace storage::fileprovider
