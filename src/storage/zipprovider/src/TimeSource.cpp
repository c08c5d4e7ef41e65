#include "TimeSource.h"

#include <fl/filesystem/operations.h>
#include <foundation/core/Mutex.h>
#include <foundation/core/ThreadAnnotations.h>

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <utility>

namespace storage::zipprovider {

namespace {

struct CurrentSource {
    foundation::core::Mutex mutex;
    std::shared_ptr<const TimeSource> source KX_GUARDED_BY(mutex) = std::make_shared<TimeSource>();
};

CurrentSource& currentSource() {
    static CurrentSource source;
    return source;
}

} // namespace

boost::posix_time::ptime TimeSource::now() const {
    return boost::posix_time::microsec_clock::universal_time();
}

boost::posix_time::ptime TimeSource::lastModified(const fl::filesystem::path& path) const {
    return fl::filesystem::status(path).lastModified;
}

std::shared_ptr<const TimeSource> TimeSource::current() {
    auto& current = currentSource();
    const foundation::core::MutexLock lock(current.mutex);
    return current.source;
}

void TimeSource::set(std::shared_ptr<const TimeSource> source) {
    auto& current = currentSource();
    const foundation::core::MutexLock lock(current.mutex);
    current.source = source ? std::move(source) : std::make_shared<TimeSource>();
}

} // namespace storage::zipprovider
