#include <storage/mount/src/Changes.h>

#include <storage/mount/src/SystemFailure.h>

#include <foundation/storage/provider/Exception.h>

#include <cerrno>
#include <exception>
#include <utility>

namespace storage::mount {

using namespace foundation::storage::provider;
using foundation::core::MutexLock;

Changes::Changes(Tree& tree, Contents& contents, vfs::ChangeSession& session)
    : m_tree(tree), m_contents(contents), m_session(session), m_backing(tree.root()->backing) {}

bool Changes::areUnsaved() const {
    if (m_providerChanged)
        return true;
    const MutexLock lock(m_tree.mutex);
    return m_tree.hasChanges();
}

std::uint64_t Changes::count() const {
    const MutexLock lock(m_tree.mutex);
    return m_tree.removals.size() + m_tree.dirty.size() + m_tree.emptied.size() + m_providerChanges;
}

IProvider& Changes::hold() {
    auto& provider = *m_session.changing(m_backing->root);
    m_providerChanged = true;
    return provider;
}

void Changes::save() {
    const MutexLock lock(m_mutex);
    if (!areUnsaved())
        return;
    hold();
    apply();
    for (const auto& failure : m_session.flush())
        std::rethrow_exception(failure.error);
    m_providerChanged = false;
    m_handedOver.clear();
    m_gone.clear();
    m_providerChanges = 0;
}

void Changes::apply() {
    applyAllRemovals();
    std::vector<NodePtr> nodes;
    {
        const MutexLock lock(m_tree.mutex);
        for (const auto& [number, node] : m_tree.dirty)
            nodes.push_back(node);
    }
    for (const auto& node : nodes)
        store(node);
    keepEmptied();
}

void Changes::applyAllRemovals() {
    Tree::Removals removals;
    {
        const MutexLock lock(m_tree.mutex);
        removals = std::exchange(m_tree.removals, {});
    }
    applyRemovals(std::move(removals));
}

/// From the last to the first, so that what stands in a folder goes before it.
void Changes::applyRemovals(Tree::Removals removals) {
    if (removals.empty())
        return;
    auto& provider = hold();
    try {
        while (!removals.empty()) {
            const auto& [path, folder] = *removals.rbegin();
            try {
                if (folder)
                    provider.removeFolder(m_backing->at(path));
                else
                    provider.removeFile(m_backing->at(path));
            } catch (const Exception& failure) {
                if (failure.getErrorCode() != ErrorCode::NotFound)
                    throw;
            }
            m_gone.insert(path);
            removals.erase(std::prev(removals.end()));
            ++m_providerChanges;
        }
    } catch (...) {
        const MutexLock lock(m_tree.mutex);
        m_tree.removals.merge(removals);
        throw;
    }
}

void Changes::storeAbove(const Node& node) {
    for (;;) {
        NodePtr missing;
        {
            const MutexLock lock(m_tree.mutex);
            for (const auto* at = node.parent; at && at->parent; at = at->parent)
                if (!at->stored)
                    missing = Tree::child(*at->parent, at->name);
        }
        if (!missing)
            return;
        store(missing);
    }
}

void Changes::store(const NodePtr& node) {
    for (;;) {
        storeAbove(*node);
        std::string path;
        bool replaces = false;
        Tree::Removals inTheWay;
        {
            const MutexLock lock(m_tree.mutex);
            if (!node->linked || !node->dirty)
                return;
            if (node->parent->parent && !node->parent->stored)
                continue;
            path = Tree::pathOf(*node);
            inTheWay = m_tree.takeRemovals(path);
            if (inTheWay.empty()) {
                replaces = std::exchange(node->stored, true);
                node->dirty = false;
                node->beingStored = true;
                m_tree.dirty.erase(node->number);
            }
        }
        if (!inTheWay.empty()) {
            applyRemovals(std::move(inTheWay));
            continue;
        }
        std::exception_ptr failure;
        try {
            if (!node->folder)
                storeFile(node, path, replaces);
            else if (!replaces)
                hold().createFolder(m_backing->at(path));
        } catch (...) {
            failure = std::current_exception();
        }
        MutexLock lock(m_tree.mutex);
        node->beingStored = false;
        if (failure) {
            node->stored = replaces;
            if (node->linked)
                m_tree.markDirty(node);
            std::rethrow_exception(failure);
        }
        lock.unlock();
        m_handedOver.insert_or_assign(node->number, node);
        ++m_providerChanges;
        if (!node->folder)
            m_contents.release(*node);
        return;
    }
}

/// What is there already is replaced in one step, when the new contents are complete.
void Changes::storeFile(const NodePtr& file, const std::string& path, bool replaces) {
    auto& provider = hold();
    const auto location = m_backing->at(path);
    auto target = location;
    for (unsigned number = 0; replaces && (target == location || provider.exists(target)); ++number) {
        const auto name = ".kxvfs-" + std::to_string(number);
        target = m_backing->root.child(fl::i18n::ustring(name.begin(), name.end()));
    }
    const auto stream = provider.openStream(target, ByteStreamOpenOptions::overwrite());
    m_contents.copyTo(*file, *stream);
    stream->close();
    if (!replaces)
        return;
    try {
        provider.moveFile(target, location, MoveOption::ReplaceExisting);
    } catch (...) {
        const auto failure = std::current_exception();
        provider.removeFile(target);
        std::rethrow_exception(failure);
    }
}

void Changes::keepEmptied() {
    std::map<std::uint64_t, NodePtr> folders;
    {
        const MutexLock lock(m_tree.mutex);
        folders = std::exchange(m_tree.emptied, {});
    }
    for (auto at = folders.rbegin(); at != folders.rend(); ++at)
        keepEmptied(at->second);
}

/// Removed and made again, a folder is stored as an entry of its own.
void Changes::keepEmptied(const NodePtr& folder) {
    std::string path;
    {
        const MutexLock lock(m_tree.mutex);
        if (!folder->linked || !folder->stored || !folder->children.empty() || folder->hasHidden)
            return;
        path = Tree::pathOf(*folder);
    }
    auto& provider = hold();
    try {
        provider.removeFolder(m_backing->at(path));
    } catch (const Exception& failure) {
        // What stands in it is to be removed by the next save, which will come here again.
        if (failure.getErrorCode() == ErrorCode::FolderNotEmpty)
            return;
        throw;
    }
    try {
        provider.createFolder(m_backing->at(path));
    } catch (...) {
        const MutexLock lock(m_tree.mutex);
        folder->stored = false;
        if (folder->linked)
            m_tree.markDirty(folder);
        throw;
    }
}

bool Changes::moveStored(const NodePtr& node, const NodePtr& folder, const std::string& name) {
    const MutexLock lock(m_mutex);
    applyAllRemovals();
    store(folder);
    NodePtr replaced;
    std::string from;
    std::string to;
    {
        const MutexLock treeLock(m_tree.mutex);
        if (!node->linked || !node->stored || !folder->linked || !folder->stored)
            return false;
        replaced = Tree::child(*folder, name);
        from = Tree::pathOf(*node);
        to = Tree::pathOf(*folder, name);
    }
    auto& provider = hold();
    if (replaced && replaced->folder && replaced->stored)
        provider.removeFolder(m_backing->at(to));
    if (node->folder)
        provider.moveFolder(m_backing->at(from), m_backing->at(to), MoveOption::ReplaceExisting);
    else
        provider.moveFile(m_backing->at(from), m_backing->at(to), MoveOption::ReplaceExisting);
    ++m_providerChanges;
    m_gone.insert(from);
    m_handedOver.insert_or_assign(node->number, node);
    const MutexLock treeLock(m_tree.mutex);
    m_tree.moveStored(node, *folder, name);
    return true;
}

void Changes::handOver(const NodePtr& file) {
    const MutexLock lock(m_mutex);
    applyAllRemovals();
    store(file);
}

Changes::Unsaved Changes::unsaved() {
    const MutexLock lock(m_mutex);
    const MutexLock treeLock(m_tree.mutex);
    Unsaved result;
    result.gone = m_gone;
    for (const auto& [path, folder] : m_tree.removals)
        result.gone.insert(path);
    auto all = m_handedOver;
    all.insert(m_tree.dirty.begin(), m_tree.dirty.end());
    for (const auto& [number, node] : all)
        if (node->linked)
            result.nodes.push_back(node);
    return result;
}

} // namespace storage::mount
