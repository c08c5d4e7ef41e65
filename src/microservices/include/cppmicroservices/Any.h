#pragma once

#include <cppmicroservices/FrameworkConfig.h>

#include <any>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>

namespace cppmicroservices {

/// A value of any copyable type, or none. A value whose type is defined in a bundle's library must not
/// outlive that library: destroying it later runs code that is no longer loaded.
class US_Framework_EXPORT Any {
public:
    Any() = default;

    /// Holds a copy of `value`, an array or function as the pointer that it decays to.
    template <typename ValueType, typename Held = std::decay_t<ValueType>,
              typename = std::enable_if_t<!std::is_same_v<Held, Any>>>
    Any(ValueType&& value) : m_value(std::in_place_type<Held>, std::forward<ValueType>(value)) {}

    template <typename ValueType, typename Held = std::decay_t<ValueType>,
              typename = std::enable_if_t<!std::is_same_v<Held, Any>>>
    Any& operator=(ValueType&& value) {
        m_value.emplace<Held>(std::forward<ValueType>(value));
        return *this;
    }

    bool Empty() const noexcept { return !m_value.has_value(); }

    /// The held value's type; typeid(void) if there is none.
    const std::type_info& Type() const noexcept { return m_value.type(); }

    /// Text of the held value: strings as they are, numbers in decimal, "true" or "false", lists in brackets,
    /// maps in braces, the type's name for any other type. Throws std::logic_error if there is no value.
    std::string ToString() const;

    /// As ToString(), with an empty text if there is no value.
    std::string ToStringNoExcept() const;

    Any& Swap(Any& other) noexcept {
        m_value.swap(other.m_value);
        return *this;
    }

private:
    template <typename ValueType>
    friend ValueType* any_cast(Any* operand) noexcept;
    template <typename ValueType>
    friend const ValueType* any_cast(const Any* operand) noexcept;

    std::any m_value;
};

/// The value is not of the type asked for. The text names both types.
class US_Framework_EXPORT BadAnyCastException : public std::bad_cast {
public:
    explicit BadAnyCastException(std::string message);
    ~BadAnyCastException() override;

    const char* what() const noexcept override;

private:
    std::string m_message;
};

namespace detail {
[[noreturn]] US_Framework_EXPORT void ThrowBadAnyCastException(const std::string& operation,
                                                               const std::type_info& source,
                                                               const std::type_info& target);
} // namespace detail

/// The value inside `operand`, null if `operand` is null or holds another type.
template <typename ValueType>
ValueType* any_cast(Any* operand) noexcept {
    return operand ? std::any_cast<ValueType>(&operand->m_value) : nullptr;
}

template <typename ValueType>
const ValueType* any_cast(const Any* operand) noexcept {
    return operand ? std::any_cast<ValueType>(&operand->m_value) : nullptr;
}

/// The value inside `operand`, valid as long as `operand` holds it. Throws BadAnyCastException if `operand`
/// holds another type or nothing.
template <typename ValueType>
ValueType& ref_any_cast(Any& operand) {
    ValueType* const value = any_cast<ValueType>(&operand);
    if (!value)
        detail::ThrowBadAnyCastException("ref_any_cast", operand.Type(), typeid(ValueType));
    return *value;
}

template <typename ValueType>
const ValueType& ref_any_cast(const Any& operand) {
    const ValueType* const value = any_cast<ValueType>(&operand);
    if (!value)
        detail::ThrowBadAnyCastException("ref_any_cast", operand.Type(), typeid(ValueType));
    return *value;
}

/// A copy of the value inside `operand`. Throws as ref_any_cast.
template <typename ValueType>
ValueType any_cast(const Any& operand) {
    const ValueType* const value = any_cast<ValueType>(&operand);
    if (!value)
        detail::ThrowBadAnyCastException("any_cast", operand.Type(), typeid(ValueType));
    return *value;
}

} // namespace cppmicroservices
