#pragma once

#include <foundation/core/Mutex.h>
#include <storage/mount/MountOptions.h>
#include <storage/mount/src/Tree.h>
#include <storage/vfs/Vfs.h>

#include <chrono>
#include <functional>
#include <string>

namespace storage::mount {

/// Brings folders from their provider into the tree, when they are first looked into.
class FolderLoader {
public:
    /// Has the provider hold the newest bytes of a file, so that its inside can be shown.
    using BeforeLookingInside = std::function<void(const NodePtr& file)>;

    FolderLoader(Tree& tree, vfs::Vfs& vfs, const MountOptions& options,
                 BeforeLookingInside beforeLookingInside);

    /// Returns when the folder's entries are in the tree. Errors: those of the provider. Threads: any; a
    /// folder that another thread is loading is waited for.
    void load(const NodePtr& folder);

    /// Loads folders from the root downwards until all are loaded or the time is over, so that the first look
    /// at them is as quick as later ones. Errors: as load, of the root.
    void loadAhead(std::chrono::steady_clock::time_point deadline);
    /// Adds the folders that show files' insides, for those that have none. `tree` is the loader's.
    void addViews(Tree& tree, Node& folder) const KX_REQUIRES(tree.mutex);

private:
    struct Found;

    void openView(Node& view);
    void fill(Node& folder, std::vector<Found>& entries) KX_REQUIRES(m_tree.mutex);

    Tree& m_tree;
    vfs::Vfs& m_vfs;
    const MountOptions& m_options;
    const BeforeLookingInside m_beforeLookingInside;
    /// With the tree's mutex: a folder has been loaded, or could not be.
    foundation::core::ConditionVariable m_loaded;
};

/// Whether a file of this name is shown as a folder, too.
bool mayBeArchive(std::string_view name);

} // namespace storage::mount
