#include <storage/vfs/ContainerLock.h>

#include <storage/vfs/src/LocalFile.h>

#include <storage/fileprovider/FileLock.h>
#include <storage/fileprovider/FileNumber.h>

#include <compare>
#include <map>
#include <set>
#include <vector>

namespace storage::vfs {

using foundation::storage::provider::StorageIRI;
using storage::fileprovider::FileLock;
using storage::fileprovider::FileNumber;
using storage::fileprovider::numberOfLinkedFile;

namespace {

/// One for each file, and in an order that does not depend on the names under which it is asked for. A file
/// of several names is saved in place and keeps its number, one of a single name may be replaced and keeps
/// its name.
struct LockOrder {
    FileNumber number;
    StorageIRI onlyName;

    explicit LockOrder(const StorageIRI& file) {
        if (const auto linked = numberOfLinkedFile(file))
            number = *linked;
        else
            onlyName = file;
    }

    friend auto operator<=>(const LockOrder&, const LockOrder&) = default;
};

} // namespace

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
    std::map<LockOrder, StorageIRI> ordered;
    for (const auto& file : m_impl->files)
        ordered.emplace(LockOrder(file), file);
    for (const auto& entry : ordered)
        m_impl->locks.push_back(FileLock::acquire(entry.second, onWaiting));
}

ContainerLock::~ContainerLock() = default;
ContainerLock::ContainerLock(ContainerLock&&) noexcept = default;
ContainerLock& ContainerLock::operator=(ContainerLock&&) noexcept = default;

bool ContainerLock::covers(const StorageIRI& location) const {
    const auto& file = localFileUnder(location);
    return file.getScheme() == "file" && m_impl->files.contains(canonicalLocalFile(file));
}

} // namespace storage::vfs
