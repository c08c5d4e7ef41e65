#include "EmptyArchive.h"

#include "ZipConstants.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>

namespace storage::zipprovider {

using foundation::storage::provider::SeekOrigin;

bool isEmptyArchive(foundation::storage::provider::ByteStream& archive) {
    const auto size = archive.seek(0, SeekOrigin::End);
    archive.seek(0, SeekOrigin::Begin);
    std::array<char, endRecordSize> record{};
    std::size_t have = 0;
    while (have < record.size()) {
        const auto got = archive.read(record.data() + have, static_cast<std::int64_t>(record.size() - have));
        if (got <= 0) {
            return false;
        }
        have += static_cast<std::size_t>(got);
    }
    const std::string_view bytes(record.data(), record.size());
    const auto declared = bytes.substr(4, 16);
    const auto commentLength = littleEndian(bytes.substr(20, 2));
    return littleEndian(bytes.substr(0, 4)) == endRecordSignature &&
           std::ranges::all_of(declared, [](char byte) { return byte == 0; }) &&
           static_cast<std::uint64_t>(size) == endRecordSize + commentLength;
}

} // namespace storage::zipprovider
