#pragma once

#include <fl/filesystem/path.h>

#include <boost/date_time/posix_time/ptime.hpp>

#include <memory>

namespace storage::zipprovider {

/// The clocks of the plug-in in one place, so that a test can have an archive written byte for byte the same
/// again. Threads: any.
class TimeSource {
public:
    virtual ~TimeSource() = default;

    /// The current time, UTC. Errors: std::runtime_error "could not convert calendar time to UTC time".
    virtual boost::posix_time::ptime now() const;
    /// When the working file at `path` was last modified, UTC. Errors: FsysExceptionBase.
    virtual boost::posix_time::ptime lastModified(const fl::filesystem::path& path) const;

    /// The source in use: the system's clock unless a test has put another one in its place.
    static std::shared_ptr<const TimeSource> current();
    /// Replaces the source for the whole process; null brings the system's clock back.
    static void set(std::shared_ptr<const TimeSource> source);
};

} // namespace storage::zipprovider
