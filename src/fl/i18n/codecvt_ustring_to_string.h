#pragma once

#include <fl/i18n/Export.h>
#include <fl/i18n/ustring.h>

#include <memory>
#include <string>
#include <string_view>

namespace fl::i18n {

namespace detail {
class CodeSetEncoder;
}

/// A function that encodes text in one code set.
///
///     const codecvt_ustring_to_string encode("UTF-8");
///     std::string bytes = encode(name);
///
/// Threads: one object may be called from several threads at once. Copies are cheap and share what they need.
class KXI18N_API codecvt_ustring_to_string {
public:
    /// `codeSet` as for codecvt_string_to_ustring. `selector` says what becomes of text that cannot be
    /// encoded: 1 replaces it, 0 reports it. Errors: std::invalid_argument for a code set that is not known
    /// or a selector other than 0 and 1.
    explicit codecvt_ustring_to_string(std::string_view codeSet, int selector = 1);
    codecvt_ustring_to_string(const codecvt_ustring_to_string&);
    codecvt_ustring_to_string& operator=(const codecvt_ustring_to_string&);
    ~codecvt_ustring_to_string();

    /// The bytes of `text`. With selector 1, an unpaired surrogate becomes U+FFFD, and a character that the
    /// code set lacks becomes '?'. Errors: with selector 0, std::range_error saying at which code unit.
    std::string operator()(ustring_view text) const;

private:
    // Null for UTF-8, which needs no state.
    std::shared_ptr<const detail::CodeSetEncoder> m_encoder;
    bool m_strict;
};

} // namespace fl::i18n
