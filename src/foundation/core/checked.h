#pragma once

#include <foundation/core/Export.h>

#include <concepts>
#include <cstdint>
#include <limits>
#include <string>
#include <type_traits>
#include <utility>

namespace foundation::core {

namespace detail {

[[noreturn]] KXFL_API void throwOverflow(const char* verb, std::uint64_t a, const char* preposition,
                                         std::uint64_t b, const char* cause);
[[noreturn]] KXFL_API void throwOutOfRange(const std::string& value, const std::string& lowest,
                                           const std::string& highest);

} // namespace detail

/// The integers with a value; characters and bools are none.
template <typename T>
concept CheckedInteger =
    std::integral<T> && !std::same_as<std::remove_cv_t<T>, bool> &&
    !std::same_as<std::remove_cv_t<T>, char> && !std::same_as<std::remove_cv_t<T>, wchar_t> &&
    !std::same_as<std::remove_cv_t<T>, char8_t> && !std::same_as<std::remove_cv_t<T>, char16_t> &&
    !std::same_as<std::remove_cv_t<T>, char32_t>;

/// Arithmetic on sizes and positions, which are unsigned 64-bit.
/// Errors: std::overflow_error, naming both operands, when the result is no unsigned 64-bit number.
constexpr std::uint64_t checkedAdd(std::uint64_t a, std::uint64_t b) {
    if (b > std::numeric_limits<std::uint64_t>::max() - a) {
        detail::throwOverflow("add", a, "and", b, "the sum does not fit in 64 bits");
    }
    return a + b;
}

/// `a` less `b`.
constexpr std::uint64_t checkedSub(std::uint64_t a, std::uint64_t b) {
    if (b > a) {
        detail::throwOverflow("take", b, "from", a, "the difference would be negative");
    }
    return a - b;
}

/// `a` times `b`.
constexpr std::uint64_t checkedMul(std::uint64_t a, std::uint64_t b) {
    if (b != 0 && a > std::numeric_limits<std::uint64_t>::max() / b) {
        detail::throwOverflow("multiply", a, "by", b, "the product does not fit in 64 bits");
    }
    return a * b;
}

/// `value` as a `To`, the same number.
/// Errors: std::overflow_error, naming the number and the range, when `To` does not have it.
template <CheckedInteger To, CheckedInteger From>
constexpr To checkedCast(From value) {
    if (!std::in_range<To>(value)) {
        detail::throwOutOfRange(std::to_string(value), std::to_string(std::numeric_limits<To>::min()),
                                std::to_string(std::numeric_limits<To>::max()));
    }
    return static_cast<To>(value);
}

} // namespace foundation::core
