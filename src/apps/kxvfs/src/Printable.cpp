#include <apps/kxvfs/src/Printable.h>

#include <fl/i18n/utf8.h>
#include <fmt/format.h>

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <algorithm>
#include <array>

namespace apps::kxvfs {

namespace {

bool turnsDirection(char16_t unit) {
    return unit == 0x061c || unit == 0x200e || unit == 0x200f || (unit >= 0x202a && unit <= 0x202e) ||
           (unit >= 0x2066 && unit <= 0x2069);
}

bool isControl(char16_t unit) {
    return unit < 0x20 || (unit >= 0x7f && unit < 0xa0);
}

void appendEscape(fl::i18n::ustring& text, char16_t unit) {
    std::string escape;
    switch (unit) {
    case u'\n':
        escape = "\\n";
        break;
    case u'\t':
        escape = "\\t";
        break;
    case u'\r':
        escape = "\\r";
        break;
    default:
        escape = unit < 0x100 ? fmt::format("\\x{:02x}", static_cast<unsigned>(unit))
                              : fmt::format("\\u{:04x}", static_cast<unsigned>(unit));
    }
    text.append(escape.begin(), escape.end());
}

} // namespace

std::string escaped(std::string_view text) {
    const auto wide = fl::i18n::fromUtf8(text);
    const auto acts = [](char16_t unit) { return isControl(unit) || turnsDirection(unit); };
    if (std::none_of(wide.begin(), wide.end(), acts))
        return std::string(text);
    fl::i18n::ustring safe;
    for (const auto unit : wide)
        if (acts(unit))
            appendEscape(safe, unit);
        else if (unit == u'\\')
            safe += u"\\\\";
        else
            safe += unit;
    return fl::i18n::toUtf8(safe);
}

std::string shownTime(const boost::posix_time::ptime& time) {
    if (time.is_special())
        return "---------- -----";
    const auto day = time.date().year_month_day();
    const auto clock = time.time_of_day();
    return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}", static_cast<int>(day.year),
                       static_cast<int>(day.month.as_number()), static_cast<int>(day.day.as_number()),
                       clock.hours(), clock.minutes());
}

std::string isoTime(const boost::posix_time::ptime& time) {
    if (time.is_special())
        return {};
    auto text = shownTime(time);
    text[text.find(' ')] = 'T';
    return fmt::format("{}:{:02}Z", text, time.time_of_day().seconds());
}

std::string humanSize(std::uint64_t bytes) {
    constexpr std::array units{'K', 'M', 'G', 'T', 'P', 'E'};
    if (bytes < 1024)
        return std::to_string(bytes);
    auto value = static_cast<double>(bytes) / 1024;
    std::size_t unit = 0;
    while (value >= 1023.5 && unit + 1 < units.size()) {
        value /= 1024;
        ++unit;
    }
    return value < 9.95 ? fmt::format("{:.1f}{}", value, units[unit])
                        : fmt::format("{:.0f}{}", value, units[unit]);
}

std::string counted(std::uint64_t number, std::string_view one, std::string_view several) {
    return fmt::format("{} {}", number, number == 1 ? one : several);
}

std::size_t shownWidth(std::string_view text) {
    return static_cast<std::size_t>(std::count_if(
        text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xc0U) != 0x80; }));
}

} // namespace apps::kxvfs
