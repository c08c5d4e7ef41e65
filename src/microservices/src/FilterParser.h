#pragma once

#include "FilterExpression.h"

#include <cstddef>
#include <string>

namespace cppmicroservices {

/// Reads one filter from a text.
class FilterParser {
public:
    /// `text` must outlive the parser.
    explicit FilterParser(const std::string& text) : m_text(text) {}

    /// The whole text as a filter. Throws std::invalid_argument if it is none; the text says where it went
    /// wrong.
    FilterExpression parse();

private:
    FilterExpression expression();
    FilterExpression composition(FilterExpression::Connective connective);
    FilterExpression comparison();
    std::string name();
    FilterExpression::Relation relation();
    FilterExpression::Pattern value();

    void skipBlanks();
    char peek() const;
    bool accept(const char* text);
    void expect(const char* text);
    [[noreturn]] void fail(const std::string& problem) const;

    const std::string& m_text;
    std::size_t m_position = 0;
    int m_depth = 0;
};

} // namespace cppmicroservices
