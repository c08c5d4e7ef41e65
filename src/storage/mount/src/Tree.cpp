#include <storage/mount/src/Tree.h>

#include <fl/i18n/utf8.h>

#include <algorithm>
#include <iterator>
#include <utility>
#include <vector>

namespace storage::mount {

using foundation::core::MutexLock;
using foundation::storage::provider::StorageIRI;

timespec currentTime() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return now;
}

StorageIRI Backing::at(std::string_view path) const {
    return root.withPath(path.empty() ? fl::i18n::ustring(u"/") : fl::i18n::fromUtf8(path));
}

Tree::Tree(std::shared_ptr<Backing> backing, std::uint32_t folderMode)
    : m_root(std::make_shared<Node>(1, true, std::move(backing))) {
    m_root->linked = true;
    m_root->stored = true;
    m_root->mode = folderMode;
}

NodePtr Tree::makeNode(bool folder, std::shared_ptr<Backing> backing) {
    return std::make_shared<Node>(++m_lastNumber, folder, std::move(backing));
}

NodePtr Tree::forget(Node& node, std::uint64_t lookups) {
    node.lookups -= std::min(lookups, node.lookups);
    if (node.lookups > 0)
        return nullptr;
    auto displaced = m_displaced.extract(&node);
    return displaced ? std::move(displaced.mapped()) : nullptr;
}

NodePtr Tree::child(const Node& folder, std::string_view name) {
    const auto found = folder.children.find(name);
    return found == folder.children.end() ? nullptr : found->second;
}

std::string Tree::pathOf(const Node& node) {
    std::vector<const Node*> chain;
    for (const auto* at = &node; at->parent && !at->viewed; at = at->parent)
        chain.push_back(at);
    if (chain.empty())
        return "/";
    std::string path;
    for (auto at = chain.rbegin(); at != chain.rend(); ++at) {
        path += '/';
        path += (*at)->name;
    }
    return path;
}

std::string Tree::pathOf(const Node& folder, std::string_view name) {
    auto path = pathOf(folder);
    if (path.back() != '/')
        path += '/';
    path += name;
    return path;
}

bool Tree::isSameOrAbove(const Node& folder, const Node& node) {
    for (const auto* at = &node; at; at = at->parent)
        if (at == &folder)
            return true;
    return false;
}

void Tree::attach(Node& folder, std::string name, const NodePtr& node) {
    node->parent = &folder;
    node->name = name;
    node->linked = true;
    m_displaced.erase(node.get());
    folder.subfolders += node->folder ? 1 : 0;
    folder.children.insert_or_assign(std::move(name), node);
}

void Tree::detach(Node& node) {
    auto& folder = *node.parent;
    if (node.lookups > 0)
        m_displaced.emplace(&node, node.shared_from_this());
    folder.subfolders -= node.folder ? 1 : 0;
    node.linked = false;
    node.parent = nullptr;
    folder.children.erase(std::string(node.name));
}

void Tree::add(Node& folder, std::string name, const NodePtr& node) {
    const auto now = currentTime();
    node->modified = node->changed = node->accessed = now;
    folder.modified = folder.changed = now;
    node->loaded = true;
    attach(folder, std::move(name), node);
    takePlace(node);
    markDirty(node);
}

void Tree::takePlace(const NodePtr& node) {
    const auto replaced = removals.find(pathOf(*node));
    if (replaced == removals.end() || replaced->second != node->folder)
        return;
    removals.erase(replaced);
    node->stored = true;
    if (node->folder)
        emptied.insert_or_assign(node->number, node);
}

void Tree::remove(const NodePtr& node) {
    dropView(*node);
    auto& folder = *node->parent;
    if (std::exchange(node->stored, false))
        removals.insert_or_assign(pathOf(*node), node->folder);
    dirty.erase(node->number);
    emptied.erase(node->number);
    node->dirty = false;
    detach(*node);
    folder.modified = folder.changed = node->changed = currentTime();
    noteEmptied(folder);
}

void Tree::moveUnstored(const NodePtr& node, Node& folder, const std::string& name) {
    if (const auto replaced = child(folder, name))
        remove(replaced);
    dropView(*node);
    if (std::exchange(node->stored, false))
        removals.insert_or_assign(pathOf(*node), node->folder);
    auto& before = *node->parent;
    detach(*node);
    attach(folder, name, node);
    before.modified = before.changed = folder.modified = folder.changed = node->changed = currentTime();
    takePlace(node);
    markDirty(node);
    noteEmptied(before);
}

void Tree::moveStored(const NodePtr& node, Node& folder, const std::string& name) {
    if (const auto replaced = child(folder, name)) {
        replaced->stored = false;
        remove(replaced);
    }
    dropView(*node);
    auto& before = *node->parent;
    detach(*node);
    attach(folder, name, node);
    before.modified = before.changed = folder.modified = folder.changed = node->changed = currentTime();
    noteEmptied(before);
}

void Tree::dropView(Node& file) {
    const auto view = std::exchange(file.view, nullptr);
    if (!view)
        return;
    view->viewed = nullptr;
    keepWhatTheKernelKnows(view);
    if (view->linked)
        detach(*view);
}

/// The kernel may forget a folder before what stands in it.
void Tree::keepWhatTheKernelKnows(const NodePtr& node) {
    if (node->lookups > 0)
        m_displaced.emplace(node.get(), node);
    for (const auto& [name, below] : node->children)
        keepWhatTheKernelKnows(below);
}

void Tree::markDirty(const NodePtr& node) {
    node->dirty = true;
    dirty.insert_or_assign(node->number, node);
}

void Tree::noteEmptied(Node& folder) {
    if (folder.parent && folder.stored && folder.children.empty())
        if (const auto self = child(*folder.parent, folder.name))
            emptied.insert_or_assign(folder.number, self);
}

Tree::Removals Tree::takeRemovals(const std::string& path) {
    Removals taken;
    const auto below = path + "/";
    if (auto node = removals.extract(path))
        taken.insert(std::move(node));
    for (auto at = removals.lower_bound(below); at != removals.end() && at->first.starts_with(below);)
        taken.insert(removals.extract(at++));
    return taken;
}

} // namespace storage::mount
