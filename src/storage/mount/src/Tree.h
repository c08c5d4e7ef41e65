#pragma once

#include <foundation/core/Mutex.h>
#include <foundation/core/ThreadAnnotations.h>
#include <storage/mount/src/Backing.h>
#include <storage/mount/src/Node.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace storage::mount {

/// The present moment.
timespec currentTime();

/// The files and folders as they are shown, and in what the provider is behind them.
///
/// The tree is right at every moment; the provider is brought up to it by Changes. Names and attributes are
/// asked of the tree alone, so that they are quick whatever the provider is doing.
class Tree {
public:
    Tree(std::shared_ptr<Backing> backing, std::uint32_t folderMode);

    Tree(const Tree&) = delete;
    Tree& operator=(const Tree&) = delete;

    /// Guards all nodes. Held for a few lines; never while a provider or the disk is asked for anything.
    mutable foundation::core::Mutex mutex;

    const NodePtr& root() const { return m_root; }
    NodePtr makeNode(bool folder, std::shared_ptr<Backing> backing) KX_REQUIRES(mutex);

    /// The kernel was told of the node once more, or has forgotten it so often.
    void noteLookup(const NodePtr& node) KX_REQUIRES(mutex) { ++node->lookups; }
    /// Returns the node when nothing else may keep it alive, to be dropped without the mutex.
    NodePtr forget(Node& node, std::uint64_t lookups) KX_REQUIRES(mutex);

    static NodePtr child(const Node& folder, std::string_view name);
    /// "/a/b" within the node's backing; "/" for its root. Precondition: it is linked.
    static std::string pathOf(const Node& node);
    static std::string pathOf(const Node& folder, std::string_view name);
    /// Whether `folder` is `node` or stands above it.
    static bool isSameOrAbove(const Node& folder, const Node& node);

    /// Puts a node that was read from a provider into its folder.
    void attach(Node& folder, std::string name, const NodePtr& node) KX_REQUIRES(mutex);

    /// Puts a node that no provider has yet into its folder.
    void add(Node& folder, std::string name, const NodePtr& node) KX_REQUIRES(mutex);
    /// Takes a node away. What the provider has of it is noted for removal.
    void remove(const NodePtr& node) KX_REQUIRES(mutex);
    /// Moves a node that the provider has not, or whose contents it lacks anyway; a node of the new name is
    /// removed. Precondition: !node->stored || (!node->folder && node->dirty).
    void moveUnstored(const NodePtr& node, Node& folder, const std::string& name) KX_REQUIRES(mutex);
    /// Moves a node that the provider has moved already; what it replaced is gone from the provider.
    void moveStored(const NodePtr& node, Node& folder, const std::string& name) KX_REQUIRES(mutex);
    void markDirty(const NodePtr& node) KX_REQUIRES(mutex);
    /// Takes away the folder that shows a file's inside. Who has something of it open may go on.
    void dropView(Node& file) KX_REQUIRES(mutex);

    /// Entries that the provider has and the tree has no more: path to whether it is a folder.
    using Removals = std::map<std::string, bool>;
    Removals removals KX_GUARDED_BY(mutex);
    /// Nodes that are dirty, by number: folders stand before what was made in them.
    std::map<std::uint64_t, NodePtr> dirty KX_GUARDED_BY(mutex);
    /// Folders whose last entry went: the archive may know them from that entry's name alone.
    std::map<std::uint64_t, NodePtr> emptied KX_GUARDED_BY(mutex);

    /// Takes out the removals at and below a path.
    Removals takeRemovals(const std::string& path) KX_REQUIRES(mutex);
    bool hasChanges() const KX_REQUIRES(mutex) {
        return !removals.empty() || !dirty.empty() || !emptied.empty();
    }

private:
    void detach(Node& node) KX_REQUIRES(mutex);
    void keepWhatTheKernelKnows(const NodePtr& node) KX_REQUIRES(mutex);
    /// The node took the place of a removed one of its kind: what was to be removed is overwritten instead.
    void takePlace(const NodePtr& node) KX_REQUIRES(mutex);
    void noteEmptied(Node& folder) KX_REQUIRES(mutex);

    const NodePtr m_root;
    /// Nodes that have no place any more and that the kernel has not forgotten.
    std::unordered_map<const Node*, NodePtr> m_displaced KX_GUARDED_BY(mutex);
    std::uint64_t m_lastNumber KX_GUARDED_BY(mutex) = 1;
};

} // namespace storage::mount
