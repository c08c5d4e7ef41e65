#include "FilterParser.h"

#include <algorithm>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace cppmicroservices {

namespace {

// Parsing, matching and printing go down one call per level.
constexpr int maximumDepth = 200;

constexpr const char* blanks = " \t\n\v\f\r";

} // namespace

FilterExpression FilterParser::parse() {
    FilterExpression result = expression();
    skipBlanks();
    if (m_position != m_text.size())
        fail("unexpected text behind the end");
    return result;
}

FilterExpression FilterParser::expression() {
    if (++m_depth > maximumDepth)
        fail("nested too deeply");
    skipBlanks();
    expect("(");
    skipBlanks();
    FilterExpression result = accept("&")   ? composition(FilterExpression::Connective::All)
                              : accept("|") ? composition(FilterExpression::Connective::Any)
                              : accept("!") ? composition(FilterExpression::Connective::Not)
                                            : comparison();
    expect(")");
    --m_depth;
    return result;
}

FilterExpression FilterParser::composition(FilterExpression::Connective connective) {
    FilterExpression::Composition composition{connective, {}};
    do {
        composition.operands.push_back(expression());
        skipBlanks();
    } while (connective != FilterExpression::Connective::Not && peek() == '(');
    FilterExpression result;
    result.m_node = std::move(composition);
    return result;
}

FilterExpression FilterParser::comparison() {
    std::string property = name();
    const FilterExpression::Relation sign = relation();
    FilterExpression result;
    result.m_node = FilterExpression::Comparison{std::move(property), sign, value()};
    return result;
}

std::string FilterParser::name() {
    const std::size_t end = m_text.find_first_of("()<>=~", m_position);
    if (end == std::string::npos)
        fail("no relation behind the name");
    std::string result = m_text.substr(m_position, end - m_position);
    result.erase(result.find_last_not_of(blanks) + 1);
    if (result.empty())
        fail("no name");
    m_position = end;
    return result;
}

FilterExpression::Relation FilterParser::relation() {
    if (accept("="))
        return FilterExpression::Relation::Equal;
    if (accept("~="))
        return FilterExpression::Relation::Approximate;
    if (accept("<="))
        return FilterExpression::Relation::LessOrEqual;
    if (accept(">="))
        return FilterExpression::Relation::GreaterOrEqual;
    fail("expected =, ~=, <= or >=");
}

FilterExpression::Pattern FilterParser::value() {
    FilterExpression::Pattern parts(1);
    int open = 0;
    for (;; ++m_position) {
        char c = peek();
        if (c == ')' && open-- == 0)
            return parts;
        if (c == '(') {
            ++open;
        } else if (c == '*') {
            parts.emplace_back();
            continue;
        } else if (c == '\\') {
            ++m_position;
            c = peek();
        }
        parts.back() += c;
    }
}

void FilterParser::skipBlanks() {
    m_position = std::min(m_text.find_first_not_of(blanks, m_position), m_text.size());
}

char FilterParser::peek() const {
    if (m_position >= m_text.size())
        fail("unexpected end");
    return m_text[m_position];
}

bool FilterParser::accept(const char* text) {
    const std::string_view wanted(text);
    if (m_text.compare(m_position, wanted.size(), wanted) != 0)
        return false;
    m_position += wanted.size();
    return true;
}

void FilterParser::expect(const char* text) {
    if (!accept(text))
        fail(m_position >= m_text.size() ? "unexpected end" : std::string("expected ") + text);
}

void FilterParser::fail(const std::string& problem) const {
    throw std::invalid_argument("cannot read filter '" + m_text + "': " + problem + " at position " +
                                std::to_string(m_position));
}

} // namespace cppmicroservices
