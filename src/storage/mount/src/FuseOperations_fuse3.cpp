#include <storage/mount/src/FuseOperations.h>

#include <storage/mount/src/FileSystem.h>
#include <storage/mount/src/SystemFailure.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <fcntl.h>
#include <filesystem>
#include <new>
#include <sys/statvfs.h>
#include <vector>

namespace storage::mount {

namespace {

/// Seconds for which the kernel need not ask again: only requests of its own change what is shown.
constexpr double forLong = 86400;

FuseContext& contextOf(fuse_req_t request) {
    return *static_cast<FuseContext*>(fuse_req_userdata(request));
}

FileSystem& filesOf(fuse_req_t request) {
    return contextOf(request).files;
}

/// The kernel names nodes by the addresses that it was told, and knows only nodes that it keeps alive.
NodePtr nodeOf(fuse_req_t request, fuse_ino_t number) {
    if (number == FUSE_ROOT_ID)
        return filesOf(request).root();
    return reinterpret_cast<Node*>(number)->shared_from_this(); // NOLINT(performance-no-int-to-ptr)
}

fuse_ino_t numberOf(const Node& node) {
    return reinterpret_cast<fuse_ino_t>(&node);
}

OpenFile& fileOf(const fuse_file_info* info) {
    return *reinterpret_cast<OpenFile*>(info->fh); // NOLINT(performance-no-int-to-ptr)
}

OpenFolder& folderOf(const fuse_file_info* info) {
    return *reinterpret_cast<OpenFolder*>(info->fh); // NOLINT(performance-no-int-to-ptr)
}

/// Runs an operation that replies when it succeeds; what it throws is the reply otherwise.
template <typename Work>
void answer(fuse_req_t request, Work work) {
    int error = 0;
    try {
        work();
        return;
    } catch (...) {
        error = errorNumberOf(std::current_exception());
    }
    fuse_reply_err(request, error);
}

/// A folder that shows a file's inside goes when the file changes.
double timeoutOf(const Node& node) {
    return node.isView ? 0 : forLong;
}

fuse_entry_param toParam(const Node& node, const struct stat& status) {
    fuse_entry_param param{};
    param.ino = numberOf(node);
    param.generation = 1;
    param.attr = status;
    param.attr_timeout = timeoutOf(node);
    param.entry_timeout = timeoutOf(node);
    return param;
}

void opInit(void*, fuse_conn_info* connection) {
    // Contents change through the kernel alone, so it need not look for changes by itself.
    connection->want &= ~static_cast<unsigned>(FUSE_CAP_AUTO_INVAL_DATA | FUSE_CAP_READDIRPLUS_AUTO |
                                               FUSE_CAP_HANDLE_KILLPRIV);
    connection->want |=
        connection->capable &
        static_cast<unsigned>(FUSE_CAP_READDIRPLUS | FUSE_CAP_PARALLEL_DIROPS | FUSE_CAP_ASYNC_READ);
}

void opLookup(fuse_req_t request, fuse_ino_t parent, const char* name) {
    answer(request, [&] {
        const auto& context = contextOf(request);
        const auto entry = filesOf(request).lookUp(nodeOf(request, parent), name);
        fuse_entry_param none{};
        none.entry_timeout = context.steady ? forLong : 0;
        const auto param = entry ? toParam(*entry->node, entry->status) : none;
        if (fuse_reply_entry(request, &param) == -ENOENT && entry)
            filesOf(request).forget(*entry->node, 1);
    });
}

void opForget(fuse_req_t request, fuse_ino_t number, std::uint64_t lookups) {
    if (number != FUSE_ROOT_ID)
        filesOf(request).forget(*nodeOf(request, number), lookups);
    fuse_reply_none(request);
}

void opForgetMulti(fuse_req_t request, std::size_t count, fuse_forget_data* forgets) {
    for (std::size_t i = 0; i < count; ++i)
        if (forgets[i].ino != FUSE_ROOT_ID)
            filesOf(request).forget(*nodeOf(request, forgets[i].ino), forgets[i].nlookup);
    fuse_reply_none(request);
}

void replyAttributes(fuse_req_t request, const Node& node, const struct stat& status) {
    fuse_reply_attr(request, &status, timeoutOf(node));
}

void opGetattr(fuse_req_t request, fuse_ino_t number, fuse_file_info*) {
    answer(request, [&] {
        const auto node = nodeOf(request, number);
        replyAttributes(request, *node, filesOf(request).status(*node));
    });
}

void opSetattr(fuse_req_t request, fuse_ino_t number, struct stat* wanted, int toSet, fuse_file_info* info) {
    answer(request, [&] {
        const auto node = nodeOf(request, number);
        NewAttributes attributes;
        const auto now = currentTime();
        if ((toSet & FUSE_SET_ATTR_MODE) != 0)
            attributes.mode = wanted->st_mode;
        if ((toSet & FUSE_SET_ATTR_UID) != 0)
            attributes.uid = wanted->st_uid;
        if ((toSet & FUSE_SET_ATTR_GID) != 0)
            attributes.gid = wanted->st_gid;
        if ((toSet & FUSE_SET_ATTR_SIZE) != 0)
            attributes.size = static_cast<std::uint64_t>(wanted->st_size);
        if ((toSet & (FUSE_SET_ATTR_ATIME | FUSE_SET_ATTR_ATIME_NOW)) != 0)
            attributes.accessed = (toSet & FUSE_SET_ATTR_ATIME_NOW) != 0 ? now : wanted->st_atim;
        if ((toSet & (FUSE_SET_ATTR_MTIME | FUSE_SET_ATTR_MTIME_NOW)) != 0)
            attributes.modified = (toSet & FUSE_SET_ATTR_MTIME_NOW) != 0 ? now : wanted->st_mtim;
        auto* opened = info ? &fileOf(info) : nullptr;
        replyAttributes(request, *node, filesOf(request).setAttributes(node, attributes, opened));
    });
}

void replyEntry(fuse_req_t request, const FileSystem::Entry& entry) {
    const auto param = toParam(*entry.node, entry.status);
    if (fuse_reply_entry(request, &param) == -ENOENT)
        filesOf(request).forget(*entry.node, 1);
}

void opMkdir(fuse_req_t request, fuse_ino_t parent, const char* name, mode_t mode) {
    answer(request,
           [&] { replyEntry(request, filesOf(request).makeFolder(nodeOf(request, parent), name, mode)); });
}

void opMknod(fuse_req_t request, fuse_ino_t parent, const char* name, mode_t mode, dev_t) {
    answer(request, [&] {
        if (!S_ISREG(mode))
            failWith(EPERM);
        replyEntry(request, filesOf(request).makeFile(nodeOf(request, parent), name, mode, nullptr));
    });
}

void opUnlink(fuse_req_t request, fuse_ino_t parent, const char* name) {
    answer(request, [&] {
        filesOf(request).removeFile(nodeOf(request, parent), name);
        fuse_reply_err(request, 0);
    });
}

void opRmdir(fuse_req_t request, fuse_ino_t parent, const char* name) {
    answer(request, [&] {
        filesOf(request).removeFolder(nodeOf(request, parent), name);
        fuse_reply_err(request, 0);
    });
}

void opRename(fuse_req_t request, fuse_ino_t parent, const char* name, fuse_ino_t newParent,
              const char* newName, unsigned flags) {
    answer(request, [&] {
        filesOf(request).rename(nodeOf(request, parent), name, nodeOf(request, newParent), newName, flags);
        fuse_reply_err(request, 0);
    });
}

void opSymlink(fuse_req_t request, const char*, fuse_ino_t, const char*) {
    fuse_reply_err(request, EPERM);
}

void opLink(fuse_req_t request, fuse_ino_t, fuse_ino_t, const char*) {
    fuse_reply_err(request, EPERM);
}

void remember(fuse_file_info* info, std::unique_ptr<OpenFile> file) {
    info->keep_cache = 1;
    info->noflush = file->writes ? 0 : 1;
    info->fh = reinterpret_cast<std::uint64_t>(file.release());
}

void forgetOpen(fuse_req_t request, const fuse_file_info* info) {
    const std::unique_ptr<OpenFile> file(&fileOf(info));
    filesOf(request).close(*file);
}

void opOpen(fuse_req_t request, fuse_ino_t number, fuse_file_info* info) {
    answer(request, [&] {
        auto& files = filesOf(request);
        const auto node = nodeOf(request, number);
        remember(info, files.open(node, info->flags));
        const bool willRead = (info->flags & O_ACCMODE) == O_RDONLY;
        if (fuse_reply_open(request, info) == -ENOENT)
            forgetOpen(request, info);
        else if (willRead)
            files.readAhead(*node);
    });
}

void opCreate(fuse_req_t request, fuse_ino_t parent, const char* name, mode_t mode, fuse_file_info* info) {
    answer(request, [&] {
        auto file = std::make_unique<OpenFile>();
        const auto entry = filesOf(request).makeFile(nodeOf(request, parent), name, mode, file.get());
        remember(info, std::move(file));
        const auto param = toParam(*entry.node, entry.status);
        if (fuse_reply_create(request, &param, info) == -ENOENT) {
            forgetOpen(request, info);
            filesOf(request).forget(*entry.node, 1);
        }
    });
}

void opRead(fuse_req_t request, fuse_ino_t, std::size_t count, off_t offset, fuse_file_info* info) {
    answer(request, [&] {
        std::vector<char> buffer(count);
        const auto got =
            filesOf(request).read(fileOf(info), static_cast<std::uint64_t>(offset), buffer.data(), count);
        fuse_reply_buf(request, buffer.data(), got);
    });
}

void opWrite(fuse_req_t request, fuse_ino_t, const char* data, std::size_t count, off_t offset,
             fuse_file_info* info) {
    answer(request, [&] {
        filesOf(request).write(fileOf(info), static_cast<std::uint64_t>(offset), data, count);
        fuse_reply_write(request, count);
    });
}

void opFallocate(fuse_req_t request, fuse_ino_t, int mode, off_t offset, off_t length, fuse_file_info* info) {
    answer(request, [&] {
        filesOf(request).allocate(fileOf(info), mode, static_cast<std::uint64_t>(offset),
                                  static_cast<std::uint64_t>(length));
        fuse_reply_err(request, 0);
    });
}

void opFlush(fuse_req_t request, fuse_ino_t, fuse_file_info* info) {
    answer(request, [&] {
        filesOf(request).flush(fileOf(info));
        fuse_reply_err(request, 0);
    });
}

void opRelease(fuse_req_t request, fuse_ino_t, fuse_file_info* info) {
    answer(request, [&] {
        forgetOpen(request, info);
        fuse_reply_err(request, 0);
    });
}

void opFsync(fuse_req_t request, fuse_ino_t, int, fuse_file_info*) {
    answer(request, [&] {
        filesOf(request).sync();
        fuse_reply_err(request, 0);
    });
}

void opOpendir(fuse_req_t request, fuse_ino_t number, fuse_file_info* info) {
    answer(request, [&] {
        auto folder = filesOf(request).openFolder(nodeOf(request, number));
        info->cache_readdir = contextOf(request).steady ? 1 : 0;
        info->keep_cache = info->cache_readdir;
        info->fh = reinterpret_cast<std::uint64_t>(folder.get());
        if (fuse_reply_open(request, info) == 0)
            static_cast<void>(folder.release());
    });
}

/// Offsets 1 and 2 stand behind "." and "..", n + 3 behind entry n.
class ListingBuffer {
public:
    ListingBuffer(fuse_req_t request, OpenFolder& folder, std::size_t capacity, bool plus)
        : m_request(request), m_folder(folder), m_bytes(capacity), m_plus(plus) {}

