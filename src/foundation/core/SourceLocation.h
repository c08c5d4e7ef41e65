#pragma once

#include <cstdint>

namespace foundation::core {

/// A place in the source. As the default value of a parameter, `SourceLocation::current()` is the caller's
/// place. The texts are literals of the program: they live as long as the library that holds the place is
/// loaded.
class SourceLocation {
public:
    static constexpr SourceLocation current(const char* file = __builtin_FILE(),
                                            std::uint32_t line = __builtin_LINE(),
                                            const char* function = __builtin_FUNCTION()) noexcept {
        return {file, line, function};
    }

    constexpr SourceLocation(const char* file, std::uint32_t line, const char* function) noexcept
        : m_file(file), m_function(function), m_line(line) {}

    /// The file's path as the compiler was given it.
    constexpr const char* file() const noexcept { return m_file; }
    /// The line, counted from 1.
    constexpr std::uint32_t line() const noexcept { return m_line; }
    /// The function's name without its parameters.
    constexpr const char* function() const noexcept { return m_function; }

private:
    const char* m_file;
    const char* m_function;
    std::uint32_t m_line;
};

} // namespace foundation::core
