#include <storage/vfs/ChangeSession.h>

#include <storage/vfs/src/LocalFile.h>
#include <storage/vfs/src/WriteHold.h>

#include <foundation/log/log.h>
#include <foundation/storage/provider/Exception.h>

#include <algorithm>
#include <iterator>
#include <set>
#include <stdexcept>
#include <utility>

namespace storage::vfs {

using namespace foundation::storage::provider;

struct ChangeSession::Impl {
    Impl(Vfs& front, WaitingCallback waiting, SaveProgressCallback progress)
        : vfs(front), onWaiting(std::move(waiting)), onProgress(std::move(progress)) {}

    struct Held {
        StorageIRI container;
        std::unique_ptr<ByteStream> stream;
    };

    Vfs& vfs;
    const WaitingCallback onWaiting;
    const SaveProgressCallback onProgress;
    foundation::log::basic_diagnostic_logger logger{"storage::vfs::ChangeSession"};
    ContainerLock lock;
    std::vector<Held> held;

    /// Lets one container be written. Its provider keeps the changes where that fails. Returns what was left
    /// in containers inside it and could not be written either.
    std::vector<CloseFailure> write(Held& entry) {
        try {
            entry.stream->close();
        } catch (...) {
            vfs.markUnsaved(entry.container);
            throw;
        }
        return vfs.forgetInside(entry.container);
    }
};

namespace {

/// Passes on what is done with containers while they are written, but not that they are looked at in between,
/// nor that they are read again after.
class ProgressReport {
public:
    ProgressReport(Vfs& vfs, const SaveProgressCallback& callback)
        : m_vfs(vfs), m_watches(static_cast<bool>(callback)) {
        if (m_watches)
            m_vfs.watchContainers([this, &callback](const SaveProgress& progress) {
                if (isAnotherLook(progress))
                    return;
                if (progress.phase != SaveProgress::Phase::Reading)
                    (progress.phase == SaveProgress::Phase::Writing ? m_begun : m_written)
                        .insert(progress.container);
                callback(progress);
            });
    }
    ~ProgressReport() {
        if (m_watches)
            m_vfs.watchContainers({});
    }
    ProgressReport(const ProgressReport&) = delete;
    ProgressReport& operator=(const ProgressReport&) = delete;

private:
    bool isAnotherLook(const SaveProgress& progress) const {
        using Phase = SaveProgress::Phase;
        return progress.phase != Phase::Closing &&
               (m_written.contains(progress.container) ||
                (progress.phase == Phase::Reading && m_begun.contains(progress.container)));
    }

    Vfs& m_vfs;
    /// Another's watching is not ended.
    const bool m_watches;
    std::set<StorageIRI> m_begun;
    std::set<StorageIRI> m_written;
};

} // namespace

ChangeSession::ChangeSession(Vfs& vfs, WaitingCallback onWaiting, SaveProgressCallback onProgress)
    : m_impl(std::make_unique<Impl>(vfs, std::move(onWaiting), std::move(onProgress))) {}

ChangeSession::~ChangeSession() {
    try {
        for (const auto& failure : commit())
            KX_LOG(m_impl->logger) << " container=" << failure.container.toUtf8()
                                   << " unsaved=" << failure.cause;
    } catch (...) {
        // A destructor has nobody to tell.
    }
}

void ChangeSession::lock(const std::vector<StorageIRI>& locations) {
    m_impl->lock = ContainerLock(locations, m_impl->onWaiting);
    for (const auto& location : locations) {
        const auto failures = m_impl->vfs.forget(localFileUnder(location));
        if (!failures.empty())
            std::rethrow_exception(failures.front().error);
    }
}

std::shared_ptr<IProvider> ChangeSession::changing(const StorageIRI& location) {
    if (location.hasContainer() && !m_impl->lock.covers(location))
        throw std::logic_error("cannot change " + location.toUtf8() + ": its container is not locked");
    const auto mounted = m_impl->vfs.mount(location);
    if (!location.hasContainer())
        return mounted.provider;
    auto& held = m_impl->held;
    const bool known = std::any_of(held.begin(), held.end(),
                                   [&](const auto& entry) { return entry.container == mounted.container; });
    if (!known) {
        if (!m_impl->vfs.item(mounted.container).getFileAttributes().isWritable())
            throw Exception(ErrorCode::NotWritable, mounted.container);
        const auto root = StorageIRI::inContainer(location.getScheme(), mounted.container, u"/");
        held.push_back({mounted.container, holdWrites(*mounted.provider, root)});
    }
    return mounted.provider;
}

bool ChangeSession::hasChanges() const {
    return !m_impl->held.empty();
}

std::vector<CloseFailure> ChangeSession::commit() {
    auto failures = flush();
    m_impl->lock = ContainerLock();
    return failures;
}

std::vector<CloseFailure> ChangeSession::flush() {
    auto held = std::move(m_impl->held);
    m_impl->held.clear();
    std::stable_sort(held.begin(), held.end(), [](const auto& a, const auto& b) {
        return nesting(a.container) > nesting(b.container);
    });
    std::vector<CloseFailure> failures;
    const ProgressReport report(m_impl->vfs, m_impl->onProgress);
    for (auto& entry : held) {
        try {
            auto left = m_impl->write(entry);
            // Those inside that had failed were tried again.
            std::erase_if(failures, [&](const auto& failure) {
                return failure.container != entry.container &&
                       isSameOrInside(failure.container, entry.container);
            });
            std::move(left.begin(), left.end(), std::back_inserter(failures));
        } catch (const std::exception& failure) {
            failures.push_back({entry.container, failure.what(), std::current_exception()});
        }
    }
    return failures;
}

} // namespace storage::vfs
