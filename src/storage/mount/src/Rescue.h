#pragma once

#include <storage/mount/src/Changes.h>
#include <storage/mount/src/Contents.h>
#include <storage/mount/src/FolderLoader.h>
#include <storage/vfs/Vfs.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace storage::mount {

/// Keeps what could not be saved: "NAME.rescued.zip" with everything that was made, changed or moved, and
/// "NAME.rescued.batch", a list of changes with which "kxvfs batch" brings that into the archive and removes
/// what was removed. Used by one thread when no program is served any more.
class Rescue {
public:
    using Warning = std::function<void(const std::string&)>;

    struct Parts {
        vfs::Vfs& vfs;
        Tree& tree;
        FolderLoader& loader;
        Contents& contents;
    };
    struct Result {
        /// Empty where there was nothing to put into it, or where that could be done nowhere.
        std::filesystem::path archive;
        /// Empty where there is nothing to do, or where it could be written nowhere.
        std::filesystem::path list;
    };

    /// `archive` is the local file that could not be saved. `warn` hears what could not be read or written.
    Rescue(Parts parts, std::filesystem::path archive, Warning warn);

    /// Returns whether everything that can be read is kept. The archive's provider is discarded then, and the
    /// archive as it is on disk asked for what stands in it.
    bool run(const Changes::Unsaved& unsaved);
    const Result& result() const { return m_result; }

private:
    struct Kept {
        std::vector<NodePtr> folders;
        std::vector<NodePtr> files;
    };

    Kept gather(const std::vector<NodePtr>& nodes) const;
    bool keep(const Kept& kept);
    void fill(const Kept& kept, const foundation::storage::provider::StorageIRI& archive) const;
    bool isReadable(const NodePtr& file) const;
    void writeList(const std::set<std::string, std::less<>>& gone);

    const Parts m_parts;
    const std::filesystem::path m_archive;
    const Warning m_warn;
    Result m_result;
};

/// Where a rescue archive may go: beside the archive, the user's state folder, the folder of temporary
/// folders.
std::vector<std::filesystem::path> rescueFolders(const std::filesystem::path& archive);

} // namespace storage::mount
