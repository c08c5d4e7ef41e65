#include "Zip64EntryReader.h"

#include "ZipConstants.h"

#include <boost/iostreams/categories.hpp>
#include <boost/iostreams/filter/zlib.hpp>

#include <algorithm>
#include <array>
#include <ios>
#include <limits>
#include <string_view>
#include <utility>

namespace storage::zipprovider {

namespace {

/// A part of the archive as a Boost.Iostreams source.
class ArchivePart {
public:
    using char_type = char;
    using category = boost::iostreams::source_tag;

    ArchivePart(ReadArchiveAt readAt, std::uint64_t position, std::uint64_t size)
        : m_readAt(std::move(readAt)), m_position(position), m_left(size) {}

    std::streamsize read(char* buffer, std::streamsize count) {
        const auto now = std::min<std::uint64_t>(
            {m_left, static_cast<std::uint64_t>(count), std::numeric_limits<std::uint32_t>::max()});
        if (now == 0) {
            return -1;
        }
        if (!m_readAt(m_position, buffer, static_cast<std::uint32_t>(now))) {
            throw std::ios_base::failure("the archive ends too early");
        }
        m_position += now;
        m_left -= now;
        return static_cast<std::streamsize>(now);
    }

private:
    ReadArchiveAt m_readAt;
    std::uint64_t m_position;
    std::uint64_t m_left;
};

} // namespace

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
    : m_left(extent.uncompressedSize) {
    if (method != storedMethod) {
        boost::iostreams::zlib_params deflated;
        deflated.noheader = true;
        m_contents.push(boost::iostreams::zlib_decompressor(deflated, inflateBufferSize), inflateBufferSize);
    }
    m_contents.push(ArchivePart(std::move(readAt), data, extent.compressedSize), inflateBufferSize);
}

int Zip64EntryReader::read(char* buffer, int count) {
    const auto now =
        static_cast<std::streamsize>(std::min<std::uint64_t>(m_left, static_cast<unsigned>(count)));
    if (now == 0) {
        return 0;
    }
    try {
        const auto got = m_contents.sgetn(buffer, now);
        m_left -= static_cast<std::uint64_t>(got);
        return got == 0 ? -1 : static_cast<int>(got);
    } catch (const std::ios_base::failure&) {
        return -1;
    }
}

} // namespace storage::zipprovider
