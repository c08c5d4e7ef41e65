#include <storage/mount/src/FileSystem.h>

#include <storage/mount/src/SystemFailure.h>

#include <cerrno>
#include <fcntl.h>

namespace storage::mount {

using foundation::core::MutexLock;

namespace {

constexpr unsigned permissionBits = 07777;
constexpr std::uint64_t blockSize = 512;

} // namespace

struct stat FileSystem::statusLocked(const Node& node) const {
    struct stat status {};
    status.st_ino = node.number;
    status.st_mode = (node.folder ? S_IFDIR : S_IFREG) | node.mode;
    status.st_nlink = node.folder ? 2 + node.subfolders : (node.linked ? 1 : 0);
    status.st_uid = m_options.uid;
    status.st_gid = m_options.gid;
    status.st_size = static_cast<off_t>(node.size);
    status.st_blocks = static_cast<blkcnt_t>((node.size + blockSize - 1) / blockSize);
    status.st_blksize = 4096;
    status.st_mtim = node.modified;
    status.st_ctim = node.changed;
    status.st_atim = node.accessed;
    return status;
}

struct stat FileSystem::status(const Node& node) const {
    const MutexLock lock(m_tree.mutex);
    return statusLocked(node);
}

struct stat FileSystem::setAttributes(const NodePtr& node, const NewAttributes& attributes,
                                      OpenFile* opened) {
    checkChangeable(*node);
    if ((attributes.uid && *attributes.uid != m_options.uid) ||
        (attributes.gid && *attributes.gid != m_options.gid))
        failWith(EPERM);
    if (attributes.size) {
        if (node->folder)
            failWith(EISDIR);
        m_parts.contents.resize(node, *attributes.size);
        if (opened)
            opened->changed = true;
        noteChange();
    }
    const MutexLock lock(m_tree.mutex);
    if (attributes.mode)
        node->mode = *attributes.mode & permissionBits;
    if (attributes.accessed)
        node->accessed = *attributes.accessed;
    if (attributes.modified)
        node->modified = *attributes.modified;
    node->changed = currentTime();
    return statusLocked(*node);
}

std::unique_ptr<OpenFile> FileSystem::open(const NodePtr& file, int flags) {
    if (file->folder)
        failWith(EISDIR);
    const bool writes = (flags & O_ACCMODE) != O_RDONLY;
    if (writes)
        checkChangeable(*file);
    auto opened = std::make_unique<OpenFile>();
    opened->node = file;
    opened->writes = writes;
    opened->knownFailures = m_parts.saver ? m_parts.saver->failures() : 0;
    {
        const MutexLock lock(m_tree.mutex);
        ++file->openers;
        file->writers += writes ? 1 : 0;
    }
    if (!writes || (flags & O_TRUNC) == 0)
        return opened;
    try {
        m_parts.contents.resize(file, 0);
    } catch (...) {
        close(*opened);
        throw;
    }
    opened->changed = true;
    noteChange();
    return opened;
}

std::size_t FileSystem::read(OpenFile& file, std::uint64_t offset, char* buffer, std::size_t count) {
    return m_parts.contents.read(*file.node, offset, buffer, count);
}

void FileSystem::write(OpenFile& file, std::uint64_t offset, const char* data, std::size_t count) {
    checkChangeable(*file.node);
    file.changed = true;
    try {
        m_parts.contents.write(file.node, offset, data, count);
    } catch (...) {
        // A part of it may have been written.
        noteChange();
        throw;
    }
    noteChange();
}

void FileSystem::allocate(OpenFile& file, int mode, std::uint64_t offset, std::uint64_t count) {
    checkChangeable(*file.node);
    if ((mode & ~(FALLOC_FL_KEEP_SIZE | FALLOC_FL_PUNCH_HOLE | FALLOC_FL_ZERO_RANGE)) != 0)
        failWith(EOPNOTSUPP);
    if (count > static_cast<std::uint64_t>(INT64_MAX) - offset)
        failWith(EFBIG);
    file.changed = true;
    if ((mode & (FALLOC_FL_PUNCH_HOLE | FALLOC_FL_ZERO_RANGE)) != 0)
        m_parts.contents.clear(file.node, offset, count);
    if ((mode & FALLOC_FL_KEEP_SIZE) == 0)
        m_parts.contents.extend(file.node, offset + count);
    noteChange();
}

void FileSystem::flush(OpenFile& file) {
    if (!file.changed || !m_parts.saver)
        return;
    const auto failures = m_parts.saver->failures();
    if (file.knownFailures.exchange(failures) < failures)
        failWith(m_parts.saver->lastError());
}

void FileSystem::close(OpenFile& file) {
    {
        const MutexLock lock(m_tree.mutex);
        --file.node->openers;
        file.node->writers -= file.writes ? 1 : 0;
    }
    m_parts.contents.release(*file.node);
}

void FileSystem::sync() {
    if (m_parts.saver)
        m_parts.saver->saveNow();
}

std::unique_ptr<OpenFolder> FileSystem::openFolder(const NodePtr& folder) {
    if (!folder->folder)
        failWith(ENOTDIR);
    m_parts.loader.load(folder);
    auto opened = std::make_unique<OpenFolder>();
    opened->node = folder;
    rewind(*opened);
    return opened;
}

void FileSystem::rewind(OpenFolder& opened) {
    opened.entries.clear();
    opened.names.clear();
    const MutexLock lock(m_tree.mutex);
    m_parts.loader.addViews(m_tree, *opened.node);
    const auto& children = opened.node->children;
    opened.entries.reserve(children.size());
    opened.names.reserve(children.size());
    for (const auto& [name, node] : children) {
        opened.entries.push_back(node);
        opened.names.push_back(name);
    }
}

struct statvfs FileSystem::space() const {
    return m_parts.space();
}

bool FileSystem::listed(const OpenFolder& folder, std::size_t index, bool lookUp, struct stat& status) {
    const auto& node = folder.entries[index];
    const MutexLock lock(m_tree.mutex);
    if (!node->linked || node->parent != folder.node.get() || node->name != folder.names[index])
        return false;
    if (lookUp)
        m_tree.noteLookup(node);
    status = statusLocked(*node);
    return true;
}

} // namespace storage::mount
