#include <storage/mount/src/Rescue.h>

#include <storage/mount/src/Places.h>
#include <storage/mount/src/RescueList.h>
#include <storage/mount/src/SystemFailure.h>

#include <fl/i18n/utf8.h>
#include <fmt/format.h>
#include <foundation/storage/provider/StorageIRI.h>
#include <storage/vfs/ChangeSession.h>

#include <cerrno>
#include <deque>
#include <set>

namespace storage::mount {

using namespace foundation::storage::provider;
using foundation::core::MutexLock;
namespace fs = std::filesystem;

namespace {

constexpr auto archiveEnding = ".zip";
constexpr auto listEnding = ".batch";

/// A path in `folder` under which there is neither an archive nor a list, without the ending.
fs::path unusedStem(const fs::path& folder, const std::string& name) {
    for (unsigned number = 1;; ++number) {
        auto stem = folder / (number == 1 ? name + ".rescued" : fmt::format("{}.rescued-{}", name, number));
        if (!fs::exists(fs::symlink_status(fs::path(stem) += archiveEnding)) &&
            !fs::exists(fs::symlink_status(fs::path(stem) += listEnding)))
            return stem;
    }
}

} // namespace

Rescue::Rescue(Parts parts, fs::path archive, Warning warn)
    : m_parts(parts), m_archive(std::move(archive)), m_warn(std::move(warn)) {}

bool Rescue::run(const Changes::Unsaved& unsaved) {
    const auto kept = gather(unsaved.nodes);
    if (!(kept.files.empty() && kept.folders.empty()) && !keep(kept))
        return false;
    const auto& root = m_parts.tree.root()->backing->root;
    m_parts.vfs.discard(root.getContainer());
    writeList(unsaved.gone);
    return true;
}

/// What stands in a folder that was moved is at another place, too.
Rescue::Kept Rescue::gather(const std::vector<NodePtr>& nodes) const {
    Kept kept;
    std::set<const Node*> seen;
    std::deque<NodePtr> waiting(nodes.begin(), nodes.end());
    while (!waiting.empty()) {
        const auto node = std::move(waiting.front());
        waiting.pop_front();
        if (node->isView || !seen.insert(node.get()).second)
            continue;
        if (!node->folder) {
            kept.files.push_back(node);
            continue;
        }
        kept.folders.push_back(node);
        try {
            m_parts.loader.load(node);
        } catch (...) {
            m_warn(fmt::format("cannot rescue what stands in {}: {}", Tree::pathOf(*node),
                               causeOf(std::current_exception())));
        }
        const MutexLock lock(m_parts.tree.mutex);
        for (const auto& [name, below] : node->children)
            waiting.push_back(below);
    }
    return kept;
}

bool Rescue::keep(const Kept& kept) {
    for (const auto& folder : rescueFolders(m_archive)) {
        fs::path archive;
        try {
            fs::create_directories(folder);
            archive = unusedStem(folder, m_archive.stem().string()) += archiveEnding;
            // What is short of room is, as often as not, the folder of temporary files.
            const TemporaryFolderInUse temporary(folder);
            fill(kept, StorageIRI::fromLocalPath(archive.u16string()));
            m_result.archive = std::move(archive);
            return true;
        } catch (...) {
            m_warn(fmt::format("cannot rescue the changes into {}: {}", folder.string(),
                               causeOf(std::current_exception())));
            std::error_code ignored;
            if (!archive.empty())
                fs::remove(archive, ignored);
        }
    }
    return false;
}

void Rescue::fill(const Kept& kept, const StorageIRI& archive) const {
    m_parts.vfs.createArchive(archive);
    const auto root = StorageIRI::inContainer("zip", archive, u"/");
    vfs::ChangeSession session(m_parts.vfs);
    session.lock({root});
    const auto provider = session.changing(root);
    const auto place = [&](const Node& node) {
        return root.withPath(fl::i18n::fromUtf8(Tree::pathOf(node)));
    };
    for (const auto& folder : kept.folders)
        provider->createFolderRecursive(place(*folder));
    for (const auto& file : kept.files) {
        if (!isReadable(file))
            continue;
        provider->createFolderRecursive(place(*file).parent());
        const auto stream = provider->openStream(place(*file), ByteStreamOpenOptions::overwrite());
        m_parts.contents.copyTo(*file, *stream);
        stream->close();
        m_parts.contents.release(*file);
    }
    for (const auto& failure : session.commit())
        std::rethrow_exception(failure.error);
}

/// What was moved is read from the archive, which may be gone or another one. A lack of room is no such
/// failure: the next folder may have it.
bool Rescue::isReadable(const NodePtr& file) const {
    try {
        m_parts.contents.keepReadable(*file);
        return true;
    } catch (...) {
        const auto failure = std::current_exception();
        if (errorNumberOf(failure) == ENOSPC)
            throw;
        m_warn(fmt::format("cannot rescue {}: {}", Tree::pathOf(*file), causeOf(failure)));
        return false;
    }
}

void Rescue::writeList(const std::set<std::string, std::less<>>& gone) {
    const auto& root = m_parts.tree.root()->backing->root;
    std::vector<std::string> entries;
    if (!gone.empty()) {
        try {
            const Backing onDisk{m_parts.vfs.mount(root, vfs::Tolerance::Damaged).provider, root, false};
            entries = entriesGone(m_parts.tree, onDisk, gone);
        } catch (...) {
            m_warn(fmt::format("cannot tell what was removed from {}: {}", m_archive.string(),
                               causeOf(std::current_exception())));
        }
    }
    if (entries.empty() && m_result.archive.empty())
        return;
    auto folders = rescueFolders(m_archive);
    if (!m_result.archive.empty())
        folders.insert(folders.begin(), m_result.archive.parent_path());
    for (const auto& folder : folders) {
        fs::path list;
        try {
            fs::create_directories(folder);
            list = m_result.archive.empty() ? unusedStem(folder, m_archive.stem().string()) += listEnding
                                            : folder / m_result.archive.stem() += listEnding;
            writeRescueList(list, m_archive, m_result.archive, entries);
            m_result.list = std::move(list);
            return;
        } catch (...) {
            m_warn(fmt::format("cannot write the list of changes into {}: {}", folder.string(),
                               causeOf(std::current_exception())));
            std::error_code ignored;
            if (!list.empty())
                fs::remove(list, ignored);
        }
    }
}

std::vector<fs::path> rescueFolders(const fs::path& archive) {
    std::vector<fs::path> folders;
    if (archive.has_parent_path())
        folders.push_back(archive.parent_path());
    if (auto state = stateFolder(); !state.empty())
        folders.push_back(std::move(state));
    std::error_code failure;
    // The folder for temporary files is this process's own and goes with it.
    if (const auto temporary = fs::temp_directory_path(failure); !failure)
        folders.push_back((temporary / ".").parent_path().parent_path());
    folders.emplace_back("/var/tmp");
    return folders;
}

} // namespace storage::mount
