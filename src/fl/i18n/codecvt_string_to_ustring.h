#pragma once

#include <fl/i18n/Export.h>
#include <fl/i18n/ustring.h>

#include <memory>
#include <string_view>

namespace fl::i18n {

namespace detail {
class CodeSetDecoder;
}

/// A function that decodes bytes of one code set.
///
///     const codecvt_string_to_ustring decode("ISO-8859-1");
///     ustring name = decode(bytes);
///
/// Threads: one object may be called from several threads at once. Copies are cheap and share what they need.
class KXI18N_API codecvt_string_to_ustring {
public:
    /// `codeSet` is any name that the C library's converter knows ("UTF-8", "IBM437", "SHIFT_JIS"); case does
    /// not matter. `selector` says what becomes of bytes that mean nothing in it: 1 replaces them by U+FFFD,
    /// 0 reports them. Errors: std::invalid_argument for a code set that is not known or a selector other
    /// than 0 and 1.
    explicit codecvt_string_to_ustring(std::string_view codeSet, int selector = 1);
    codecvt_string_to_ustring(const codecvt_string_to_ustring&);
    codecvt_string_to_ustring& operator=(const codecvt_string_to_ustring&);
    ~codecvt_string_to_ustring();

    /// The text of `bytes`. With selector 1, each invalid byte (each invalid unit of a code set of wider
    /// units) and each truncated sequence becomes one U+FFFD; for UTF-8 see fromUtf8. Errors: with selector
    /// 0, std::range_error saying at which byte.
    ustring operator()(std::string_view bytes) const;

private:
    // Null for UTF-8, which needs no state.
    std::shared_ptr<const detail::CodeSetDecoder> m_decoder;
    bool m_strict;
};

} // namespace fl::i18n
