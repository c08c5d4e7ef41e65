#pragma once

#include <fl/i18n/Export.h>
#include <fl/i18n/ustring.h>

#include <string>
#include <string_view>

namespace fl::i18n {

/// The text in UTF-8. An unpaired surrogate becomes U+FFFD (the bytes EF BF BD).
/// Threads: any, here and below.
KXI18N_API std::string toUtf8(ustring_view text);

/// The text of UTF-8 bytes. What is not UTF-8 becomes U+FFFD: one for each truncated sequence (the longest
/// run of bytes that could have begun a character) and one for each other byte that cannot stand where it
/// stands. So overlong forms, surrogates and numbers above U+10FFFF give one U+FFFD a byte. A byte order mark
/// is kept.
KXI18N_API ustring fromUtf8(std::string_view bytes);

/// Whether fromUtf8 would replace nothing.
KXI18N_API bool isUtf8(std::string_view bytes) noexcept;

} // namespace fl::i18n
