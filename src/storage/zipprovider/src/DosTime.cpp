#include "DosTime.h"

#include "LocalTime.h"

#include <boost/date_time/posix_time/conversion.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <ctime>
#include <type_traits>

namespace storage::zipprovider {

tm_unz dosTimeFields(std::uint32_t dateAndTime) {
    const auto field = [dateAndTime](unsigned shift, unsigned bits) {
        return (dateAndTime >> shift) & ((1U << bits) - 1);
    };
    tm_unz fields{};
    const auto set = [](auto& target, std::uint32_t value) {
        target = static_cast<std::remove_reference_t<decltype(target)>>(value);
    };
    set(fields.tm_mday, field(16, 5));
    set(fields.tm_mon, field(21, 4) - 1);
    set(fields.tm_year, field(25, 7) + 1980);
    set(fields.tm_hour, field(11, 5));
    set(fields.tm_min, field(5, 6));
    set(fields.tm_sec, field(0, 5) * 2);
    return fields;
}

boost::posix_time::ptime toPtime(const tm_unz& dosTime) {
    std::tm time{};
    time.tm_sec = static_cast<int>(dosTime.tm_sec);
    time.tm_min = static_cast<int>(dosTime.tm_min);
    time.tm_hour = static_cast<int>(dosTime.tm_hour);
    time.tm_mday = static_cast<int>(dosTime.tm_mday);
    time.tm_mon = static_cast<int>(dosTime.tm_mon);
    time.tm_year = static_cast<int>(dosTime.tm_year) - 1900;
    return boost::posix_time::ptime_from_tm(time);
}

tm_zip toLocalDosTime(const boost::posix_time::ptime& time) {
    const boost::posix_time::ptime epoch(boost::gregorian::date(1970, 1, 1));
    const std::int64_t seconds = (time - epoch).total_microseconds() / 1'000'000;
    const std::tm local = localTime(seconds);
    // minizip's fields are signed in some versions and unsigned in others.
    tm_zip fields{};
    const auto set = [](auto& field, int value) {
        field = static_cast<std::remove_reference_t<decltype(field)>>(value);
    };
    set(fields.tm_sec, local.tm_sec);
    set(fields.tm_min, local.tm_min);
    set(fields.tm_hour, local.tm_hour);
    set(fields.tm_mday, local.tm_mday);
    set(fields.tm_mon, local.tm_mon);
    set(fields.tm_year, local.tm_year);
    return fields;
}

std::uint32_t dosDateAndTime(const tm_zip& fields) {
    auto year = static_cast<std::uint32_t>(fields.tm_year);
    year -= year >= 1980 ? 1980 : year >= 80 ? 80 : 0;
    const auto date = static_cast<std::uint32_t>(fields.tm_mday) +
                      32 * (static_cast<std::uint32_t>(fields.tm_mon) + 1) + 512 * year;
    const auto time = static_cast<std::uint32_t>(fields.tm_sec) / 2 +
                      32 * static_cast<std::uint32_t>(fields.tm_min) +
                      2048 * static_cast<std::uint32_t>(fields.tm_hour);
    return date << 16 | time;
}

} // namespace storage::zipprovider
