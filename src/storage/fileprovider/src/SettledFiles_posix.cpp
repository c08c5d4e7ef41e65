#include <storage/fileprovider/src/SettledFiles.h>

#include <storage/fileprovider/src/FileIdentity.h>

#include <cstddef>
#include <ctime>

namespace storage::fileprovider {

using foundation::core::MutexLock;

namespace {

// Times may be as coarse as 2 seconds.
constexpr time_t settlingSeconds = 3;
constexpr std::size_t maximalFiles = 64;

} // namespace

bool SettledFiles::contains(const std::string& path, const struct stat& status) const {
    const MutexLock lock(m_mutex);
    const auto place = m_files.find(path);
    return place != m_files.end() && isSameState(place->second, status) &&
           place->second.st_ctim.tv_sec == status.st_ctim.tv_sec &&
           place->second.st_ctim.tv_nsec == status.st_ctim.tv_nsec;
}

void SettledFiles::add(const std::string& path, const struct stat& status) {
    const MutexLock lock(m_mutex);
    if (m_files.size() >= maximalFiles && m_files.count(path) == 0) {
        m_files.clear();
    }
    m_files[path] = status;
}

bool SettledFiles::mayBeRemembered(const struct stat& status, const timespec& now) noexcept {
    return status.st_nlink == 1 && status.st_ctim.tv_sec + settlingSeconds <= now.tv_sec &&
           status.st_mtim.tv_sec + settlingSeconds <= now.tv_sec;
}

} // namespace storage::fileprovider
