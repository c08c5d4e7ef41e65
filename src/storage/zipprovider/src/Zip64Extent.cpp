#include "Zip64Extent.h"

#include "ZipConstants.h"

#include <array>
#include <cstddef>

namespace storage::zipprovider {

namespace {

/// The Zip64 block of an extra field, without its header.
std::optional<std::string_view> zip64Block(std::string_view extraField) {
    while (extraField.size() >= extraBlockHeaderSize) {
        const auto id = littleEndian(extraField.substr(0, 2));
        const auto size = littleEndian(extraField.substr(2, 2));
        extraField.remove_prefix(extraBlockHeaderSize);
        if (size > extraField.size()) {
            break;
        }
        if (id == zip64FieldId) {
            return extraField.substr(0, size);
        }
        extraField.remove_prefix(size);
    }
    return std::nullopt;
}

/// Takes the next value of the block for a field that needs it. Returns false when the block has ended.
bool resolve(std::uint64_t& field, std::string_view& block) {
    if (field != zip64Limit) {
        return true;
    }
    constexpr std::size_t valueSize = 8;
    if (block.size() < valueSize) {
        return false;
    }
    field = littleEndian(block.substr(0, valueSize));
    block.remove_prefix(valueSize);
    return true;
}

} // namespace

void resolveSizes(Zip64Extent& extent, std::string_view extraField) {
    if (auto block = zip64Block(extraField)) {
        static_cast<void>(resolve(extent.uncompressedSize, *block) && resolve(extent.compressedSize, *block));
    }
}

std::optional<Zip64Extent> zip64Extent(const ReadArchiveAt& readAt, std::uint64_t centralHeader,
                                       std::string_view extraField) {
    auto block = zip64Block(extraField);
    if (!block) {
        return std::nullopt;
    }
    std::array<char, centralHeaderSize> header{};
    const std::string_view fields(header.data(), header.size());
    if (!readAt(centralHeader, header.data(), static_cast<std::uint32_t>(header.size())) ||
        littleEndian(fields.substr(0, 4)) != centralHeaderSignature) {
        return Zip64Extent{0, 0, noPlace};
    }
    Zip64Extent extent{littleEndian(fields.substr(24, 4)), littleEndian(fields.substr(20, 4)),
                       littleEndian(fields.substr(42, 4))};
    if (extent.uncompressedSize != zip64Limit && extent.compressedSize != zip64Limit &&
        extent.localHeader != zip64Limit) {
        return std::nullopt;
    }
    if (!(resolve(extent.uncompressedSize, *block) && resolve(extent.compressedSize, *block) &&
          resolve(extent.localHeader, *block))) {
        extent.localHeader = noPlace;
    }
    return extent;
}

} // namespace storage::zipprovider
