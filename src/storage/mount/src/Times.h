#pragma once

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <ctime>

namespace storage::mount {

/// Seconds and nanoseconds since 1970, of a time in UTC; 1970 for an unknown one.
inline timespec toTimespec(const boost::posix_time::ptime& time) {
    if (time.is_special())
        return {};
    const auto since = time - boost::posix_time::ptime(boost::gregorian::date(1970, 1, 1));
    const auto micros = since.total_microseconds();
    timespec result{};
    result.tv_sec = static_cast<time_t>(micros / 1'000'000);
    result.tv_nsec = static_cast<long>(micros % 1'000'000 * 1000);
    if (result.tv_nsec < 0) {
        --result.tv_sec;
        result.tv_nsec += 1'000'000'000;
    }
    return result;
}

} // namespace storage::mount
