#include "utf8.h"

#include <fl/i18n/utf8.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace fl::i18n {

namespace {

using detail::npos;

struct Sequence {
    // 0 for what is not UTF-8.
    char32_t character;
    std::size_t length;
};

/// How a sequence begins: how many bytes follow, and between which bounds the first of those lies. The bounds
/// leave out overlong forms, surrogates and what is above U+10FFFF.
struct Lead {
    unsigned following;
    unsigned lowest;
    unsigned highest;
};

constexpr Lead leadOf(unsigned byte) {
    if (byte >= 0xC2 && byte <= 0xDF) {
        return {1, 0x80, 0xBF};
    }
    if (byte >= 0xE0 && byte <= 0xEF) {
        return {2, byte == 0xE0 ? 0xA0U : 0x80U, byte == 0xED ? 0x9FU : 0xBFU};
    }
    if (byte >= 0xF0 && byte <= 0xF4) {
        return {3, byte == 0xF0 ? 0x90U : 0x80U, byte == 0xF4 ? 0x8FU : 0xBFU};
    }
    return {0, 0, 0};
}

/// Precondition: the byte at `position` is not ASCII.
Sequence sequenceAt(std::string_view bytes, std::size_t position) {
    const unsigned first = static_cast<unsigned char>(bytes[position]);
    const Lead lead = leadOf(first);
    if (lead.following == 0) {
        return {0, 1};
    }
    char32_t character = first & (0x3FU >> lead.following);
    unsigned lowest = lead.lowest;
    unsigned highest = lead.highest;
    for (std::size_t i = 1; i <= lead.following; ++i) {
        const unsigned byte =
            position + i < bytes.size() ? static_cast<unsigned char>(bytes[position + i]) : 0U;
        if (byte < lowest || byte > highest) {
            return {0, i};
        }
        character = (character << 6) | (byte & 0x3FU);
        lowest = 0x80;
        highest = 0xBF;
    }
    return {character, lead.following + std::size_t{1}};
}

std::size_t asciiRun(std::string_view bytes, std::size_t position) {
    constexpr std::uint64_t highBits = 0x8080808080808080U;
    std::size_t end = position;
    for (std::uint64_t word = 0; end + sizeof word <= bytes.size(); end += sizeof word) {
        std::memcpy(&word, bytes.data() + end, sizeof word);
        if ((word & highBits) != 0) {
            break;
        }
    }
    while (end < bytes.size() && static_cast<unsigned char>(bytes[end]) < 0x80) {
        ++end;
    }
    return end - position;
}

char16_t* put(char32_t character, char16_t* out) {
    if (character < 0x10000) {
        *out++ = static_cast<char16_t>(character);
    } else {
        *out++ = static_cast<char16_t>(0xD7C0 + (character >> 10));
        *out++ = static_cast<char16_t>(0xDC00 + (character & 0x3FF));
    }
    return out;
}

char* put(char32_t character, char* out) {
    const auto byte = [](char32_t value) { return static_cast<char>(static_cast<unsigned char>(value)); };
    if (character < 0x80) {
        *out++ = byte(character);
        return out;
    }
    if (character < 0x800) {
        *out++ = byte(0xC0 | (character >> 6));
    } else {
        if (character < 0x10000) {
            *out++ = byte(0xE0 | (character >> 12));
        } else {
            *out++ = byte(0xF0 | (character >> 18));
            *out++ = byte(0x80 | ((character >> 12) & 0x3F));
        }
        *out++ = byte(0x80 | ((character >> 6) & 0x3F));
    }
    *out++ = byte(0x80 | (character & 0x3F));
    return out;
}

} // namespace

std::size_t detail::decodeUtf8(std::string_view bytes, bool strict, ustring& text) {
    // No sequence, replaced or not, gives more code units than it has bytes.
    text.resize(bytes.size());
    char16_t* out = text.data();
    std::size_t firstInvalid = npos;
    for (std::size_t position = 0; position < bytes.size();) {
        const std::size_t ascii = asciiRun(bytes, position);
        out = std::transform(bytes.data() + position, bytes.data() + position + ascii, out,
                             [](char c) { return static_cast<char16_t>(c); });
        position += ascii;
        if (position == bytes.size()) {
            break;
        }
        const Sequence sequence = sequenceAt(bytes, position);
        if (sequence.character == 0) {
            firstInvalid = std::min(firstInvalid, position);
            if (strict) {
                break;
            }
        }
        out = put(sequence.character != 0 ? sequence.character : char32_t{replacementCharacter}, out);
        position += sequence.length;
    }
    text.resize(static_cast<std::size_t>(out - text.data()));
    return firstInvalid;
}

std::size_t detail::encodeUtf8(ustring_view text, bool strict, std::string& bytes) {
    bytes.resize(text.size() * 3);
    char* out = bytes.data();
    std::size_t firstUnpaired = npos;
    for (std::size_t position = 0; position < text.size(); ++position) {
        const char16_t unit = text[position];
        char32_t character = unit;
        if (isHighSurrogate(unit) && position + 1 < text.size() && isLowSurrogate(text[position + 1])) {
            ++position;
            character = 0x10000 + ((unit & 0x3FFU) << 10) + (text[position] & 0x3FFU);
        } else if (isHighSurrogate(unit) || isLowSurrogate(unit)) {
            firstUnpaired = std::min(firstUnpaired, position);
            if (strict) {
                break;
            }
            character = replacementCharacter;
        }
        out = put(character, out);
    }
    bytes.resize(static_cast<std::size_t>(out - bytes.data()));
    return firstUnpaired;
}

std::string toUtf8(ustring_view text) {
    std::string bytes;
    detail::encodeUtf8(text, false, bytes);
    return bytes;
}

ustring fromUtf8(std::string_view bytes) {
    ustring text;
    detail::decodeUtf8(bytes, false, text);
    return text;
}

bool isUtf8(std::string_view bytes) noexcept {
    for (std::size_t position = 0; position < bytes.size();) {
        position += asciiRun(bytes, position);
        if (position < bytes.size()) {
            const Sequence sequence = sequenceAt(bytes, position);
            if (sequence.character == 0) {
                return false;
            }
            position += sequence.length;
        }
    }
    return true;
}

} // namespace fl::i18n
