#include <storage/vfs/ContainerLock.h>

#include <storage/vfs/src/LocalFile.h>

#include <storage/fileprovider/FileLock.h>

#include <set>
#include <vector>

namespace storage::vfs {

using foundation::storage::provider::StorageIRI;
using storage::fileprovider::FileLock;

struct ContainerLock::Impl {
    std::set<StorageIRI> files;
    std::vector<FileLock> locks;
};

ContainerLock::ContainerLock() : m_impl(std::make_unique<Impl>()) {}

ContainerLock::ContainerLock(const std::vector<StorageIRI>& locations, const WaitingCallback& onWaiting)
    : ContainerLock() {
    for (const auto& location : locations)
        if (const auto& file = localFileUnder(location); file.getScheme() == "file")
            m_impl->files.insert(canonicalLocalFile(file));
    // The set's order is the one order in which everybody locks.
    for (const auto& file : m_impl->files)
        m_impl->locks.push_back(FileLock::acquire(file, onWaiting));
}

ContainerLock::~ContainerLock() = default;
ContainerLock::ContainerLock(ContainerLock&&) noexcept = default;
ContainerLock& ContainerLock::operator=(ContainerLock&&) noexcept = default;

bool ContainerLock::covers(const StorageIRI& location) const {
    const auto& file = localFileUnder(location);
    return file.getScheme() == "file" && m_impl->files.contains(canonicalLocalFile(file));
}

} // namespace storage::vfs