    void reply(std::size_t from) {
        for (auto at = from; at < m_folder.entries.size() + 2; ++at)
            if (!(at < 2 ? addDots(at) : addEntry(at)))
                break;
        fuse_reply_buf(m_request, m_bytes.data(), m_used);
    }

private:
    bool addDots(std::size_t at) {
        fuse_entry_param param{};
        param.attr.st_ino = m_folder.node->number;
        param.attr.st_mode = S_IFDIR;
        return add(at == 0 ? "." : "..", param, at);
    }

    /// Returns false when there is no more room.
    bool addEntry(std::size_t at) {
        const auto index = at - 2;
        auto& files = filesOf(m_request);
        struct stat status {};
        if (!files.listed(m_folder, index, m_plus, status))
            return true;
        const auto& node = *m_folder.entries[index];
        if (add(m_folder.names[index].c_str(), toParam(node, status), at))
            return true;
        if (m_plus)
            files.forget(*m_folder.entries[index], 1);
        return false;
    }

    bool add(const char* name, const fuse_entry_param& param, std::size_t at) {
        const auto offset = static_cast<off_t>(at + 1);
        const auto room = m_bytes.size() - m_used;
        auto* const place = m_bytes.data() + m_used;
        const auto needed = m_plus ? fuse_add_direntry_plus(m_request, place, room, name, &param, offset)
                                   : fuse_add_direntry(m_request, place, room, name, &param.attr, offset);
        if (needed > room)
            return false;
        m_used += needed;
        return true;
    }

