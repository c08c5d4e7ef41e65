#include <foundation/core/checked.h>

#include <stdexcept>

namespace foundation::core::detail {

void throwOverflow(const char* verb, std::uint64_t a, const char* preposition, std::uint64_t b,
                   const char* cause) {
    throw std::overflow_error(std::string("cannot ") + verb + ' ' + std::to_string(a) + ' ' + preposition +
                              ' ' + std::to_string(b) + ": " + cause);
}

void throwOutOfRange(const std::string& value, const std::string& lowest, const std::string& highest) {
    throw std::overflow_error("cannot convert " + value + ": the type holds " + lowest + " to " + highest);
}

} // namespace foundation::core::detail
