#include "ScopedTimeZone.h"

#include <storage/zipprovider/src/DosTime.h>
#include <storage/zipprovider/src/LocalTime.h>

#include <boost/date_time/posix_time/posix_time.hpp>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <limits>
#include <stdexcept>

namespace {

using boost::gregorian::date;
using boost::posix_time::ptime;
using boost::posix_time::time_duration;
using kx::test::ScopedTimeZone;
using storage::zipprovider::toLocalDosTime;
using storage::zipprovider::toPtime;

/// Seconds, minutes, hours, day of month, month from 0, year.
using Fields = std::array<std::int64_t, 6>;

template <typename Tm>
Fields fieldsOf(const Tm& time) {
    return {static_cast<std::int64_t>(time.tm_sec),  static_cast<std::int64_t>(time.tm_min),
            static_cast<std::int64_t>(time.tm_hour), static_cast<std::int64_t>(time.tm_mday),
            static_cast<std::int64_t>(time.tm_mon),  static_cast<std::int64_t>(time.tm_year)};
}

const ptime epoch(date(1970, 1, 1));

TEST(DosTime, OfTheEpochIsTheLocalTimeOfThatInstantWithTheYearCountedFrom1900) {
    {
        const ScopedTimeZone zone("UTC0");
        EXPECT_EQ(fieldsOf(toLocalDosTime(epoch)), (Fields{0, 0, 0, 1, 0, 70}));
    }
    {
        const ScopedTimeZone zone("CET-1");
        EXPECT_EQ(fieldsOf(toLocalDosTime(epoch)), (Fields{0, 0, 1, 1, 0, 70}));
    }
    {
        const ScopedTimeZone zone("EST5");
        EXPECT_EQ(fieldsOf(toLocalDosTime(epoch)), (Fields{0, 0, 19, 31, 11, 69}));
    }
}

TEST(DosTime, FollowsTheSummerTimeOfTheZone) {
    const ScopedTimeZone zone("CET-1CEST,M3.5.0,M10.5.0/3");
    EXPECT_EQ(fieldsOf(toLocalDosTime(ptime(date(2021, 1, 15), time_duration(12, 30, 10)))),
              (Fields{10, 30, 13, 15, 0, 121}));
    EXPECT_EQ(fieldsOf(toLocalDosTime(ptime(date(2021, 7, 15), time_duration(12, 30, 10)))),
              (Fields{10, 30, 14, 15, 6, 121}));
    EXPECT_EQ(fieldsOf(toLocalDosTime(ptime(date(2021, 12, 31), time_duration(23, 59, 59)))),
              (Fields{59, 59, 0, 1, 0, 122}));
}

TEST(DosTime, CutsFractionsOfASecondOffTowardsTheEpoch) {
    const ScopedTimeZone zone("UTC0");
    using boost::posix_time::milliseconds;
    EXPECT_EQ(fieldsOf(toLocalDosTime(epoch + milliseconds(1999))), (Fields{1, 0, 0, 1, 0, 70}));
    EXPECT_EQ(fieldsOf(toLocalDosTime(epoch - milliseconds(999))), (Fields{0, 0, 0, 1, 0, 70}));
    EXPECT_EQ(fieldsOf(toLocalDosTime(epoch - milliseconds(1001))), (Fields{59, 59, 23, 31, 11, 69}));
}

TEST(DosTime, HoldsTimesBeyond2038) {
    const ScopedTimeZone zone("UTC0");
    EXPECT_EQ(fieldsOf(toLocalDosTime(ptime(date(2107, 12, 31), time_duration(23, 59, 58)))),
              (Fields{58, 59, 23, 31, 11, 207}));
}

tm_unz stored(int year, int month, int day, int hour, int minute, int second) {
    tm_unz time{};
    const auto set = [](auto& field, int value) {
        field = static_cast<std::remove_reference_t<decltype(field)>>(value);
    };
    set(time.tm_year, year);
    set(time.tm_mon, month);
    set(time.tm_mday, day);
    set(time.tm_hour, hour);
    set(time.tm_min, minute);
    set(time.tm_sec, second);
    return time;
}

TEST(DosTime, IsReadAsItStandsInAnyTimeZone) {
    const ptime expected(date(2021, 7, 15), time_duration(14, 30, 10));
    for (const char* name : {"UTC0", "CET-1CEST,M3.5.0,M10.5.0/3", "EST5"}) {
        const ScopedTimeZone zone(name);
        EXPECT_EQ(toPtime(stored(2021, 6, 15, 14, 30, 10)), expected);
    }
}

TEST(DosTime, ThatDoesNotExistIsACalendarError) {
    EXPECT_THROW(toPtime(stored(1980, -1, 0, 0, 0, 0)), std::out_of_range);
    EXPECT_THROW(toPtime(stored(2021, 1, 29, 0, 0, 0)), std::out_of_range);
    EXPECT_THROW(toPtime(stored(2021, 12, 1, 0, 0, 0)), std::out_of_range);
    EXPECT_THROW(toPtime(stored(2021, 0, 0, 0, 0, 0)), std::out_of_range);
    EXPECT_THROW(toPtime(stored(1399, 0, 1, 0, 0, 0)), std::out_of_range);
    EXPECT_THROW(toPtime(stored(10000, 0, 1, 0, 0, 0)), std::out_of_range);
}

TEST(LocalTime, OfAnInstantThatNoCalendarHoldsIsAnError) {
    EXPECT_THROW(storage::zipprovider::localTime(std::numeric_limits<std::int64_t>::max()),
                 std::runtime_error);
}

} // namespace
