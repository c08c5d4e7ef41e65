#pragma once

#include <foundation/core/Mutex.h>
#include <storage/mount/src/Contents.h>
#include <storage/mount/src/Tree.h>
#include <storage/vfs/ChangeSession.h>

#include <atomic>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace storage::mount {

/// Brings the archive up to what the tree shows: first its provider, under a writable stream that is held
/// open, and then, by letting go of that, the archive itself.
///
/// Whatever fails on the way is tried again the next time; nothing that the provider took is taken back.
/// Threads: any; one change at a time. Locks: its own, then a file's, then the tree's.
class Changes {
public:
    /// `session` holds the archive's lock. All must outlive the object.
    Changes(Tree& tree, Contents& contents, vfs::ChangeSession& session);

    /// Whether the archive lacks something that the tree shows.
    bool areUnsaved() const;
    /// How many files and folders were made, changed, moved or removed since the archive was last saved.
    std::uint64_t count() const;

    /// Moves a node that the provider has. Returns false when the tree changed in between: look again.
    /// Errors: those of the provider; nothing has changed then.
    bool moveStored(const NodePtr& node, const NodePtr& folder, const std::string& name);

    /// Has the provider hold a file's newest bytes.
    void handOver(const NodePtr& file);

    /// Saves everything. Errors: those of the provider.
    void save();

    /// What the archive does not hold as the tree shows it.
    struct Unsaved {
        /// Files and folders that were made, changed or moved; what a folder holds may stand here, too.
        std::vector<NodePtr> nodes;
        /// Where the archive may have what was removed or moved away, itself or a folder above it.
        std::set<std::string, std::less<>> gone;
    };
    Unsaved unsaved();

private:
    using Mutex = foundation::core::Mutex;

    foundation::storage::provider::IProvider& hold() KX_REQUIRES(m_mutex);
    void apply() KX_REQUIRES(m_mutex);
    void applyRemovals(Tree::Removals removals) KX_REQUIRES(m_mutex);
    void applyAllRemovals() KX_REQUIRES(m_mutex);
    void store(const NodePtr& node) KX_REQUIRES(m_mutex);
    void storeFile(const NodePtr& file, const std::string& path, bool replaces) KX_REQUIRES(m_mutex);
    void storeAbove(const Node& node) KX_REQUIRES(m_mutex);
    void keepEmptied() KX_REQUIRES(m_mutex);
    void keepEmptied(const NodePtr& folder) KX_REQUIRES(m_mutex);

    Tree& m_tree;
    Contents& m_contents;
    vfs::ChangeSession& m_session;
    const std::shared_ptr<Backing> m_backing;

    mutable Mutex m_mutex;
    /// What the provider has and the archive has not.
    std::map<std::uint64_t, NodePtr> m_handedOver KX_GUARDED_BY(m_mutex);
    /// What the archive has and the provider has no more, under the paths at the time.
    std::set<std::string, std::less<>> m_gone KX_GUARDED_BY(m_mutex);
    // Asked without the mutex, which a save holds for long.
    std::atomic<bool> m_providerChanged = false;
    std::atomic<std::uint64_t> m_providerChanges = 0;
};

} // namespace storage::mount
