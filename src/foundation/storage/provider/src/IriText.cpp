#include "IriText.h"

#include "Utf16.h"

#include <fl/i18n/utf8.h>

#include <algorithm>
#include <string>
#include <string_view>

namespace foundation::storage::provider::detail {

namespace {

using fl::i18n::ustring;
using fl::i18n::ustring_view;

constexpr char16_t replacementCharacter = 0xFFFD;

constexpr bool isLetter(char16_t unit) {
    return (unit >= u'a' && unit <= u'z') || (unit >= u'A' && unit <= u'Z');
}

constexpr bool isDigit(char16_t unit) {
    return unit >= u'0' && unit <= u'9';
}

constexpr bool isSchemeCharacter(char16_t unit) {
    return isLetter(unit) || isDigit(unit) || unit == u'+' || unit == u'-' || unit == u'.';
}

/// RFC 3987's "ipchar" without "%" and "!", whose encoding depends on the place. U+0080 to U+009F are control
/// characters and outside of its "ucschar".
bool standsAsItIs(char16_t unit) {
    constexpr ustring_view punctuation = u"-._~$&'()*+,;=:@";
    return isLetter(unit) || isDigit(unit) || unit >= 0xA0 || punctuation.find(unit) != ustring_view::npos;
}

/// Precondition: `unit` is below U+0800.
void appendPercent(ustring& out, char16_t unit) {
    constexpr ustring_view digits = u"0123456789ABCDEF";
    const auto appendByte = [&out, digits](unsigned byte) {
        out += u'%';
        out += digits[byte >> 4];
        out += digits[byte & 0xF];
    };
    if (unit < 0x80) {
        appendByte(unit);
    } else {
        appendByte(0xC0U | static_cast<unsigned>(unit >> 6));
        appendByte(0x80U | (unit & 0x3FU));
    }
}

std::optional<unsigned> hexValue(char16_t unit) {
    if (isDigit(unit)) {
        return static_cast<unsigned>(unit - u'0');
    }
    if (unit >= u'a' && unit <= u'f') {
        return static_cast<unsigned>(unit - u'a' + 10);
    }
    if (unit >= u'A' && unit <= u'F') {
        return static_cast<unsigned>(unit - u'A' + 10);
    }
    return std::nullopt;
}

} // namespace

void appendEncodedPath(ustring& out, ustring_view path, BangEncoding bangs) {
    for (std::size_t at = 0; at < path.size(); ++at) {
        const char16_t unit = path[at];
        if (unit == u'!') {
            const bool last = at + 1 == path.size();
            const bool encode = bangs == BangEncoding::All ||
                                (last ? bangs == BangEncoding::BeforeSlashAndAtEnd : path[at + 1] == u'/');
            encode ? appendPercent(out, unit) : out.push_back(unit);
        } else if (unit == u'/' || standsAsItIs(unit)) {
            out += unit;
        } else {
            appendPercent(out, unit);
        }
    }
}

void appendEncodedAuthority(ustring& out, ustring_view authority) {
    for (const char16_t unit : authority) {
        const bool addressLiteral = unit == u'[' || unit == u']';
        standsAsItIs(unit) || addressLiteral ? out.push_back(unit) : appendPercent(out, unit);
    }
}

std::optional<ustring> decodePercent(ustring_view text) {
    ustring decoded;
    decoded.reserve(text.size());
    std::string bytes;
    for (std::size_t at = 0; at < text.size();) {
        if (text[at] != u'%') {
            decoded += text[at++];
            continue;
        }
        // A character may be spread over several "%XX": all of a run are decoded together.
        bytes.clear();
        for (; at < text.size() && text[at] == u'%'; at += 3) {
            const auto high = at + 2 < text.size() ? hexValue(text[at + 1]) : std::nullopt;
            const auto low = high ? hexValue(text[at + 2]) : std::nullopt;
            if (!low) {
                return std::nullopt;
            }
            bytes += static_cast<char>(*high << 4 | *low);
        }
        decoded += fl::i18n::fromUtf8(bytes);
    }
    return decoded;
}

ustring replaceUnpairedSurrogates(ustring_view text) {
    ustring paired(text);
    std::size_t at = 0;
    for (const char16_t unit : text) {
        if ((unit & 0xF800) == 0xD800) {
            break;
        }
        ++at;
    }
    while (at < text.size()) {
        const std::size_t begin = at;
        if (isSurrogate(nextCharacter(text, at))) {
            paired[begin] = replacementCharacter;
        }
    }
    return paired;
}

std::size_t schemeLength(ustring_view text) {
    const auto end = std::find_if_not(text.begin(), text.end(), isSchemeCharacter);
    const bool found = end != text.begin() && end != text.end() && *end == u':' && isLetter(text.front());
    return found ? static_cast<std::size_t>(end - text.begin()) : 0;
}

bool isScheme(ustring_view text) {
    return !text.empty() && isLetter(text.front()) &&
           std::all_of(text.begin(), text.end(), isSchemeCharacter);
}

} // namespace foundation::storage::provider::detail
