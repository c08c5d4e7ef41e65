#include "LocalTime.h"

#include <stdexcept>
#include <string>

namespace storage::zipprovider {

std::tm localTime(std::int64_t secondsSinceEpoch) {
    const std::time_t time = secondsSinceEpoch;
    std::tm local{};
    if (localtime_r(&time, &local) == nullptr) {
        throw std::runtime_error("cannot tell the local time of " + std::to_string(secondsSinceEpoch) +
                                 " s since the epoch: out of range");
    }
    return local;
}

} // namespace storage::zipprovider
