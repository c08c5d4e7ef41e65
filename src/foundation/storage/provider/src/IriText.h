#pragma once

#include <fl/i18n/ustring.h>

#include <optional>

namespace foundation::storage::provider::detail {

/// Which "!" of a path are percent-encoded.
enum class BangEncoding {
    /// Those before "/".
    BeforeSlash,
    /// Those before "/" and one at the end: for the path of a container.
    BeforeSlashAndAtEnd,
    All,
};

/// Appends a decoded path in its encoded form.
void appendEncodedPath(fl::i18n::ustring& out, fl::i18n::ustring_view path, BangEncoding bangs);

/// Appends a decoded authority in its encoded form.
void appendEncodedAuthority(fl::i18n::ustring& out, fl::i18n::ustring_view authority);

/// Undoes every percent-encoding; bytes that are not UTF-8 become U+FFFD. Nothing when a "%" is not followed
/// by two hexadecimal digits.
std::optional<fl::i18n::ustring> decodePercent(fl::i18n::ustring_view text);

/// The text with U+FFFD for every surrogate that has no partner.
fl::i18n::ustring replaceUnpairedSurrogates(fl::i18n::ustring_view text);

/// The length of the scheme that the text begins with, 0 when it does not begin with one and ":".
std::size_t schemeLength(fl::i18n::ustring_view text);

/// Whether all of the text is a scheme.
bool isScheme(fl::i18n::ustring_view text);

} // namespace foundation::storage::provider::detail
