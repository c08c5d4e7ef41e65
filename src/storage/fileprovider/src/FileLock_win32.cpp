#include <storage/fileprovider/FileLock.h>

#include <foundation/storage/provider/Exception.h>
#include <storage/fileprovider/src/WindowsFile.h>
#include <storage/fileprovider/src/WindowsLocks.h>
#include <storage/fileprovider/src/WindowsNames.h>
#include <storage/fileprovider/src/WindowsPath.h>
#include <storage/fileprovider/src/WindowsSave.h>
#include <storage/fileprovider/src/WindowsStateFolder.h>

#include <algorithm>
#include <optional>
#include <thread>

namespace storage::fileprovider {

namespace fs = std::filesystem;
using foundation::core::MutexLock;
using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::Exception;
using foundation::storage::provider::StorageIRI;

struct FileLock::Held {
    /// Without links.
    fs::path path;
    /// The locked file: the one at `path`, or the lock file for its name.
    FileHandle file;
    /// The lock file for the name of a file that cannot be locked itself; empty otherwise.
    fs::path lockFile;
};

namespace {

using Clock = std::chrono::steady_clock;
// The system's locks know no time-out, so a wait that has one looks again and again.
constexpr std::chrono::milliseconds lookInterval{10};

bool isSameFile(HANDLE file, const fs::path& path) {
    const auto opened = statusOf(file);
    const auto named = statusOf(path);
    return opened && named && opened->isSameItem(*named);
}

class Acquisition {
public:
    Acquisition(const StorageIRI& iri, const LockWaitCallback& onWaiting, const LocalFileOptions& options)
        : m_iri(iri), m_onWaiting(onWaiting), m_options(options) {}

    /// Null when `deadline` passed. Waits for ever without one.
    std::shared_ptr<FileLock::Held> run(std::optional<Clock::time_point> deadline) {
        for (;;) {
            auto held = openLockable();
            const auto& name = held->lockFile.empty() ? held->path : held->lockFile;
            if (!lock(held->file, deadline)) {
                return nullptr;
            }
            // While this waited, the file may have been replaced, the lock file removed, or the missing file
            // made.
            if (isSameFile(held->file.get(), name) &&
                (held->lockFile.empty() || !openFileItself(held->path).isOpen())) {
                WindowsLocks::instance().add(*held);
                return held;
            }
        }
    }

private:
    std::shared_ptr<FileLock::Held> openLockable() {
        auto held = std::make_shared<FileLock::Held>();
        held->path = resolvePath(toWindowsPath(m_iri));
        held->file = openFileItself(held->path);
        if (!held->file.isOpen()) {
            openLockFile(*held, ::GetLastError());
        }
        return held;
    }

    FileHandle openFileItself(const fs::path& path) {
        const auto status = settledStatusOf(path);
        if (status && status->isFolder) {
            throw Exception(ErrorCode::NotFound, m_iri, "cannot lock what is not a regular file");
        }
        return FileHandle::open(path, GENERIC_READ, OPEN_EXISTING);
    }

    void openLockFile(FileLock::Held& held, DWORD error) {
        if (error != ERROR_FILE_NOT_FOUND && error != ERROR_ACCESS_DENIED) {
            throwWindowsError(m_iri, error, "cannot open the file to lock it");
        }
        const auto folder = makeStateFolder(m_options);
        if (!folder) {
            throwWindowsError(m_iri, ::GetLastError(), "cannot create a lock in the state folder");
        }
        held.lockFile = nameLockFor(*folder, held.path);
        held.file = FileHandle::open(held.lockFile, GENERIC_READ | GENERIC_WRITE, OPEN_ALWAYS);
        if (!held.file.isOpen()) {
            throwWindowsError(m_iri, ::GetLastError(), "cannot create " + textOf(held.lockFile));
        }
    }

    bool lock(const FileHandle& file, std::optional<Clock::time_point> deadline) {
        auto result = lockFile(file.get(), false);
        if (result == LockResult::Held && m_onWaiting && (!deadline || *deadline > Clock::now())) {
            m_onWaiting(m_iri);
            m_onWaiting = nullptr;
        }
        if (result == LockResult::Held && !deadline) {
            result = lockFile(file.get(), true);
        }
        while (result == LockResult::Held && *deadline > Clock::now()) {
            std::this_thread::sleep_for(std::min<Clock::duration>(lookInterval, *deadline - Clock::now()));
            result = lockFile(file.get(), false);
        }
        if (result == LockResult::Impossible) {
            throw Exception(ErrorCode::NotSupported, m_iri, "the file system cannot lock files");
        }
        return result == LockResult::Locked;
    }

    const StorageIRI& m_iri;
    LockWaitCallback m_onWaiting;
    const LocalFileOptions& m_options;
};

} // namespace

FileLock::FileLock() noexcept = default;

FileLock::FileLock(std::shared_ptr<Held> held) noexcept : m_held(std::move(held)) {}

FileLock::~FileLock() {
    release();
}

FileLock::FileLock(FileLock&& other) noexcept = default;

FileLock& FileLock::operator=(FileLock&& other) noexcept {
    if (this != &other) {
        release();
        m_held = std::move(other.m_held);
    }
    return *this;
}

FileLock FileLock::acquire(const StorageIRI& file, const LockWaitCallback& onWaiting,
                           const LocalFileOptions& options) {
    return FileLock(Acquisition(file, onWaiting, options).run(std::nullopt));
}

FileLock FileLock::tryAcquire(const StorageIRI& file, const LocalFileOptions& options) {
    return FileLock(Acquisition(file, {}, options).run(Clock::time_point::min()));
}

FileLock FileLock::acquireFor(const StorageIRI& file, std::chrono::milliseconds timeout,
                              const LockWaitCallback& onWaiting, const LocalFileOptions& options) {
    return FileLock(Acquisition(file, onWaiting, options).run(Clock::now() + timeout));
}

void FileLock::release() noexcept {
    if (!m_held) {
        return;
    }
    WindowsLocks::instance().remove(*m_held);
    if (!m_held->lockFile.empty()) {
        // Those who wait for it find that the name is gone and look again.
        ::DeleteFileW(m_held->lockFile.c_str());
    }
    m_held.reset();
}

WindowsLocks& WindowsLocks::instance() {
    // Never destroyed: a lock in a static object may be released after every other static is gone.
    static auto* const locks = new WindowsLocks;
    return *locks;
}

void WindowsLocks::add(FileLock::Held& lock) {
    const MutexLock guard(m_mutex);
    m_locks[lock.path] = &lock;
}

void WindowsLocks::remove(const FileLock::Held& lock) noexcept {
    const MutexLock guard(m_mutex);
    const auto found = m_locks.find(lock.path);
    if (found != m_locks.end() && found->second == &lock) {
        m_locks.erase(found);
    }
}

bool WindowsLocks::holds(const fs::path& path) const noexcept {
    const MutexLock guard(m_mutex);
    return m_locks.contains(path);
}

void WindowsLocks::passOn(const fs::path& path, FileHandle file) noexcept {
    const MutexLock guard(m_mutex);
    const auto found = m_locks.find(path);
    if (found == m_locks.end() || !file.isOpen()) {
        return;
    }
    auto& lock = *found->second;
    if (!lock.lockFile.empty()) {
        ::DeleteFileW(lock.lockFile.c_str());
        lock.lockFile.clear();
    }
    lock.file = std::move(file);
}

} // namespace storage::fileprovider
