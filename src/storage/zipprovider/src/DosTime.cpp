#include "DosTime.h"

#include "LocalTime.h"

#include <boost/date_time/posix_time/conversion.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <cstdint>
#include <ctime>
#include <type_traits>

namespace storage::zipprovider {

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

} // namespace storage::zipprovider
