#pragma once

#include <fl/i18n/ustring.h>

#include <cstdint>
#include <string>
#include <string_view>

#include <boost/date_time/posix_time/ptime.hpp>

namespace apps::kxvfs {

/// Text (UTF-8) with everything that a terminal would act on written as an escape: control characters,
/// characters that turn the direction of writing, and the backslash where anything was escaped.
std::string escaped(std::string_view text);

/// "2024-05-31 14:07"; dashes for an unknown time.
std::string shownTime(const boost::posix_time::ptime& time);
/// "2024-05-31T14:07:22Z"; empty for an unknown time.
std::string isoTime(const boost::posix_time::ptime& time);

/// "1.4M"; plain bytes below 1024.
std::string humanSize(std::uint64_t bytes);

/// "1 entry", "7 entries".
std::string counted(std::uint64_t number, std::string_view one, std::string_view several);

/// Columns that a text takes on a terminal, counting one for each character.
std::size_t shownWidth(std::string_view text);

} // namespace apps::kxvfs
