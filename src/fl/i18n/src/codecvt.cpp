#include "CodeSetConverter.h"
#include "utf8.h"

#include <fl/i18n/codecvt_string_to_ustring.h>
#include <fl/i18n/codecvt_ustring_to_string.h>

#include <algorithm>
#include <stdexcept>

namespace fl::i18n {

namespace {

constexpr int selectorStrict = 0;
constexpr int selectorReplace = 1;

bool isStrict(int selector) {
    if (selector != selectorStrict && selector != selectorReplace) {
        throw std::invalid_argument("cannot make a code set converter with selector " +
                                    std::to_string(selector) + ": expected 0 or 1");
    }
    return selector == selectorStrict;
}

bool equalIgnoringAsciiCase(std::string_view a, std::string_view upperCase) {
    return std::equal(a.begin(), a.end(), upperCase.begin(), upperCase.end(), [](char x, char upper) {
        return x == upper || (x >= 'a' && x <= 'z' && x - 'a' + 'A' == upper);
    });
}

std::string quoted(std::string_view codeSet) {
    return '"' + std::string(codeSet) + '"';
}

} // namespace

namespace detail {

bool isUtf8Name(std::string_view codeSet) noexcept {
    return equalIgnoringAsciiCase(codeSet, "UTF-8") || equalIgnoringAsciiCase(codeSet, "UTF8");
}

void throwUndecodable(std::string_view codeSet, std::size_t position) {
    throw std::range_error("cannot convert from code set " + quoted(codeSet) + ": byte " +
                           std::to_string(position) + " is invalid");
}

void throwUnencodable(std::string_view codeSet, std::size_t position) {
    throw std::range_error("cannot convert to code set " + quoted(codeSet) + ": code unit " +
                           std::to_string(position) + " has no form in it");
}

} // namespace detail

codecvt_string_to_ustring::codecvt_string_to_ustring(std::string_view codeSet, int selector)
    : m_decoder(detail::isUtf8Name(codeSet) ? nullptr
                                            : std::make_shared<const detail::CodeSetDecoder>(codeSet)),
      m_strict(isStrict(selector)) {}

codecvt_string_to_ustring::codecvt_string_to_ustring(const codecvt_string_to_ustring&) = default;
codecvt_string_to_ustring& codecvt_string_to_ustring::operator=(const codecvt_string_to_ustring&) = default;
codecvt_string_to_ustring::~codecvt_string_to_ustring() = default;

ustring codecvt_string_to_ustring::operator()(std::string_view bytes) const {
    if (m_decoder) {
        return m_decoder->decode(bytes, m_strict);
    }
    ustring text;
    const std::size_t invalid = detail::decodeUtf8(bytes, m_strict, text);
    if (m_strict && invalid != detail::npos) {
        detail::throwUndecodable("UTF-8", invalid);
    }
    return text;
}

codecvt_ustring_to_string::codecvt_ustring_to_string(std::string_view codeSet, int selector)
    : m_encoder(detail::isUtf8Name(codeSet) ? nullptr
                                            : std::make_shared<const detail::CodeSetEncoder>(codeSet)),
      m_strict(isStrict(selector)) {}

codecvt_ustring_to_string::codecvt_ustring_to_string(const codecvt_ustring_to_string&) = default;
codecvt_ustring_to_string& codecvt_ustring_to_string::operator=(const codecvt_ustring_to_string&) = default;
codecvt_ustring_to_string::~codecvt_ustring_to_string() = default;

std::string codecvt_ustring_to_string::operator()(ustring_view text) const {
    if (m_encoder) {
        return m_encoder->encode(text, m_strict);
    }
    std::string bytes;
    const std::size_t unpaired = detail::encodeUtf8(text, m_strict, bytes);
    if (m_strict && unpaired != detail::npos) {
        detail::throwUnencodable("UTF-8", unpaired);
    }
    return bytes;
}

} // namespace fl::i18n
