#pragma once

#include <foundation/log/Export.h>
#include <foundation/log/basic_diagnostic_logger.h>
#include <foundation/log/severity.h>

#include <concepts>
#include <filesystem>
#include <new>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>

namespace foundation::log {

namespace detail {

KXFOUNDATION_LOG_API void put(std::ostream& out, std::u16string_view text);
KXFOUNDATION_LOG_API void put(std::ostream& out, const std::filesystem::path& path);

/// What is written of a value: wide text as UTF-8, paths without quotes, bools and scoped enumerations as
/// numbers, bytes as numbers, a null text as "(null)", all else as its operator<< writes it.
template <typename T>
void write(std::ostream& out, const T& value) {
    if constexpr (std::same_as<T, std::filesystem::path>) {
        put(out, value);
    } else if constexpr (std::convertible_to<const T&, std::u16string_view>) {
        put(out, std::u16string_view(value));
    } else if constexpr (std::same_as<T, signed char> || std::same_as<T, unsigned char>) {
        out << static_cast<int>(value);
    } else if constexpr (std::is_convertible_v<const T&, const char*> && std::is_pointer_v<T>) {
        out << (value != nullptr ? value : "(null)");
    } else if constexpr (requires { out << value; }) {
        out << value;
    } else {
        static_assert(std::is_enum_v<T>, "a logged value needs an operator<<");
        out << +static_cast<std::underlying_type_t<T>>(value);
    }
}

} // namespace detail

/// One record while it is put together; it is handed to the sinks when it goes. Made by the macros of
/// <foundation/log/log.h>, which do so only when the logger is enabled.
/// Logging never fails: what a sink throws is swallowed, and what there is no memory for is left out. What
/// streaming a value throws besides passes on.
class KXFOUNDATION_LOG_API Record {
public:
    Record(const basic_diagnostic_logger& logger, severity level);
    ~Record();

    Record(const Record&) = delete;
    Record& operator=(const Record&) = delete;

    template <typename T>
    Record& operator<<(const T& value) {
        try {
            detail::write<std::decay_t<const T&>>(m_text, value);
        } catch (const std::bad_alloc&) {
            // A record may lack something; what logs it goes on, also where it is a destructor.
        }
        return *this;
    }

private:
    detail::Channel& m_channel;
    severity m_level;
    std::ostringstream m_text;
};

namespace detail {

/// Makes an expression of type void of a streamed record, which is what the other branch of the macros'
/// conditional operator is.
struct Discard {
    void operator&(const Record&) const noexcept {}
};

} // namespace detail

} // namespace foundation::log
