#pragma once

#include <boost/date_time/posix_time/ptime.hpp>
#include <minizip/unzip.h>
#include <minizip/zip.h>

namespace storage::zipprovider {

/// The date and time of a central-directory header as they stand; no time zone is applied.
/// Errors: Boost's calendar errors (std::out_of_range) for a date that does not exist, such as DOS date 0.
boost::posix_time::ptime toPtime(const tm_unz& dosTime);

/// The broken-down local time that is written for an entry last modified at `time` (UTC), with seconds cut
/// off towards the epoch. Errors: std::runtime_error when the local time cannot be told.
tm_zip toLocalDosTime(const boost::posix_time::ptime& time);

} // namespace storage::zipprovider
