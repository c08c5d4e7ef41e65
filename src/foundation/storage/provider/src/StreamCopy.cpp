#include "StreamCopy.h"

#include <algorithm>
#include <vector>

namespace foundation::storage::provider::detail {

std::uint64_t copyBytes(ByteStream& source, ByteStream& destination, std::uint64_t limit) {
    std::vector<char> buffer(std::size_t{64} * 1024);
    std::uint64_t copied = 0;
    while (copied < limit) {
        const auto wanted = std::min<std::uint64_t>(buffer.size(), limit - copied);
        const auto got = source.read(buffer.data(), static_cast<std::int64_t>(wanted));
        if (got == 0) {
            break;
        }
        destination.write(buffer.data(), got);
        copied += static_cast<std::uint64_t>(got);
    }
    return copied;
}

} // namespace foundation::storage::provider::detail
