#pragma once

#include <fl/i18n/ustring.h>

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace fl::i18n::detail {

/// Whether the name is one of UTF-8's, which the converters handle themselves.
bool isUtf8Name(std::string_view codeSet) noexcept;

// The port to a system's own converter: one file per system (CodeSetConverter_<system>.cpp) defines these.
// Conversion may be called from several threads at once; construction checks the name once and for all.

/// Decodes bytes of one code set other than UTF-8.
class CodeSetDecoder {
public:
    /// Errors: std::invalid_argument if the system does not know the code set.
    explicit CodeSetDecoder(std::string_view codeSet);
    ~CodeSetDecoder();

    CodeSetDecoder(const CodeSetDecoder&) = delete;
    CodeSetDecoder& operator=(const CodeSetDecoder&) = delete;

    /// Result and replacements as codecvt_string_to_ustring says.
    ustring decode(std::string_view bytes, bool strict) const;

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

/// Encodes text in one code set other than UTF-8.
class CodeSetEncoder {
public:
    /// Errors: std::invalid_argument if the system does not know the code set.
    explicit CodeSetEncoder(std::string_view codeSet);
    ~CodeSetEncoder();

    CodeSetEncoder(const CodeSetEncoder&) = delete;
    CodeSetEncoder& operator=(const CodeSetEncoder&) = delete;

    /// Result and replacements as codecvt_ustring_to_string says.
    std::string encode(ustring_view text, bool strict) const;

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

/// What strict conversion throws: a std::range_error with the code set and the position of the first byte
/// (code unit) that cannot be converted.
[[noreturn]] void throwUndecodable(std::string_view codeSet, std::size_t position);
[[noreturn]] void throwUnencodable(std::string_view codeSet, std::size_t position);

} // namespace fl::i18n::detail
