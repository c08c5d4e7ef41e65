#include <storage/mount/MountOptions.h>

#include <fmt/format.h>

#include <charconv>
#include <cmath>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>

namespace storage::mount {

namespace {

constexpr double longestSeconds = 1e9;

[[noreturn]] void refuse(std::string_view option) {
    throw std::invalid_argument(
        fmt::format("the mount option \"{}\" is unknown or has no such value", option));
}

template <typename Number>
std::optional<Number> number(std::string_view text, int base) {
    Number value{};
    const auto end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value, base);
    if (text.empty() || error != std::errc() || stop != end)
        return std::nullopt;
    return value;
}

std::optional<std::chrono::milliseconds> seconds(std::string_view text) {
    double value = 0;
    const auto end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (text.empty() || error != std::errc() || stop != end || !(value >= 0) || value > longestSeconds)
        return std::nullopt;
    return std::chrono::milliseconds(std::llround(value * 1000));
}

std::optional<std::uint64_t> bytes(std::string_view text) {
    unsigned shift = 0;
    if (!text.empty()) {
        switch (text.back()) {
        case 'K':
            shift = 10;
            break;
        case 'M':
            shift = 20;
            break;
        case 'G':
            shift = 30;
            break;
        default:
            break;
        }
    }
    const auto value = number<std::uint64_t>(shift > 0 ? text.substr(0, text.size() - 1) : text, 10);
    if (!value || *value > std::numeric_limits<std::uint64_t>::max() >> shift)
        return std::nullopt;
    return *value << shift;
}

template <typename Target>
void take(Target& target, const std::optional<Target>& value, std::string_view option) {
    if (!value)
        refuse(option);
    target = *value;
}

void setOne(MountOptions& options, std::string_view option) {
    const auto equals = option.find('=');
    const auto name = option.substr(0, equals);
    const bool hasValue = equals != std::string_view::npos;
    const auto value = hasValue ? option.substr(equals + 1) : std::string_view();
    constexpr std::uint32_t allPermissions = 0777;
    if (!hasValue && name == "ro")
        options.readOnly = true;
    else if (!hasValue && name == "rw")
        options.readOnly = false;
    else if (!hasValue && name == "nested")
        options.nested = true;
    else if (!hasValue && name == "allow_other")
        options.allowOther = true;
    else if (name == "uid")
        take(options.uid, number<std::uint32_t>(value, 10), option);
    else if (name == "gid")
        take(options.gid, number<std::uint32_t>(value, 10), option);
    else if (name == "umask")
        take(options.umask, number<std::uint32_t>(value, 8), option);
    else if (name == "save_after")
        take(options.saveAfter, seconds(value), option);
    else if (name == "save_within")
        take(options.saveWithin, seconds(value), option);
    else if (name == "space")
        take(options.spaceLimit, bytes(value), option);
    else
        refuse(option);
    if (options.umask > allPermissions)
        refuse(option);
}

} // namespace

void setMountOptions(MountOptions& options, std::string_view list) {
    while (!list.empty()) {
        const auto end = list.find(',');
        if (const auto option = list.substr(0, end); !option.empty())
            setOne(options, option);
        list.remove_prefix(end == std::string_view::npos ? list.size() : end + 1);
    }
}

} // namespace storage::mount
