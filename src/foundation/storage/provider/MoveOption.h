#pragma once

#include <cstdint>

namespace foundation::storage::provider {

/// What a move or copy does about an existing destination. A 32-bit set of flags; providers treat a value
/// with no bit but AllowCopy as "fail if the destination exists", every other as "replace it".
enum class MoveOption : std::uint32_t {
    FailIfExists = 0,
    ReplaceExisting = 1,
    /// A move that cannot be done by renaming may be done by copying and removing.
    AllowCopy = 4,
    ReplaceExistingAllowCopy = 5,
};

constexpr bool replacesExisting(MoveOption option) noexcept {
    return (static_cast<std::uint32_t>(option) & ~static_cast<std::uint32_t>(MoveOption::AllowCopy)) != 0;
}

} // namespace foundation::storage::provider
