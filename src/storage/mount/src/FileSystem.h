#pragma once

#include <storage/mount/MountOptions.h>
#include <storage/mount/src/Changes.h>
#include <storage/mount/src/Contents.h>
#include <storage/mount/src/FolderLoader.h>
#include <storage/mount/src/Saver.h>
#include <storage/mount/src/Tree.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <utility>
#include <vector>

namespace storage::mount {

/// A file that a program has open.
struct OpenFile {
    NodePtr node;
    bool writes = false;
    /// Failed saves that this program knows of.
    std::atomic<std::uint64_t> knownFailures = 0;
    std::atomic<bool> changed = false;
};

/// A folder that a program lists: what stood in it when it began.
struct OpenFolder {
    NodePtr node;
    std::vector<NodePtr> entries;
    std::vector<std::string> names;
};

/// What a program may set of a file; what is absent stays.
struct NewAttributes {
    std::optional<std::uint32_t> mode;
    std::optional<std::uint32_t> uid;
    std::optional<std::uint32_t> gid;
    std::optional<std::uint64_t> size;
    std::optional<timespec> accessed;
    std::optional<timespec> modified;
};

/// The operations of a file system, as the system asks for them. Errors: std::system_error and the
/// providers'; see errorNumberOf. Threads: any.
class FileSystem {
public:
    /// What it works on; all must outlive it. `saver` is null for what cannot be changed.
    struct Parts {
        Tree& tree;
        Contents& contents;
        FolderLoader& loader;
        Changes& changes;
        Saver* saver;
        /// Whether the archive can be written at the moment.
        std::function<bool()> isWritable;
        /// The room for saving.
        std::function<struct statvfs()> space;
    };
    FileSystem(Parts parts, const MountOptions& options);

    struct Entry {
        NodePtr node;
        struct stat status {};
    };

    const NodePtr& root() const { return m_tree.root(); }

    /// Absent where there is no such entry. The kernel knows the node from here on.
    std::optional<Entry> lookUp(const NodePtr& folder, std::string_view name);
    void forget(Node& node, std::uint64_t lookups);
    struct stat status(const Node& node) const;
    struct stat setAttributes(const NodePtr& node, const NewAttributes& attributes, OpenFile* opened);

    Entry makeFolder(const NodePtr& folder, std::string_view name, std::uint32_t mode);
    /// Makes and opens a file; with `opened` null it is made only.
    Entry makeFile(const NodePtr& folder, std::string_view name, std::uint32_t mode, OpenFile* opened);
    void removeFile(const NodePtr& folder, std::string_view name);
    void removeFolder(const NodePtr& folder, std::string_view name);
    void rename(const NodePtr& folder, std::string_view name, const NodePtr& newFolder,
                std::string_view newName, unsigned flags);

    std::unique_ptr<OpenFile> open(const NodePtr& file, int flags);
    /// To be called behind the answer to a program that has opened a file for reading.
    void readAhead(Node& file) { m_parts.contents.readAhead(file); }
    std::size_t read(OpenFile& file, std::uint64_t offset, char* buffer, std::size_t count);
    void write(OpenFile& file, std::uint64_t offset, const char* data, std::size_t count);
    void allocate(OpenFile& file, int mode, std::uint64_t offset, std::uint64_t count);
    /// Throws what a save has met since the program last asked.
    void flush(OpenFile& file);
    void close(OpenFile& file);
    /// Saves everything.
    void sync();

    std::unique_ptr<OpenFolder> openFolder(const NodePtr& folder);
    /// Looks at the folder anew.
    void rewind(OpenFolder& opened);
    /// The status of an entry of a listing, and whether it is still there. `lookUp`: the kernel knows it from
    /// here on.
    bool listed(const OpenFolder& folder, std::size_t index, bool lookUp, struct stat& status);
    struct statvfs space() const;

private:
    void checkChangeable(const Node& node) const;
    static void checkName(const Node& folder, std::string_view name, bool isFolder);
    static void checkNamesBelow(const Node& node, const Node& newFolder, std::string_view newName);
    void noteChange();
    struct stat statusLocked(const Node& node) const KX_REQUIRES(m_tree.mutex);
    NodePtr find(const NodePtr& folder, std::string_view name);
    void keepReadable(const NodePtr& file);
    void checkReplaceable(const NodePtr& node, const NodePtr& replaced);
    bool renameUnstored(const NodePtr& node, const NodePtr& newFolder, const std::string& newName);

    const Parts m_parts;
    Tree& m_tree;
    const MountOptions& m_options;
};

} // namespace storage::mount
