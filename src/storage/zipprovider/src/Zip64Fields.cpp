#include "Zip64Fields.h"

#include "ZipConstants.h"

#include <string>

namespace storage::zipprovider {

namespace {

constexpr std::uint64_t placeholder = 0xFFFFFFFF;
constexpr std::uint64_t zip64BlockId = 0x0001;
constexpr std::size_t blockHeaderSize = 4;

std::uint64_t littleEndian(std::string_view bytes) {
    std::uint64_t value = 0;
    for (auto byte = bytes.rbegin(); byte != bytes.rend(); ++byte) {
        value = (value << 8) | static_cast<unsigned char>(*byte);
    }
    return value;
}

/// The contents of the Zip64 block. An extra field that is cut off within a block ends before it.
std::optional<std::string_view> zip64Block(std::string_view extra) {
    while (extra.size() >= blockHeaderSize) {
        const std::uint64_t id = littleEndian(extra.substr(0, 2));
        const auto size = static_cast<std::size_t>(littleEndian(extra.substr(2, 2)));
        extra.remove_prefix(blockHeaderSize);
        if (size > extra.size()) {
            return std::nullopt;
        }
        if (id == zip64BlockId) {
            return extra.substr(0, size);
        }
        extra.remove_prefix(size);
    }
    return std::nullopt;
}

std::optional<std::uint64_t> takeValue(std::string_view& block) {
    if (block.size() < sizeof(std::uint64_t)) {
        return std::nullopt;
    }
    const std::uint64_t value = littleEndian(block.substr(0, sizeof(std::uint64_t)));
    block.remove_prefix(sizeof(std::uint64_t));
    return value;
}

} // namespace

std::optional<Zip64Fields> zip64Fields(const unz_file_info64& info, std::string_view extra) noexcept {
    auto block = zip64Block(extra);
    if (!block) {
        return std::nullopt;
    }
    Zip64Fields fields{info.uncompressed_size, info.compressed_size, std::nullopt};
    for (std::uint64_t* value : {&fields.size, &fields.compressedSize}) {
        if (*value != placeholder) {
            continue;
        }
        const auto taken = takeValue(*block);
        if (!taken) {
            return std::nullopt;
        }
        *value = *taken;
    }
    fields.localHeader = takeValue(*block);
    return fields;
}

std::optional<Zip64Fields> currentZip64Fields(unzFile archive, const unz_file_info64& info) {
    if (info.size_file_extra < blockHeaderSize) {
        return std::nullopt;
    }
    std::string extra(info.size_file_extra, '\0');
    if (unzGetCurrentFileInfo64(archive, nullptr, nullptr, 0, extra.data(), static_cast<uLong>(extra.size()),
                                nullptr, 0) != UNZ_OK) {
        return std::nullopt;
    }
    return zip64Fields(info, extra);
}

} // namespace storage::zipprovider
