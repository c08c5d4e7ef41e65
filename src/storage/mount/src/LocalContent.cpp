#include <storage/mount/src/LocalContent.h>

#include <storage/mount/src/SystemFailure.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

namespace storage::mount {

using foundation::storage::provider::ByteStream;
using foundation::storage::provider::SeekOrigin;

namespace {

constexpr std::uint64_t inMemoryLimit = std::uint64_t{64} << 10;
constexpr std::uint64_t allInMemoryLimit = std::uint64_t{64} << 20;
/// Holes that are longer must find room where they will be written out.
constexpr std::uint64_t uncheckedGrowth = std::uint64_t{64} << 20;
constexpr std::size_t blockSize = std::size_t{256} << 10;

} // namespace

LocalContent::LocalContent(WorkingSpace& space) : m_space(space) {}

LocalContent::~LocalContent() {
    account(0);
    if (m_file.isOpen())
        --m_space.files;
}

std::size_t LocalContent::read(std::uint64_t offset, char* buffer, std::size_t count) const {
    if (offset >= m_size)
        return 0;
    const auto available = static_cast<std::size_t>(std::min<std::uint64_t>(count, m_size - offset));
    if (m_file.isOpen())
        return m_file.read(offset, buffer, available);
    std::memcpy(buffer, m_bytes.data() + offset, available);
    return available;
}

void LocalContent::write(std::uint64_t offset, const char* data, std::size_t count) {
    if (count == 0)
        return;
    if (offset > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()) - count)
        failWith(EFBIG);
    const auto end = offset + count;
    reserve(std::max(m_size, end));
    if (!m_file.isOpen()) {
        if (end > m_size)
            m_bytes.resize(end);
        std::memcpy(m_bytes.data() + offset, data, count);
        account(std::max(m_size, end));
        return;
    }
    const auto written = m_file.write(offset, data, count);
    const int error = errno;
    if (written > 0)
        account(std::max(m_size, offset + written));
    if (written < count)
        failWith(error, "cannot write a working file");
}

void LocalContent::resize(std::uint64_t size) {
    if (size > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
        failWith(EFBIG);
    reserve(size);
    if (m_file.isOpen())
        m_file.resize(size);
    else
        m_bytes.resize(size);
    account(size);
}

void LocalContent::clear(std::uint64_t offset, std::uint64_t count) {
    const std::vector<char> zeros(blockSize);
    const auto end = offset >= m_size ? offset : offset + std::min(count, m_size - offset);
    while (offset < end) {
        const auto part = std::min<std::uint64_t>(blockSize, end - offset);
        write(offset, zeros.data(), part);
        offset += part;
    }
}

void LocalContent::fillFrom(ByteStream& source) {
    resize(0);
    std::vector<char> buffer(blockSize);
    for (;;) {
        const auto got = source.read(buffer.data(), static_cast<std::int64_t>(buffer.size()));
        if (got <= 0)
            return;
        write(m_size, buffer.data(), static_cast<std::size_t>(got));
    }
}

void LocalContent::copyTo(ByteStream& target) const {
    if (!m_file.isOpen()) {
        if (m_size > 0)
            target.write(m_bytes.data(), static_cast<std::int64_t>(m_size));
        return;
    }
    std::vector<char> buffer(blockSize);
    for (std::uint64_t at = 0; at < m_size;) {
        const auto got = m_file.read(at, buffer.data(), buffer.size());
        if (got == 0)
            failWith(EIO, "a working file ends too early");
        target.write(buffer.data(), static_cast<std::int64_t>(got));
        at += got;
    }
}

void LocalContent::reserve(std::uint64_t size) {
    const bool fits = size <= inMemoryLimit && (size <= m_size || m_space.memory < allInMemoryLimit);
    if (!m_file.isOpen() && !fits)
        spill();
    // The room is looked at before: a hole takes none here, but is written out when it is saved.
    if (size > m_size && size - m_size > uncheckedGrowth && m_file.room() < size - m_size)
        failWith(ENOSPC, "there is no room for the file's contents");
}

void LocalContent::spill() {
    auto file = ScratchFile::make();
    if (file.write(0, m_bytes.data(), m_bytes.size()) < m_bytes.size())
        failWith(errno, "cannot write a working file");
    m_space.memory -= m_size;
    m_space.disk += m_size;
    ++m_space.files;
    m_file = std::move(file);
    m_bytes = {};
}

void LocalContent::account(std::uint64_t size) {
    auto& counter = m_file.isOpen() ? m_space.disk : m_space.memory;
    counter += size;
    counter -= m_size;
    m_size = size;
}

} // namespace storage::mount
