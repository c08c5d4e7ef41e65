#pragma once

#include <foundation/storage/provider/StorageIRI.h>
#include <storage/vfs/Vfs.h>

#include <optional>
#include <string>

namespace storage::vfs {

/// Decides which names out of a container may be created below a local folder. An archive's maker chooses its
/// names, so they must not reach anything outside that folder.
class SafeTarget {
public:
    /// `from` must outlive the object. Places outside the local files accept every name.
    SafeTarget(const MountedContainer& from, const MountedContainer& to);

    /// Why the entry `source` must not become `destination`; nothing where it may. The parent of
    /// `destination` was accepted before and exists.
    std::optional<std::string> objection(const foundation::storage::provider::StorageIRI& source,
                                         const foundation::storage::provider::StorageIRI& destination) const;

    /// Why nothing must be put into `folder`, which was made below `top` some time ago: another program may
    /// have put a link in its place since. Precondition: `folder` is `top` or lies below it.
    std::optional<std::string>
    objectionToFolder(const foundation::storage::provider::StorageIRI& top,
                      const foundation::storage::provider::StorageIRI& folder) const;

private:
    const MountedContainer& m_from;
    const bool m_guarded;
};

} // namespace storage::vfs
