#include "OrdinaryEntry.h"

#include "ZipConstants.h"

#include <zlib.h>

#include <array>

namespace storage::zipprovider {

namespace {

constexpr std::uint32_t unusualFlags = encryptedFlag | descriptorFlag;

bool isOrdinary(const CentralHeader& header) {
    return (header.flags & unusualFlags) == 0 &&
           (header.method == storedMethod || header.method == Z_DEFLATED) &&
           header.compressedSize != zip64Limit && header.uncompressedSize != zip64Limit &&
           header.localHeader != zip64Limit;
}

bool localHeaderAgrees(const ReadArchiveUpTo& read, const CentralHeader& header) {
    std::array<char, localHeaderSize> bytes{};
    const std::string_view fields(
        bytes.data(), read(header.localHeader, bytes.data(), static_cast<std::uint32_t>(bytes.size())));
    return fields.size() == localHeaderSize && littleEndian(fields.substr(0, 4)) == localHeaderSignature &&
           (littleEndian(fields.substr(6, 2)) & unusualFlags) == 0 &&
           littleEndian(fields.substr(8, 2)) == header.method &&
           littleEndian(fields.substr(14, 4)) == header.crc32 &&
           littleEndian(fields.substr(18, 4)) == header.compressedSize &&
           littleEndian(fields.substr(22, 4)) == header.uncompressedSize &&
           littleEndian(fields.substr(26, 2)) == header.name.size();
}

} // namespace

std::optional<OrdinaryEntry> ordinaryEntryAt(const ReadArchiveUpTo& read, std::uint64_t position,
                                             std::string_view name) {
    CentralDirectoryReader reader(read, position, centralHeaderSize + name.size());
    const auto header = reader.header();
    if (!header || header->name != name || !isOrdinary(*header) || !localHeaderAgrees(read, *header)) {
        return std::nullopt;
    }
    return OrdinaryEntry{{header->uncompressedSize, header->compressedSize, header->localHeader},
                         header->method};
}

} // namespace storage::zipprovider
