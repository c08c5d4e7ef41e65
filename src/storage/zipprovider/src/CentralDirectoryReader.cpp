#include "CentralDirectoryReader.h"

#include "ZipConstants.h"

#include <algorithm>

namespace storage::zipprovider {

namespace {

std::uint32_t field(std::string_view header, std::size_t offset, std::size_t size) {
    return static_cast<std::uint32_t>(littleEndian(header.substr(offset, size)));
}

bool isOrdinaryExtraField(std::string_view extraField) {
    while (extraField.size() >= extraBlockHeaderSize) {
        const auto size = extraBlockHeaderSize + field(extraField, 2, 2);
        if (field(extraField, 0, 2) == zip64FieldId || size > extraField.size()) {
            return false;
        }
        extraField.remove_prefix(size);
    }
    return extraField.empty();
}

} // namespace

std::optional<CentralHeader> CentralDirectoryReader::header() {
    const auto fixed = bytes(centralHeaderSize);
    if (fixed.size() < centralHeaderSize || field(fixed, 0, 4) != centralHeaderSignature) {
        return std::nullopt;
    }
    const std::size_t nameLength = field(fixed, 28, 2);
    const std::size_t extraLength = field(fixed, 30, 2);
    CentralHeader header{};
    header.madeBy = field(fixed, 4, 2);
    header.needed = field(fixed, 6, 2);
    header.flags = field(fixed, 8, 2);
    header.method = field(fixed, 10, 2);
    header.dosTime = field(fixed, 12, 4);
    header.crc32 = field(fixed, 16, 4);
    header.compressedSize = field(fixed, 20, 4);
    header.uncompressedSize = field(fixed, 24, 4);
    header.extraLength = field(fixed, 30, 2);
    header.commentLength = field(fixed, 32, 2);
    header.disk = field(fixed, 34, 2);
    header.internalAttributes = field(fixed, 36, 2);
    header.externalAttributes = field(fixed, 38, 4);
    header.localHeader = field(fixed, 42, 4);
    header.length =
        static_cast<std::uint32_t>(centralHeaderSize + nameLength + extraLength) + header.commentLength;
    const auto whole = bytes(centralHeaderSize + nameLength + extraLength);
    if (whole.size() < centralHeaderSize + nameLength + extraLength ||
        !isOrdinaryExtraField(whole.substr(centralHeaderSize + nameLength))) {
        return std::nullopt;
    }
    header.name = whole.substr(centralHeaderSize, nameLength);
    return header;
}

std::string_view CentralDirectoryReader::bytes(std::size_t count) {
    if (m_position < m_start || m_position - m_start > m_size || m_size - (m_position - m_start) < count) {
        m_buffer.resize(std::max(count, m_pieceSize));
        m_start = m_position;
        m_size = m_read(m_start, m_buffer.data(), static_cast<std::uint32_t>(m_buffer.size()));
    }
    const auto offset = static_cast<std::size_t>(m_position - m_start);
    return std::string_view(m_buffer.data(), m_size).substr(offset, count);
}

} // namespace storage::zipprovider
