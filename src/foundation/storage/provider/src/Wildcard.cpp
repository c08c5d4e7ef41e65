#include "Wildcard.h"

#include "Utf16.h"

#include <foundation/storage/provider/Exception.h>

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

namespace foundation::storage::provider::detail {

namespace {

std::u32string charactersOf(fl::i18n::ustring_view text) {
    std::u32string characters;
    characters.reserve(text.size());
    for (std::size_t position = 0; position < text.size();) {
        characters += nextCharacter(text, position);
    }
    return characters;
}

} // namespace

Wildcard::Wildcard(fl::i18n::ustring_view pattern, const StorageIRI& location) {
    const std::u32string text = charactersOf(pattern);
    for (std::size_t at = 0; at < text.size();) {
        const char32_t character = text[at++];
        if (character == U'*') {
            m_tokens.push_back({TokenKind::AnyText, false, {}});
        } else if (character == U'?') {
            m_tokens.push_back({TokenKind::Set, true, {}});
        } else if (character != U'[') {
            m_tokens.push_back({TokenKind::Set, false, {{character, character}}});
        } else {
            Token set{TokenKind::Set, at < text.size() && text[at] == U'!', {}};
            at += set.negated ? 1 : 0;
            // The search starts behind the first member: a "]" there stands for itself.
            const auto end = at < text.size() ? text.find(U']', at + 1) : std::u32string::npos;
            if (end == std::u32string::npos) {
                throw Exception(ErrorCode::InvalidArgument, location,
                                "a set in the wildcard pattern has no end");
            }
            while (at < end) {
                const char32_t first = text[at++];
                char32_t last = first;
                if (at + 1 < end && text[at] == U'-') {
                    last = text[at + 1];
                    at += 2;
                }
                if (last < first) {
                    throw Exception(ErrorCode::InvalidArgument, location,
                                    "a range in the wildcard pattern ends before it begins");
                }
                set.ranges.push_back({first, last});
            }
            at = end + 1;
            m_tokens.push_back(std::move(set));
        }
    }
}

bool Wildcard::Token::accepts(char32_t character) const {
    const bool listed = std::any_of(ranges.begin(), ranges.end(), [character](const Range& range) {
        return range.first <= character && character <= range.last;
    });
    return listed != negated;
}

bool Wildcard::matches(fl::i18n::ustring_view name) const {
    // Going back to the last "*" alone is enough: an earlier one could only take text that it can take too.
    struct Retry {
        std::size_t token;
        std::size_t position;
    };
    std::optional<Retry> retry;
    std::size_t token = 0;
    std::size_t position = 0;
    while (position < name.size()) {
        if (token < m_tokens.size() && m_tokens[token].kind == TokenKind::AnyText) {
            retry = Retry{++token, position};
            continue;
        }
        if (token < m_tokens.size()) {
            std::size_t behind = position;
            if (m_tokens[token].accepts(nextCharacter(name, behind))) {
                position = behind;
                ++token;
                continue;
            }
        }
        if (!retry) {
            return false;
        }
        nextCharacter(name, retry->position);
        token = retry->token;
        position = retry->position;
    }
    return std::all_of(m_tokens.begin() + static_cast<std::ptrdiff_t>(token), m_tokens.end(),
                       [](const Token& rest) { return rest.kind == TokenKind::AnyText; });
}

} // namespace foundation::storage::provider::detail
