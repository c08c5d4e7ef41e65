#include "LocalTime.h"

#include <stdexcept>
#include <string>

namespace storage::zipprovider {

namespace {

// The calendar repeats itself, weekdays included, after so many years.
constexpr int cycleYears = 400;
constexpr std::int64_t cycleSeconds = 146'097LL * 86'400;

} // namespace

std::tm localTime(std::int64_t secondsSinceEpoch) {
    // The C library knows no time before its epoch.
    const bool isEarly = secondsSinceEpoch < 0 && secondsSinceEpoch >= -cycleSeconds;
    const __time64_t time = isEarly ? secondsSinceEpoch + cycleSeconds : secondsSinceEpoch;
    std::tm local{};
    if (_localtime64_s(&local, &time) != 0) {
        throw std::runtime_error("cannot tell the local time of " + std::to_string(secondsSinceEpoch) +
                                 " s since the epoch: out of range");
    }
    local.tm_year -= isEarly ? cycleYears : 0;
    return local;
}

} // namespace storage::zipprovider
