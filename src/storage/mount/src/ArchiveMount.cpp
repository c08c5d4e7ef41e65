#include <storage/mount/ArchiveMount.h>

#include <storage/mount/src/FileSystem.h>
#include <storage/mount/src/FuseSession.h>
#include <storage/mount/src/Rescue.h>
#include <storage/mount/src/SystemFailure.h>
#include <storage/mount/src/Times.h>

#include <fl/i18n/utf8.h>
#include <fmt/format.h>
#include <foundation/storage/provider/Exception.h>
#include <storage/vfs/ChangeSession.h>

#include <algorithm>

namespace storage::mount {

using namespace foundation::storage::provider;
using foundation::core::Mutex;
using foundation::core::MutexLock;
namespace fs = std::filesystem;

namespace {

/// How long mounting may take for the folders to be loaded; those that are left are loaded when looked into.
constexpr auto loadingTime = std::chrono::seconds(2);

[[noreturn]] void refuseToWait(const StorageIRI& file) {
    throw Exception(ErrorCode::Busy, file, "another program changes it, or has mounted it");
}

/// The local file at the bottom of all containers.
fs::path localFileUnder(const StorageIRI& root) {
    const auto* at = &root;
    while (at->hasContainer())
        at = &at->getContainer();
    return at->getScheme() == "file" ? fs::path(at->getResolvedPath()) : fs::path();
}

std::shared_ptr<Backing> openArchive(vfs::Vfs& vfs, vfs::ChangeSession& session, const StorageIRI& root,
                                     const MountOptions& options) {
    if (!options.readOnly)
        session.lock({root});
    const auto mounted = vfs.mount(root, options.readOnly ? vfs::Tolerance::Damaged : vfs::Tolerance::Sound);
    if (!options.readOnly && !vfs.item(mounted.container).getFileAttributes().isWritable())
        throw Exception(ErrorCode::NotWritable, mounted.container);
    return std::make_shared<Backing>(
        Backing{mounted.provider, StorageIRI::inContainer(root.getScheme(), mounted.container, u"/"),
                !options.readOnly});
}

/// What is free both for working files and beside the archive.
struct statvfs roomFor(const fs::path& archive) {
    constexpr std::uint64_t block = 4096;
    std::error_code failure;
    const auto work = fs::space(fs::temp_directory_path(failure), failure);
    auto place = archive.empty() ? work : fs::space(archive, failure);
    if (failure)
        place = work;
    struct statvfs status {};
    status.f_bsize = status.f_frsize = block;
    status.f_blocks = place.capacity / block;
    status.f_bfree = status.f_bavail = std::min(place.available, work.available) / block;
    status.f_namemax = 255;
    return status;
}

} // namespace

struct ArchiveMount::Impl {
    Impl(vfs::Vfs& front, const StorageIRI& root, const MountOptions& given, Listeners told)
        : vfs(front), options(given), listeners(std::move(told)), archive(localFileUnder(root)),
          session(vfs, refuseToWait), backing(openArchive(vfs, session, root, options)),
          tree(backing, 0755U & ~options.umask), contents(tree, space), changes(tree, contents, session),
          loader(tree, vfs, options, [this](const NodePtr& file) { changes.handOver(file); }) {
        setRootTimes();
        loader.loadAhead(std::chrono::steady_clock::now() + loadingTime);
        if (!options.readOnly)
            saver = std::make_unique<Saver>(
                changes, space, options, [this](const SaveResult& result) { onSave(result); },
                [this] { listeners.look(condition()); });
        files = std::make_unique<FileSystem>(FileSystem::Parts{tree, contents, loader, changes, saver.get(),
                                                               [this] { return isWritable(); },
                                                               [this] { return roomFor(archive); }},
                                             options);
    }

    void setRootTimes() {
        const auto time = toTimespec(backing->provider->getFolderAttributes(backing->root).getLastModified());
        const MutexLock lock(tree.mutex);
        auto& root = *tree.root();
        root.modified = root.changed = root.accessed = time;
    }

    bool isWritable() const {
        return vfs.item(backing->root.getContainer()).getFileAttributes().isWritable();
    }

    void onSave(const SaveResult& result) {
        std::string before;
        {
            const MutexLock lock(mutex);
            if (state.lastSave)
                before = state.lastSave->failure;
            state.lastSave = LastSave{result.ended, result.duration, result.cause};
            state.saves += result.error == 0 ? 1 : 0;
        }
        // One that fails again for the same reason is nothing new.
        if (!result.cause.empty() && result.cause != before)
            listeners.warn(fmt::format("cannot save {}: {}", archive.string(), result.cause));
        else if (result.cause.empty() && !before.empty())
            listeners.warn(fmt::format("saved {}", archive.string()));
    }

    MountCondition condition() const {
        MountCondition result;
        {
            const MutexLock lock(mutex);
            result = state;
        }
        result.unsavedChanges = changes.count();
        result.unsavedBytes = space.total();
        return result;
    }

    bool saveAtEnd() {
        SaveResult result;
        const auto begun = std::chrono::steady_clock::now();
        try {
            changes.save();
        } catch (...) {
            const auto failure = std::current_exception();
            result.error = errorNumberOf(failure);
            result.cause = causeOf(failure);
        }
        result.ended = std::chrono::system_clock::now();
        result.duration =
            std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begun);
        onSave(result);
        return result.error == 0;
    }

    void rescueChanges() {
        Rescue rescue({vfs, tree, loader, contents}, archive, listeners.warn);
        // With nothing rescued, the provider's own last try is better than none.
        if (!rescue.run(changes.unsaved()))
            return;
        const MutexLock lock(mutex);
        state.rescue = rescue.result().archive;
        state.rescueList = rescue.result().list;
    }

    vfs::Vfs& vfs;
    const MountOptions options;
    const Listeners listeners;
    /// The local file that holds the archive.
    const fs::path archive;
    vfs::ChangeSession session;
    const std::shared_ptr<Backing> backing;
    WorkingSpace space;
    Tree tree;
    Contents contents;
    Changes changes;
    FolderLoader loader;

    mutable Mutex mutex;
    MountCondition state KX_GUARDED_BY(mutex);

    std::unique_ptr<Saver> saver;
    std::unique_ptr<FileSystem> files;
    std::unique_ptr<FuseSession> fuse;
};

ArchiveMount::ArchiveMount(vfs::Vfs& vfs, const StorageIRI& root, const fs::path& mountPoint,
                           const MountOptions& options, Listeners listeners)
    : m_impl(std::make_unique<Impl>(vfs, root, options, std::move(listeners))) {
    raiseFileLimit();
    m_impl->fuse =
        std::make_unique<FuseSession>(*m_impl->files, m_impl->archive.string(), mountPoint, options);
}

ArchiveMount::~ArchiveMount() = default;

void ArchiveMount::start() {
    m_impl->fuse->start();
}

void ArchiveMount::serve() {
    m_impl->fuse->serve();
}

void ArchiveMount::end() {
    m_impl->fuse->end();
}

bool ArchiveMount::finish() {
    if (!m_impl->saver)
        return true;
    m_impl->saver->stop();
    if (!m_impl->changes.areUnsaved() || m_impl->saveAtEnd())
        return true;
    m_impl->rescueChanges();
    return false;
}

MountCondition ArchiveMount::condition() const {
    return m_impl->condition();
}

bool ArchiveMount::isSupported() {
    return FuseSession::isSupported();
}

} // namespace storage::mount
