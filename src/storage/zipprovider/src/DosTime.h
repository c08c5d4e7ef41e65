#pragma once

#include <boost/date_time/posix_time/ptime.hpp>
#include <minizip/unzip.h>
#include <minizip/zip.h>

#include <cstdint>

namespace storage::zipprovider {

/// The fields of a header's date (upper 16 bits) and time, taken apart as minizip does.
tm_unz dosTimeFields(std::uint32_t dateAndTime);
/// The date and time of a central-directory header as they stand; no time zone is applied.
/// Errors: Boost's calendar errors (std::out_of_range) for a date that does not exist, such as DOS date 0.
boost::posix_time::ptime toPtime(const tm_unz& dosTime);

/// The broken-down local time that is written for an entry last modified at `time` (UTC), with seconds cut
/// off towards the epoch. Errors: std::runtime_error when the local time cannot be told.
tm_zip toLocalDosTime(const boost::posix_time::ptime& time);

/// The date (upper 16 bits) and time that minizip makes of these fields.
std::uint32_t dosDateAndTime(const tm_zip& fields);

} // namespace storage::zipprovider
