#pragma once

#include <cstdint>
#include <ctime>

namespace storage::zipprovider {

/// The broken-down time in the process's local time zone of an instant given in seconds since the Unix epoch.
/// Errors: std::runtime_error when the system cannot tell it. Threads: any.
std::tm localTime(std::int64_t secondsSinceEpoch);

} // namespace storage::zipprovider
