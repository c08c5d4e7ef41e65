#pragma once

#include <fl/i18n/ustring.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace fl::i18n::detail {

inline constexpr char16_t replacementCharacter = 0xFFFD;
inline constexpr std::size_t npos = static_cast<std::size_t>(-1);

/// Decodes up to the first sequence that is not UTF-8 (strict), or all, replacing as fromUtf8 says. Returns
/// the position of the first sequence that is not UTF-8, npos if there is none.
std::size_t decodeUtf8(std::string_view bytes, bool strict, ustring& text);

/// Encodes up to the first unpaired surrogate (strict), or all, replacing as toUtf8 says. Returns the
/// position of the first unpaired surrogate, npos if there is none.
std::size_t encodeUtf8(ustring_view text, bool strict, std::string& bytes);

inline bool isHighSurrogate(char16_t unit) {
    return (unit & 0xFC00) == 0xD800;
}
inline bool isLowSurrogate(char16_t unit) {
    return (unit & 0xFC00) == 0xDC00;
}

} // namespace fl::i18n::detail
