#pragma once

#include <foundation/core/Mutex.h>
#include <foundation/storage/provider/StorageIRI.h>
#include <storage/vfs/SaveProgress.h>

#include <atomic>
#include <cstdint>
#include <memory>

namespace storage::vfs {

/// Who is told of what providers do with their containers. Threads: any.
class ContainerWatch {
public:
    /// Replaces the callback; an empty one ends the watching. No call of the one before follows the return.
    void set(SaveProgressCallback callback);
    void tell(const SaveProgress& progress) const;
    bool isOn() const { return m_on; }

private:
    /// Lets streams that nobody watches go on without the mutex.
    std::atomic<bool> m_on = false;
    mutable foundation::core::Mutex m_mutex;
    SaveProgressCallback m_callback KX_GUARDED_BY(m_mutex);
};

} // namespace storage::vfs
