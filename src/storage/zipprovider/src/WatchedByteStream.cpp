#include "WatchedByteStream.h"

namespace storage::zipprovider {

using foundation::storage::provider::SeekOrigin;

namespace {

template <typename Call>
std::int64_t watched(std::exception_ptr& failure, bool counts, Call call) {
    try {
        return call();
    } catch (...) {
        if (counts && !failure) {
            failure = std::current_exception();
        }
        throw;
    }
}

} // namespace

std::int64_t WatchedByteStream::doRead(char* buffer, std::int64_t count) {
    return watched(m_failure, true, [&] { return m_target->read(buffer, count); });
}

std::int64_t WatchedByteStream::doWrite(const char* buffer, std::int64_t count) {
    return m_target->write(buffer, count);
}

std::int64_t WatchedByteStream::doSeek(std::int64_t offset, SeekOrigin origin) {
    const bool insideTheFile =
        offset == 0 || (origin == SeekOrigin::Begin && offset > 0 && offset <= m_knownSize);
    const auto position = watched(m_failure, insideTheFile, [&] { return m_target->seek(offset, origin); });
    if (origin == SeekOrigin::End && offset == 0) {
        m_knownSize = position;
    }
    return position;
}

} // namespace storage::zipprovider
