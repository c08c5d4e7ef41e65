#pragma once

#include <foundation/storage/provider/StorageIRI.h>

#include <vector>

namespace foundation::storage::provider::detail {

/// A compiled wildcard pattern: `*` any text, `?` one character, `[a-c]` and `[!a-c]` one character in or
/// outside a set. A "]" that opens a set and a "-" at either end of one stand for themselves. A surrogate
/// pair is one character; letter case matters. Matching takes at most (pattern length * name length) steps.
class Wildcard {
public:
    /// Errors: Exception, InvalidArgument for `location`, when a set has no end or a range is upside down.
    Wildcard(fl::i18n::ustring_view pattern, const StorageIRI& location);

    /// Whether the whole name matches.
    bool matches(fl::i18n::ustring_view name) const;

private:
    struct Range {
        char32_t first;
        char32_t last;
    };

    enum class TokenKind { Set, AnyText };

    /// A literal is a set of one, `?` the negation of the empty set.
    struct Token {
        TokenKind kind;
        bool negated = false;
        std::vector<Range> ranges;

        bool accepts(char32_t character) const;
    };

    std::vector<Token> m_tokens;
};

} // namespace foundation::storage::provider::detail
