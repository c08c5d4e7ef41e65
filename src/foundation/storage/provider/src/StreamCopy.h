#pragma once

#include <foundation/storage/provider/ByteStream.h>

#include <cstdint>
#include <limits>

namespace foundation::storage::provider::detail {

/// Copies from the position of `source` to the position of `destination` until the end of the source or
/// `limit` bytes, in pieces of bounded size. Returns the number of bytes copied.
std::uint64_t copyBytes(ByteStream& source, ByteStream& destination,
                        std::uint64_t limit = std::numeric_limits<std::uint64_t>::max());

} // namespace foundation::storage::provider::detail