    fuse_req_t m_request;
    OpenFolder& m_folder;
    std::vector<char> m_bytes;
    std::size_t m_used = 0;
    const bool m_plus;
};

void replyListing(fuse_req_t request, std::size_t size, off_t offset, fuse_file_info* info, bool plus) {
    answer(request, [&] {
        auto& folder = folderOf(info);
        if (offset == 0)
            filesOf(request).rewind(folder);
        ListingBuffer(request, folder, size, plus).reply(static_cast<std::size_t>(offset));
    });
}

void opReaddir(fuse_req_t request, fuse_ino_t, std::size_t size, off_t offset, fuse_file_info* info) {
    replyListing(request, size, offset, info, false);
}

void opReaddirplus(fuse_req_t request, fuse_ino_t, std::size_t size, off_t offset, fuse_file_info* info) {
    replyListing(request, size, offset, info, true);
}

void opReleasedir(fuse_req_t request, fuse_ino_t, fuse_file_info* info) {
    const std::unique_ptr<OpenFolder> folder(&folderOf(info));
    fuse_reply_err(request, 0);
}

void opStatfs(fuse_req_t request, fuse_ino_t) {
    answer(request, [&] {
        const auto status = filesOf(request).space();
        fuse_reply_statfs(request, &status);
    });
}

} // namespace

const fuse_lowlevel_ops& fuseOperations() {
    static const fuse_lowlevel_ops operations = [] {
        fuse_lowlevel_ops ops{};
        ops.init = opInit;
        ops.lookup = opLookup;
        ops.forget = opForget;
        ops.forget_multi = opForgetMulti;
        ops.getattr = opGetattr;
        ops.setattr = opSetattr;
        ops.mkdir = opMkdir;
        ops.mknod = opMknod;
        ops.unlink = opUnlink;
        ops.rmdir = opRmdir;
        ops.rename = opRename;
        ops.symlink = opSymlink;
        ops.link = opLink;
        ops.open = opOpen;
        ops.create = opCreate;
        ops.read = opRead;
        ops.write = opWrite;
        ops.fallocate = opFallocate;
        ops.flush = opFlush;
        ops.release = opRelease;
        ops.fsync = opFsync;
        ops.fsyncdir = opFsync;
        ops.opendir = opOpendir;
        ops.readdir = opReaddir;
        ops.readdirplus = opReaddirplus;
        ops.releasedir = opReleasedir;
        ops.statfs = opStatfs;
        return ops;
    }();
    return operations;
}

} // namespace storage::mount
