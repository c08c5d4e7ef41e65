#include <storage/vfs/src/ContainerWatch.h>

namespace storage::vfs {

using foundation::core::MutexLock;

void ContainerWatch::set(SaveProgressCallback callback) {
    const MutexLock lock(m_mutex);
    m_callback = std::move(callback);
    m_on = static_cast<bool>(m_callback);
}

void ContainerWatch::tell(const SaveProgress& progress) const {
    const MutexLock lock(m_mutex);
    if (m_callback)
        m_callback(progress);
}

} // namespace storage::vfs
