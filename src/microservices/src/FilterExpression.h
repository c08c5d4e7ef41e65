#pragma once

#include <cppmicroservices/AnyMap.h>

#include <string>
#include <variant>
#include <vector>

namespace cppmicroservices {

/// A parsed filter; see LDAPFilter for the notation and what matches.
class FilterExpression {
public:
    /// Throws std::invalid_argument if `text` is malformed.
    static FilterExpression parse(const std::string& text);

    bool matches(const AnyMap& properties, bool matchCase) const;
    std::string toString() const;

private:
    friend class FilterParser;

    enum class Relation { Equal, Approximate, LessOrEqual, GreaterOrEqual };
    enum class Connective { All, Any, Not };

    /// A text in which any text may stand between two parts; without such places it has one part.
    using Pattern = std::vector<std::string>;

    struct Comparison {
        std::string name;
        Relation relation;
        Pattern value;

        bool isPresence() const;
        bool holdsFor(const Any& actual) const;
        bool holdsForText(const std::string& actual) const;
        template <typename Number>
        bool holdsForNumber(Number actual) const;
        template <typename... Numbers>
        bool holdsForOneOf(const Any& actual) const;
        std::string toString() const;
    };
    struct Composition {
        Connective connective;
        std::vector<FilterExpression> operands;

        std::string toString() const;
    };

    std::variant<Comparison, Composition> m_node;
};

} // namespace cppmicroservices
