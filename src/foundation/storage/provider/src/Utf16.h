#pragma once

#include <fl/i18n/ustring.h>

#include <cstddef>

namespace foundation::storage::provider::detail {

constexpr bool isHighSurrogate(char32_t unit) noexcept {
    return unit >= 0xD800 && unit < 0xDC00;
}
constexpr bool isLowSurrogate(char32_t unit) noexcept {
    return unit >= 0xDC00 && unit < 0xE000;
}
constexpr bool isSurrogate(char32_t unit) noexcept {
    return unit >= 0xD800 && unit < 0xE000;
}

/// The character at `position`, which is moved behind it. A surrogate without its partner is returned as it
/// stands. Precondition: `position` lies in the text.
constexpr char32_t nextCharacter(fl::i18n::ustring_view text, std::size_t& position) noexcept {
    const char32_t first = text[position++];
    if (!isHighSurrogate(first) || position == text.size() || !isLowSurrogate(text[position])) {
        return first;
    }
    const char32_t second = text[position++];
    return 0x10000 + ((first - 0xD800) << 10) + (second - 0xDC00);
}

} // namespace foundation::storage::provider::detail
