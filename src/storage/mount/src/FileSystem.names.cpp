#include <storage/mount/src/FileSystem.h>

#include <storage/mount/src/SystemFailure.h>

#include <fl/i18n/utf8.h>
#include <storage/vfs/StorableName.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

namespace storage::mount {

using foundation::core::MutexLock;

namespace {

constexpr std::size_t longestName = 255;
constexpr unsigned permissionBits = 07777;

constexpr unsigned noReplace = RENAME_NOREPLACE;
/// What is shorter than this fits into every format; looking at it is not worth the time.
constexpr std::size_t shortPath = 4096;

void checkStorable(const Backing& backing, const std::string& path, bool isFolder) {
    if (path.size() > shortPath && vfs::unstorable(backing.at(path), isFolder))
        failWith(ENAMETOOLONG);
}

} // namespace

FileSystem::FileSystem(Parts parts, const MountOptions& options)
    : m_parts(std::move(parts)), m_tree(m_parts.tree), m_options(options) {}

void FileSystem::checkName(const Node& folder, std::string_view name, bool isFolder) {
    if (name.size() > longestName)
        failWith(ENAMETOOLONG);
    if (!fl::i18n::isUtf8(name))
        failWith(EILSEQ);
    if (!folder.linked)
        failWith(ENOENT);
    checkStorable(*folder.backing, Tree::pathOf(folder, name), isFolder);
}

/// What no provider has yet is not looked at by the provider that moves.
void FileSystem::checkNamesBelow(const Node& node, const Node& newFolder, std::string_view newName) {
    const auto from = Tree::pathOf(node).size();
    const auto path = Tree::pathOf(newFolder, newName);
    if (path.size() <= from)
        return;
    const auto check = [&](const auto& self, const Node& folder, const std::string& at) -> void {
        for (const auto& [name, below] : folder.children) {
            const auto place = at + "/" + name;
            checkStorable(*newFolder.backing, place, below->folder);
            self(self, *below, place);
        }
    };
    check(check, node, path);
}

void FileSystem::checkChangeable(const Node& node) const {
    if (!node.backing->writable)
        failWith(EROFS);
    // Looked at with the first change after a save: from then on the save tells.
    if (!m_parts.changes.areUnsaved() && !m_parts.isWritable())
        failWith(EROFS);
}

void FileSystem::noteChange() {
    m_parts.saver->changed();
}

void FileSystem::forget(Node& node, std::uint64_t lookups) {
    NodePtr last;
    const MutexLock lock(m_tree.mutex);
    last = m_tree.forget(node, lookups);
}

NodePtr FileSystem::find(const NodePtr& folder, std::string_view name) {
    if (!folder->folder)
        failWith(ENOTDIR);
    m_parts.loader.load(folder);
    const MutexLock lock(m_tree.mutex);
    if (auto node = Tree::child(*folder, name))
        return node;
    m_parts.loader.addViews(m_tree, *folder);
    return Tree::child(*folder, name);
}

std::optional<FileSystem::Entry> FileSystem::lookUp(const NodePtr& folder, std::string_view name) {
    if (name.size() > longestName)
        failWith(ENAMETOOLONG);
    auto node = find(folder, name);
    if (!node)
        return std::nullopt;
    const MutexLock lock(m_tree.mutex);
    m_tree.noteLookup(node);
    return Entry{node, statusLocked(*node)};
}

FileSystem::Entry FileSystem::makeFolder(const NodePtr& folder, std::string_view name, std::uint32_t mode) {
    checkChangeable(*folder);
    m_parts.loader.load(folder);
    Entry made;
    {
        const MutexLock lock(m_tree.mutex);
        checkName(*folder, name, true);
        if (Tree::child(*folder, name))
            failWith(EEXIST);
        made.node = m_tree.makeNode(true, folder->backing);
        made.node->mode = mode & permissionBits;
        m_tree.add(*folder, std::string(name), made.node);
        m_tree.noteLookup(made.node);
        made.status = statusLocked(*made.node);
    }
    noteChange();
    return made;
}

FileSystem::Entry FileSystem::makeFile(const NodePtr& folder, std::string_view name, std::uint32_t mode,
                                       OpenFile* opened) {
    checkChangeable(*folder);
    m_parts.loader.load(folder);
    Entry made;
    {
        const MutexLock lock(m_tree.mutex);
        made.node = m_tree.makeNode(false, folder->backing);
    }
    m_parts.contents.startEmpty(*made.node);
    {
        const MutexLock lock(m_tree.mutex);
        checkName(*folder, name, false);
        if (Tree::child(*folder, name))
            failWith(EEXIST);
        made.node->mode = mode & permissionBits;
        m_tree.add(*folder, std::string(name), made.node);
        m_tree.noteLookup(made.node);
        made.status = statusLocked(*made.node);
        if (opened) {
            ++made.node->openers;
            ++made.node->writers;
            opened->node = made.node;
            opened->writes = opened->changed = true;
            opened->knownFailures = m_parts.saver->failures();
        }
    }
    noteChange();
    return made;
}

/// A program that has the file open goes on reading it after it is gone.
void FileSystem::keepReadable(const NodePtr& file) {
    {
        const MutexLock lock(m_tree.mutex);
        if (file->folder || file->openers == 0)
            return;
    }
    m_parts.contents.keepReadable(*file);
}

void FileSystem::removeFile(const NodePtr& folder, std::string_view name) {
    checkChangeable(*folder);
    const auto file = find(folder, name);
    if (!file)
        failWith(ENOENT);
    if (file->folder)
        failWith(EISDIR);
    keepReadable(file);
    {
        const MutexLock lock(m_tree.mutex);
        if (!file->linked)
            failWith(ENOENT);
        m_tree.remove(file);
    }
    m_parts.contents.release(*file);
    noteChange();
}

void FileSystem::removeFolder(const NodePtr& folder, std::string_view name) {
    checkChangeable(*folder);
    const auto removed = find(folder, name);
    if (!removed)
        failWith(ENOENT);
    if (!removed->folder)
        failWith(ENOTDIR);
    checkChangeable(*removed);
    m_parts.loader.load(removed);
    {
        const MutexLock lock(m_tree.mutex);
        if (!removed->linked)
            failWith(ENOENT);
        if (!removed->children.empty() || removed->hasHidden)
            failWith(ENOTEMPTY);
        m_tree.remove(removed);
    }
    noteChange();
}

void FileSystem::checkReplaceable(const NodePtr& node, const NodePtr& replaced) {
    if (node->folder && !replaced->folder)
        failWith(ENOTDIR);
    if (!node->folder && replaced->folder)
        failWith(EISDIR);
    checkChangeable(*replaced);
    if (replaced->folder)
        m_parts.loader.load(replaced);
    else
        keepReadable(replaced);
    const MutexLock lock(m_tree.mutex);
    if (replaced->folder && (!replaced->children.empty() || replaced->hasHidden))
        failWith(ENOTEMPTY);
}

void FileSystem::rename(const NodePtr& folder, std::string_view name, const NodePtr& newFolder,
                        std::string_view newName, unsigned flags) {
    if ((flags & ~noReplace) != 0)
        failWith(EINVAL);
    checkChangeable(*folder);
    checkChangeable(*newFolder);
    const std::string target(newName);
    for (;;) {
        const auto node = find(folder, name);
        if (!node)
            failWith(ENOENT);
        checkChangeable(*node);
        const auto replaced = find(newFolder, newName);
        if (replaced && (flags & noReplace) != 0)
            failWith(EEXIST);
        if (replaced == node)
            return;
        {
            const MutexLock lock(m_tree.mutex);
            checkName(*newFolder, newName, node->folder);
            if (Tree::isSameOrAbove(*node, *newFolder))
                failWith(EINVAL);
            if (node->linked)
                checkNamesBelow(*node, *newFolder, newName);
        }
        if (replaced)
            checkReplaceable(node, replaced);
        if (renameUnstored(node, newFolder, target) || m_parts.changes.moveStored(node, newFolder, target)) {
            if (replaced && !replaced->folder)
                m_parts.contents.release(*replaced);
            break;
        }
    }
    noteChange();
}

/// Only what the provider has must be moved there, too.
bool FileSystem::renameUnstored(const NodePtr& node, const NodePtr& newFolder, const std::string& newName) {
    const MutexLock lock(m_tree.mutex);
    if (!node->linked || (node->stored && (node->folder || !node->dirty)))
        return false;
    m_tree.moveUnstored(node, *newFolder, newName);
    return true;
}

} // namespace storage::mount
