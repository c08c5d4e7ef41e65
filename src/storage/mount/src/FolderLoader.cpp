#include <storage/mount/src/FolderLoader.h>

#include <storage/mount/src/SystemFailure.h>
#include <storage/mount/src/Times.h>

#include <fl/i18n/utf8.h>
#include <foundation/storage/provider/Exception.h>

#include <algorithm>
#include <cerrno>
#include <deque>
#include <vector>

namespace storage::mount {

using namespace foundation::storage::provider;
using foundation::core::MutexLock;

namespace {

constexpr std::size_t longestName = 255;
constexpr int attempts = 8;

/// Names that no program could use, or that mean something else to the system.
bool canBeShown(std::string_view name) {
    return !name.empty() && name != "." && name != ".." && name.size() <= longestName &&
           name.find('/') == std::string_view::npos && name.find('\0') == std::string_view::npos;
}

} // namespace

struct FolderLoader::Found {
    std::string name;
    bool folder;
    std::uint64_t size;
    timespec modified;
};

namespace {

template <typename Found>
std::vector<Found> list(const Backing& backing, const std::string& path) {
    const auto location = backing.at(path);
    auto& provider = *backing.provider;
    std::vector<Found> found;
    for (const auto entries = provider.listAll(location); entries->hasNext();) {
        entries->next();
        const auto entry = entries->current();
        const auto place = location.child(entry.getName());
        Found one{fl::i18n::toUtf8(entry.getName()), entry.isFolder(), 0, {}};
        if (one.folder) {
            one.modified = toTimespec(provider.getFolderAttributes(place).getLastModified());
        } else {
            const auto attributes = provider.getFileAttributes(place);
            one.size = attributes.getSize().value_or(0);
            one.modified = toTimespec(attributes.getLastModified());
        }
        found.push_back(std::move(one));
    }
    return found;
}

} // namespace

FolderLoader::FolderLoader(Tree& tree, vfs::Vfs& vfs, const MountOptions& options,
                           BeforeLookingInside beforeLookingInside)
    : m_tree(tree), m_vfs(vfs), m_options(options), m_beforeLookingInside(std::move(beforeLookingInside)) {}

void FolderLoader::load(const NodePtr& folder) {
    for (int attempt = 0;; ++attempt) {
        std::string path;
        {
            MutexLock lock(m_tree.mutex);
            while (folder->loading)
                m_loaded.wait(m_tree.mutex);
            if (folder->loaded)
                return;
            folder->loading = true;
            path = Tree::pathOf(*folder);
        }
        std::vector<Found> entries;
        std::exception_ptr failure;
        bool moved = false;
        try {
            if (!folder->backing->provider)
                openView(*folder);
            entries = list<Found>(*folder->backing, path);
        } catch (const Exception& failed) {
            failure = std::current_exception();
            moved = failed.getErrorCode() == ErrorCode::NotFound;
        } catch (...) {
            failure = std::current_exception();
        }
        const MutexLock lock(m_tree.mutex);
        folder->loading = false;
        m_loaded.notifyAll();
        if (!failure) {
            fill(*folder, entries);
            return;
        }
        if (!moved || attempt >= attempts || Tree::pathOf(*folder) == path)
            std::rethrow_exception(failure);
    }
}

void FolderLoader::loadAhead(std::chrono::steady_clock::time_point deadline) {
    load(m_tree.root());
    std::deque<NodePtr> waiting{m_tree.root()};
    while (!waiting.empty() && std::chrono::steady_clock::now() < deadline) {
        const auto folder = std::move(waiting.front());
        waiting.pop_front();
        try {
            load(folder);
        } catch (const std::exception&) {
            // Whoever looks into it is told.
            continue;
        }
        const MutexLock lock(m_tree.mutex);
        for (const auto& [name, node] : folder->children)
            if (node->folder && !node->isView)
                waiting.push_back(node);
    }
}

void FolderLoader::fill(Node& folder, std::vector<Found>& entries) {
    for (auto& entry : entries) {
        if (!canBeShown(entry.name) || Tree::child(folder, entry.name)) {
            folder.hasHidden = true;
            continue;
        }
        const auto node = m_tree.makeNode(entry.folder, folder.backing);
        node->stored = true;
        node->mode = (entry.folder ? 0755U : 0644U) & ~m_options.umask;
        node->size = entry.size;
        node->modified = node->changed = node->accessed = entry.modified;
        m_tree.attach(folder, std::move(entry.name), node);
    }
    folder.loaded = true;
}

bool mayBeArchive(std::string_view name) {
    constexpr std::string_view ending = ".zip";
    return name.size() > ending.size() &&
           std::equal(ending.begin(), ending.end(), name.end() - static_cast<std::ptrdiff_t>(ending.size()),
                      [](char a, char b) { return a == (b >= 'A' && b <= 'Z' ? b - 'A' + 'a' : b); });
}

/// "inner.zip.d" beside "inner.zip"; where an entry has that name, "inner.zip.d2" and so on.
void FolderLoader::addViews(Tree& tree, Node& folder) const {
    std::vector<NodePtr> files;
    if (!m_options.nested)
        return;
    for (const auto& [name, node] : folder.children)
        if (!node->folder && !node->view && mayBeArchive(name))
            files.push_back(node);
    for (const auto& file : files) {
        auto name = file->name + ".d";
        for (int number = 2; Tree::child(folder, name); ++number)
            name = file->name + ".d" + std::to_string(number);
        if (name.size() > longestName)
            continue;
        const auto view = tree.makeNode(true, std::make_shared<Backing>());
        view->mode = 0555U & ~m_options.umask;
        view->modified = view->changed = view->accessed = file->modified;
        view->viewed = file.get();
        view->isView = true;
        file->view = view;
        tree.attach(folder, std::move(name), view);
    }
}

void FolderLoader::openView(Node& view) {
    NodePtr file;
    {
        const MutexLock lock(m_tree.mutex);
        if (!view.viewed)
            failWith(ESTALE);
        file = Tree::child(*view.viewed->parent, view.viewed->name);
    }
    m_beforeLookingInside(file);
    StorageIRI container;
    {
        const MutexLock lock(m_tree.mutex);
        container = file->backing->at(Tree::pathOf(*file));
    }
    const auto root = StorageIRI::inContainer(file->backing->root.getScheme(), container, u"/");
    view.backing->root = root;
    view.backing->provider = m_vfs.mount(root, vfs::Tolerance::Damaged).provider;
}

} // namespace storage::mount
