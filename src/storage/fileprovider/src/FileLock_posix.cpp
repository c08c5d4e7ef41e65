#include <storage/fileprovider/FileLock.h>

#include <storage/fileprovider/src/Environment.h>
#include <storage/fileprovider/src/Failure.h>
#include <storage/fileprovider/src/HeldLocks.h>
#include <storage/fileprovider/src/LocalPath.h>
#include <storage/fileprovider/src/Staging.h>
#include <storage/fileprovider/src/WorkingNames.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace storage::fileprovider {

using foundation::core::MutexLock;
using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::Exception;
using foundation::storage::provider::StorageIRI;

struct FileLock::Held {
    EnvironmentPtr environment;
    /// Without links.
    std::string path;
    /// The locked file: the one at `path`, or the lock file for its name.
    Descriptor file;
    /// The lock file for the name of a file that cannot be locked itself; empty otherwise.
    std::string lockFile;
};

namespace {

using Clock = std::chrono::steady_clock;
// The system's locks know no time-out, so a wait that has one looks again and again.
constexpr std::chrono::milliseconds lookInterval{10};

class Acquisition {
public:
    Acquisition(const StorageIRI& iri, const LockWaitCallback& onWaiting, const LocalFileOptions& options)
        : m_iri(iri), m_onWaiting(onWaiting), m_environment(Environment::from(options)) {}

    /// Null when `deadline` passed. Waits for ever without one.
    std::shared_ptr<FileLock::Held> run(std::optional<Clock::time_point> deadline) {
        for (;;) {
            auto held = openLockable();
            const auto name = held->lockFile.empty() ? held->path : held->lockFile;
            if (!lock(held->file, deadline)) {
                return nullptr;
            }
            // While this waited, the file may have been replaced, the lock file removed, or the missing file
            // made.
            if (isSameFile(held->file.get(), name) &&
                (held->lockFile.empty() || !canLockFileItself(held->path))) {
                HeldLocks::instance().add(*held);
                return held;
            }
        }
    }

private:
    std::shared_ptr<FileLock::Held> openLockable() {
        auto held = std::make_shared<FileLock::Held>();
        held->environment = m_environment;
        if (const int error = resolveLinks(toLocalPath(m_iri), held->path); error != 0) {
            throwSystemError(m_iri, error);
        }
        held->file = openFileItself(held->path);
        if (!held->file.isOpen()) {
            openLockFile(*held, errno);
        }
        return held;
    }

    Descriptor openFileItself(const std::string& path) {
        struct stat status {};
        if (::stat(path.c_str(), &status) != 0) {
            return {};
        }
        if (!S_ISREG(status.st_mode)) {
            throw Exception(S_ISDIR(status.st_mode) ? ErrorCode::NotFound : ErrorCode::NotSupported, m_iri,
                            "cannot lock what is not a regular file");
        }
        // Opening for reading disturbs nobody, but a network file system may lock only what is open for
        // writing.
        for (const int access : {O_RDONLY, O_WRONLY}) {
            auto file =
                Descriptor::open(m_environment->calls, path.c_str(), access | O_NOFOLLOW | O_NONBLOCK);
            if (file.isOpen() && lockFile(file.get(), false) != LockResult::Impossible) {
                return file;
            }
        }
        errno = EACCES;
        return {};
    }

    bool canLockFileItself(const std::string& path) { return openFileItself(path).isOpen(); }

    void openLockFile(FileLock::Held& held, int error) {
        if (error != ENOENT && error != EACCES && error != EPERM) {
            throwSystemError(m_iri, error, "cannot open the file to lock it");
        }
        if (const int stateError = makeStateFolder(*m_environment); stateError != 0) {
            throwSystemError(m_iri, stateError,
                             "cannot create a lock in the state folder \"" + m_environment->stateFolder +
                                 '"');
        }
        held.lockFile = WorkingNames::inStateFolder(m_environment->stateFolder, held.path).nameLock();
        held.file = Descriptor::open(m_environment->calls, held.lockFile.c_str(),
                                     O_RDWR | O_CREAT | O_NOFOLLOW, 0600);
        if (!held.file.isOpen()) {
            throwSystemError(m_iri, errno, "cannot create " + held.lockFile);
        }
    }

    bool lock(const Descriptor& file, std::optional<Clock::time_point> deadline) {
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
    const EnvironmentPtr m_environment;
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
    HeldLocks::instance().remove(*m_held);
    if (!m_held->lockFile.empty()) {
        // Those who wait for it find that the name is gone and look again.
        m_held->environment->calls->unlink(m_held->lockFile.c_str());
    }
    m_held.reset();
}

HeldLocks& HeldLocks::instance() {
    // Never destroyed: a lock in a static object may be released after every other static is gone.
    static auto* const locks = new HeldLocks;
    return *locks;
}

void HeldLocks::add(FileLock::Held& lock) {
    const MutexLock guard(m_mutex);
    m_locks[lock.path] = &lock;
}

void HeldLocks::remove(const FileLock::Held& lock) noexcept {
    const MutexLock guard(m_mutex);
    const auto found = m_locks.find(lock.path);
    if (found != m_locks.end() && found->second == &lock) {
        m_locks.erase(found);
    }
}

void HeldLocks::passOn(const std::string& path, Descriptor file) noexcept {
    const MutexLock guard(m_mutex);
    const auto found = m_locks.find(path);
    if (found == m_locks.end()) {
        return;
    }
    auto& lock = *found->second;
    if (!lock.lockFile.empty()) {
        lock.environment->calls->unlink(lock.lockFile.c_str());
        lock.lockFile.clear();
    }
    lock.file = std::move(file);
}

} // namespace storage::fileprovider
