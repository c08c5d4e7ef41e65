#include "LocalArchiveFile.h"

#include "PositionedFile.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

namespace storage::zipprovider {

namespace {

constexpr std::size_t capacity = std::size_t{64} * 1024;

} // namespace

std::unique_ptr<LocalArchiveFile> LocalArchiveFile::open(const std::filesystem::path& accessForm,
                                                         Mode mode) noexcept {
    try {
        std::unique_ptr<LocalArchiveFile> opened(new LocalArchiveFile);
        opened->m_bytes.reserve(capacity);
        opened->m_file = detail::openPositioned(accessForm, mode == Mode::Create);
        return opened->m_file < 0 ? nullptr : std::move(opened);
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
        return nullptr;
    }
}

LocalArchiveFile::~LocalArchiveFile() {
    const int error = errno;
    close();
    errno = error;
}

std::size_t LocalArchiveFile::read(char* buffer, std::size_t count) {
    if (!flush()) {
        return 0;
    }
    const auto got = detail::readAt(m_file, buffer, count, m_position);
    const auto total = static_cast<std::size_t>(expect(got >= 0) ? got : 0);
    m_position += total;
    return total;
}

bool LocalArchiveFile::write(const char* data, std::size_t count) {
    while (count > 0 && isGood()) {
        const bool joins = m_position >= m_start && m_position - m_start <= m_bytes.size();
        if ((!joins || m_position - m_start == capacity) && !flush()) {
            break;
        }
        if (m_bytes.empty()) {
            m_start = m_position;
        }
        const auto offset = static_cast<std::size_t>(m_position - m_start);
        const auto now = std::min(count, capacity - offset);
        const auto replaced = std::min(now, m_bytes.size() - offset);
        std::copy_n(data, replaced, m_bytes.begin() + static_cast<std::ptrdiff_t>(offset));
        m_bytes.insert(m_bytes.end(), data + replaced, data + now);
        m_position += now;
        data += now;
        count -= now;
    }
    return isGood();
}

std::uint64_t LocalArchiveFile::size() {
    const auto size = flush() ? detail::sizeOf(m_file) : 0;
    return expect(size >= 0) ? static_cast<std::uint64_t>(size) : 0;
}

bool LocalArchiveFile::truncate() {
    return flush() && expect(detail::endAt(m_file, m_position));
}

bool LocalArchiveFile::close() {
    if (m_file >= 0) {
        flush();
        const int file = m_file;
        m_file = -1;
        expect(detail::closePositioned(file));
    }
    return isGood();
}

bool LocalArchiveFile::isGood() const {
    if (m_error != 0) {
        errno = m_error;
    }
    return m_error == 0;
}

bool LocalArchiveFile::expect(bool succeeded) {
    if (!succeeded && m_error == 0) {
        m_error = errno != 0 ? errno : EIO;
    }
    return isGood();
}

bool LocalArchiveFile::flush() {
    if (!m_bytes.empty() && isGood()) {
        expect(detail::writeAt(m_file, m_bytes.data(), m_bytes.size(), m_start));
    }
    m_bytes.clear();
    return expect(m_file >= 0);
}

} // namespace storage::zipprovider
