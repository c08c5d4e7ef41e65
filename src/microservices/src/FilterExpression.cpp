#include "FilterExpression.h"

#include "FilterParser.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <list>
#include <string_view>
#include <type_traits>

namespace cppmicroservices {

namespace {

bool isBlank(char c) noexcept {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

char lowered(char c) noexcept {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

std::string withoutCaseAndBlanks(const std::string& text) {
    std::string result;
    for (const char c : text)
        if (!isBlank(c))
            result += lowered(c);
    return result;
}

bool fits(std::string_view text, const std::vector<std::string>& parts) {
    if (parts.size() == 1)
        return text == parts.front();
    if (!text.starts_with(parts.front()))
        return false;
    text.remove_prefix(parts.front().size());
    for (std::size_t i = 1; i + 1 < parts.size(); ++i) {
        const std::size_t at = text.find(parts[i]);
        if (at == std::string_view::npos)
            return false;
        text.remove_prefix(at + parts[i].size());
    }
    return text.ends_with(parts.back());
}

std::string escaped(const std::string& text) {
    std::string result;
    for (const char c : text) {
        if (c == '(' || c == ')' || c == '*' || c == '\\')
            result += '\\';
        result += c;
    }
    return result;
}

std::string joined(const std::vector<std::string>& parts, const std::string& separator) {
    std::string result = parts.front();
    for (std::size_t i = 1; i < parts.size(); ++i)
        result += separator + parts[i];
    return result;
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && isBlank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

AnyMap::const_iterator find(const AnyMap& properties, const std::string& name, bool matchCase) {
    const auto found = properties.find(name);
    const bool ignoresCase = properties.GetType() == AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS;
    if (matchCase)
        return found != properties.end() && found->first == name ? found : properties.end();
    if (found != properties.end() || ignoresCase)
        return found;
    return std::find_if(properties.begin(), properties.end(), [&](const AnyMap::value_type& entry) {
        return std::equal(entry.first.begin(), entry.first.end(), name.begin(), name.end(),
                          [](char left, char right) { return lowered(left) == lowered(right); });
    });
}

} // namespace

FilterExpression FilterExpression::parse(const std::string& text) {
    return FilterParser(text).parse();
}

bool FilterExpression::matches(const AnyMap& properties, bool matchCase) const {
    if (const auto* const comparison = std::get_if<Comparison>(&m_node)) {
        const auto found = find(properties, comparison->name, matchCase);
        return found != properties.end() && comparison->holdsFor(found->second);
    }
    const auto& [connective, operands] = std::get<Composition>(m_node);
    const auto operandMatches = [&](const FilterExpression& operand) {
        return operand.matches(properties, matchCase);
    };
    switch (connective) {
    case Connective::All:
        return std::all_of(operands.begin(), operands.end(), operandMatches);
    case Connective::Any:
        return std::any_of(operands.begin(), operands.end(), operandMatches);
    case Connective::Not:
        break;
    }
    return !operandMatches(operands.front());
}

std::string FilterExpression::toString() const {
    return std::visit([](const auto& node) { return "(" + node.toString() + ")"; }, m_node);
}

std::string FilterExpression::Composition::toString() const {
    std::string result(1, connective == Connective::All ? '&' : connective == Connective::Any ? '|' : '!');
    for (const FilterExpression& operand : operands)
        result += operand.toString();
    return result;
}

std::string FilterExpression::Comparison::toString() const {
    static constexpr const char* signs[] = {"=", "~=", "<=", ">="};
    std::vector<std::string> parts;
    std::transform(value.begin(), value.end(), std::back_inserter(parts), escaped);
    return name + signs[static_cast<std::size_t>(relation)] + joined(parts, "*");
}

bool FilterExpression::Comparison::isPresence() const {
    return relation == Relation::Equal && value.size() > 1 &&
           std::all_of(value.begin(), value.end(), [](const std::string& part) { return part.empty(); });
}

bool FilterExpression::Comparison::holdsForText(const std::string& actual) const {
    const std::string literal = joined(value, "*");
    switch (relation) {
    case Relation::Equal:
        return fits(actual, value);
    case Relation::Approximate:
        return withoutCaseAndBlanks(actual) == withoutCaseAndBlanks(literal);
    case Relation::LessOrEqual:
        return actual <= literal;
    case Relation::GreaterOrEqual:
        return actual >= literal;
    }
    return false;
}

template <typename Number>
bool FilterExpression::Comparison::holdsForNumber(Number actual) const {
    const std::string literal = joined(value, "*");
    if constexpr (std::is_same_v<Number, bool>) {
        return (relation == Relation::Equal || relation == Relation::Approximate) &&
               withoutCaseAndBlanks(literal) == (actual ? "true" : "false");
    } else {
        const std::string_view text = trimmed(literal);
        Number wanted{};
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), wanted);
        if (error != std::errc() || end != text.data() + text.size())
            return false;
        switch (relation) {
        case Relation::LessOrEqual:
            return actual <= wanted;
        case Relation::GreaterOrEqual:
            return actual >= wanted;
        case Relation::Equal:
        case Relation::Approximate:
            break;
        }
        return actual >= wanted && actual <= wanted;
    }
}

template <typename... Numbers>
bool FilterExpression::Comparison::holdsForOneOf(const Any& actual) const {
    const auto holds = [this](const auto* number) { return number && this->holdsForNumber(*number); };
    return (holds(any_cast<Numbers>(&actual)) || ...);
}

bool FilterExpression::Comparison::holdsFor(const Any& actual) const {
    if (actual.Empty())
        return false;
    if (isPresence())
        return true;
    const auto oneHolds = [this](const auto& list) {
        return std::any_of(list.begin(), list.end(),
                           [this](const std::string& text) { return holdsForText(text); });
    };
    if (const auto* const text = any_cast<std::string>(&actual))
        return holdsForText(*text);
    if (const auto* const literal = any_cast<const char*>(&actual))
        return holdsForText(*literal);
    if (const auto* const character = any_cast<char>(&actual))
        return holdsForText(std::string(1, *character));
    if (const auto* const texts = any_cast<std::vector<std::string>>(&actual))
        return oneHolds(*texts);
    if (const auto* const texts = any_cast<std::list<std::string>>(&actual))
        return oneHolds(*texts);
    if (const auto* const values = any_cast<std::vector<Any>>(&actual))
        return std::any_of(values->begin(), values->end(),
                           [this](const Any& element) { return holdsFor(element); });
    return holdsForOneOf<bool, short, int, long, long long, unsigned char, unsigned short, unsigned,
                         unsigned long, unsigned long long, float, double>(actual);
}

} // namespace cppmicroservices
