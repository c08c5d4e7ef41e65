#include "Zip64EntryReader.h"

#include "ZipConstants.h"

#include <algorithm>
#include <array>
#include <new>
#include <string_view>
#include <utility>

namespace storage::zipprovider {

void Zip64EntryReader::InflateEnd::operator()(z_stream* stream) const noexcept {
    inflateEnd(stream);
    delete stream;
}

std::unique_ptr<Zip64EntryReader> Zip64EntryReader::open(const ReadArchiveAt& readAt,
                                                         const Zip64Extent& extent, std::uint32_t method) {
    std::array<char, localHeaderSize> header{};
    const std::string_view fields(header.data(), header.size());
    if (extent.localHeader > noPlace - localHeaderSize ||
        !readAt(extent.localHeader, header.data(), static_cast<std::uint32_t>(header.size())) ||
        littleEndian(fields.substr(0, 4)) != localHeaderSignature ||
        littleEndian(fields.substr(8, 2)) != method) {
        return nullptr;
    }
    const auto data = extent.localHeader + localHeaderSize + littleEndian(fields.substr(26, 2)) +
                      littleEndian(fields.substr(28, 2));
    return std::unique_ptr<Zip64EntryReader>(new Zip64EntryReader(readAt, data, extent, method));
}

Zip64EntryReader::Zip64EntryReader(ReadArchiveAt readAt, std::uint64_t data, const Zip64Extent& extent,
                                   std::uint32_t method)
    : m_readAt(std::move(readAt)), m_data(data), m_dataLeft(extent.compressedSize),
      m_left(extent.uncompressedSize) {
    if (method != storedMethod) {
        // Ended by its owner from its initialisation on, which zlib allows for a stream of zeros.
        m_stream.reset(new z_stream{});
        if (inflateInit2(m_stream.get(), -MAX_WBITS) != Z_OK) {
            throw std::bad_alloc();
        }
        m_input = std::make_unique_for_overwrite<char[]>(inputSize());
    }
}

int Zip64EntryReader::read(char* buffer, int count) {
    const auto now =
        static_cast<std::uint32_t>(std::min<std::uint64_t>(m_left, static_cast<unsigned>(count)));
    if (now == 0) {
        return 0;
    }
    const auto got = m_stream ? readInflated(buffer, now) : readStored(buffer, now);
    if (!got || *got == 0) {
        return -1;
    }
    m_left -= *got;
    return static_cast<int>(*got);
}

std::size_t Zip64EntryReader::inputSize() const {
    return static_cast<std::size_t>(std::min<std::uint64_t>(m_dataLeft, inflateBufferSize));
}

bool Zip64EntryReader::readData(char* buffer, std::uint32_t count) {
    if (!m_readAt(m_data, buffer, count)) {
        return false;
    }
    m_data += count;
    m_dataLeft -= count;
    return true;
}

std::optional<std::uint32_t> Zip64EntryReader::readStored(char* buffer, std::uint32_t count) {
    const auto now = static_cast<std::uint32_t>(std::min<std::uint64_t>(m_dataLeft, count));
    return readData(buffer, now) ? std::optional(now) : std::nullopt;
}

std::optional<std::uint32_t> Zip64EntryReader::readInflated(char* buffer, std::uint32_t count) {
    m_stream->next_out = reinterpret_cast<Bytef*>(buffer);
    m_stream->avail_out = count;
    while (m_stream->avail_out > 0) {
        if (m_stream->avail_in == 0 && m_dataLeft > 0) {
            const auto now = static_cast<std::uint32_t>(inputSize());
            if (!readData(m_input.get(), now)) {
                return std::nullopt;
            }
            m_stream->next_in = reinterpret_cast<Bytef*>(m_input.get());
            m_stream->avail_in = now;
        }
        const int result = inflate(m_stream.get(), Z_NO_FLUSH);
        if (result == Z_STREAM_END || result == Z_BUF_ERROR) {
            break;
        }
        if (result != Z_OK) {
            return std::nullopt;
        }
    }
    return count - m_stream->avail_out;
}

} // namespace storage::zipprovider
