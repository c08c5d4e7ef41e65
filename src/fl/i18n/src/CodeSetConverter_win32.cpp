#include "CodeSetConverter.h"
#include "utf8.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <stdexcept>
#include <utility>

namespace fl::i18n::detail {

namespace {

struct NamedCodePage {
    std::string_view name;
    UINT codePage;
};

constexpr std::array<NamedCodePage, 16> namedCodePages = {{
    {"ASCII", 20127},
    {"US-ASCII", 20127},
    {"ANSI_X3.4-1968", 20127},
    {"LATIN1", 28591},
    {"LATIN9", 28605},
    {"KOI8-R", 20866},
    {"KOI8-U", 21866},
    {"SHIFT_JIS", 932},
    {"SJIS", 932},
    {"EUC-JP", 20932},
    {"GB2312", 936},
    {"GBK", 936},
    {"GB18030", 54936},
    {"EUC-KR", 949},
    {"BIG5", 950},
    {"TIS-620", 874},
}};

constexpr UINT asciiPage = 20127;
constexpr UINT gb18030Page = 54936;
constexpr UINT latin1Page = 28591;
constexpr int longestCharacter = 4;

std::string upperCase(std::string_view name) {
    std::string upper(name);
    std::transform(upper.begin(), upper.end(), upper.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return upper;
}

/// The number behind one of the prefixes, 0 without one.
UINT numberBehind(std::string_view name, std::string_view prefix) {
    UINT number = 0;
    if (!name.starts_with(prefix)) {
        return 0;
    }
    name.remove_prefix(prefix.size());
    const auto end = std::from_chars(name.data(), name.data() + name.size(), number);
    return end.ec == std::errc() && end.ptr == name.data() + name.size() ? number : 0;
}

UINT codePageOf(std::string_view codeSet) {
    const std::string name = upperCase(codeSet);
    for (const auto& known : namedCodePages) {
        if (name == known.name) {
            return known.codePage;
        }
    }
    if (const UINT part = numberBehind(name, "ISO-8859-"); part >= 1 && part <= 16) {
        return latin1Page + part - 1;
    }
    for (const std::string_view prefix : {"IBM", "CP", "WINDOWS-"}) {
        if (const UINT page = numberBehind(name, prefix); page != 0) {
            return page;
        }
    }
    return 0;
}

UINT requireCodePage(std::string_view codeSet, const char* verb) {
    const UINT page = codePageOf(codeSet);
    CPINFO info{};
    if (page == 0 || page == CP_UTF8 || page == CP_UTF7 || ::GetCPInfo(page, &info) == 0) {
        throw std::invalid_argument(std::string("cannot convert ") + verb + " code set \"" +
                                    std::string(codeSet) + "\": the system does not know it");
    }
    return page;
}

/// The one character that the bytes are; empty when they are not one.
ustring decodeOne(UINT page, std::string_view bytes) {
    if (page == asciiPage && static_cast<unsigned char>(bytes.front()) > 0x7F) {
        return {};
    }
    std::array<wchar_t, 4> wide{};
    const int count = ::MultiByteToWideChar(page, MB_ERR_INVALID_CHARS, bytes.data(),
                                            static_cast<int>(bytes.size()), wide.data(), wide.size());
    const bool isOne = count == 1 || (count == 2 && isHighSurrogate(static_cast<char16_t>(wide[0])));
    return isOne ? ustring(wide.begin(), wide.begin() + count) : ustring();
}

/// The one character's bytes; empty when the code page has no such character.
std::string encodeOne(UINT page, ustring_view character) {
    if (page == asciiPage && character.front() > 0x7F) {
        return {};
    }
    const std::wstring wide(character.begin(), character.end());
    std::array<char, 8> bytes{};
    BOOL replaced = FALSE;
    const bool tellsReplacement = page != gb18030Page;
    const int count = ::WideCharToMultiByte(page, tellsReplacement ? WC_NO_BEST_FIT_CHARS : 0, wide.data(),
                                            static_cast<int>(wide.size()), bytes.data(), bytes.size(),
                                            nullptr, tellsReplacement ? &replaced : nullptr);
    return count > 0 && replaced == FALSE ? std::string(bytes.data(), static_cast<std::size_t>(count))
                                          : std::string();
}

} // namespace

struct CodeSetDecoder::Impl {
    std::string codeSet;
    UINT page;
};

CodeSetDecoder::CodeSetDecoder(std::string_view codeSet)
    : m_impl(std::make_unique<Impl>(Impl{std::string(codeSet), requireCodePage(codeSet, "from")})) {}
CodeSetDecoder::~CodeSetDecoder() = default;

ustring CodeSetDecoder::decode(std::string_view bytes, bool strict) const {
    ustring text;
    text.reserve(bytes.size());
    for (std::size_t position = 0; position < bytes.size();) {
        ustring character;
        std::size_t length = 1;
        for (; length <= longestCharacter && position + length <= bytes.size(); ++length) {
            character = decodeOne(m_impl->page, bytes.substr(position, length));
            if (!character.empty()) {
                break;
            }
        }
        if (!character.empty()) {
            text += character;
            position += length;
            continue;
        }
        if (strict) {
            throwUndecodable(m_impl->codeSet, position);
        }
        text += replacementCharacter;
        ++position;
    }
    return text;
}

struct CodeSetEncoder::Impl {
    std::string codeSet;
    UINT page;
};

CodeSetEncoder::CodeSetEncoder(std::string_view codeSet)
    : m_impl(std::make_unique<Impl>(Impl{std::string(codeSet), requireCodePage(codeSet, "to")})) {}
CodeSetEncoder::~CodeSetEncoder() = default;

std::string CodeSetEncoder::encode(ustring_view text, bool strict) const {
    std::string bytes;
    bytes.reserve(text.size());
    for (std::size_t position = 0; position < text.size();) {
        const bool isPair = isHighSurrogate(text[position]) && position + 1 < text.size() &&
                            isLowSurrogate(text[position + 1]);
        const std::size_t length = isPair ? 2 : 1;
        const bool isUnpaired =
            !isPair && (isHighSurrogate(text[position]) || isLowSurrogate(text[position]));
        const std::string character =
            isUnpaired ? std::string() : encodeOne(m_impl->page, text.substr(position, length));
        if (character.empty() && strict) {
            throwUnencodable(m_impl->codeSet, position);
        }
        bytes += character.empty() ? "?" : character;
        position += length;
    }
    return bytes;
}

} // namespace fl::i18n::detail
