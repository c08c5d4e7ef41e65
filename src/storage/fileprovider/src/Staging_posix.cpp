#include <storage/fileprovider/src/Staging.h>

#include <storage/fileprovider/src/Failure.h>

#include <cerrno>
#include <fcntl.h>
#include <optional>
#include <sys/file.h>
#include <sys/stat.h>

namespace storage::fileprovider {

namespace {

using foundation::storage::provider::StorageIRI;

// More savers of one file at once than anyone has; a bound for a file system that reports EEXIST for ever.
constexpr unsigned maximalSlots = 10000;

bool cannotStandHere(int error) {
    return error == EACCES || error == EPERM || error == EROFS || error == ENAMETOOLONG;
}

/// Disengaged with `errno` set.
std::optional<Staging> createAt(const EnvironmentPtr& environment, const WorkingNames& names, mode_t mode,
                                bool beside) {
    for (unsigned slot = 0; slot < maximalSlots; ++slot) {
        Staging staging{Descriptor(), names, slot, beside, names.staging(slot), names.journalDraft(slot)};
        const auto& path = staging.path();
        staging.file =
            Descriptor::open(environment->calls, path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, mode);
        if (!staging.file.isOpen()) {
            if (errno != EEXIST) {
                return std::nullopt;
            }
            continue;
        }
        // Between being made and being locked it looks like a dead process's, and may have been removed.
        if (lockFile(staging.file.get(), false) != LockResult::Held && isSameFile(staging.file.get(), path)) {
            return staging;
        }
    }
    errno = EEXIST;
    return std::nullopt;
}

} // namespace

Staging Staging::create(const EnvironmentPtr& environment, const StorageIRI& iri, const std::string& target,
                        mode_t mode, bool elsewhere) {
    const auto names = WorkingNames::beside(target);
    auto staging = createAt(environment, names, mode, true);
    if (staging) {
        return std::move(*staging);
    }
    const int error = errno;
    if (!elsewhere || !cannotStandHere(error)) {
        throwSystemError(iri, error, "cannot create a file in " + names.folder());
    }
    if (const int stateError = makeStateFolder(*environment); stateError != 0) {
        throwSystemError(iri, error,
                         "cannot create a file in " + names.folder() + " nor in the state folder \"" +
                             environment->stateFolder + "\" (" + systemText(stateError) + ")");
    }
    staging =
        createAt(environment, WorkingNames::inStateFolder(environment->stateFolder, target), mode, false);
    if (!staging) {
        throwSystemError(iri, errno, "cannot create a file in " + environment->stateFolder);
    }
    return std::move(*staging);
}

void Staging::remove(const Environment& environment) noexcept {
    environment.calls->unlink(draftPath.c_str());
    environment.calls->unlink(stagingPath.c_str());
}

LockResult lockFile(int file, bool wait) noexcept {
    while (::flock(file, LOCK_EX | (wait ? 0 : LOCK_NB)) != 0) {
        if (errno == EWOULDBLOCK) {
            return LockResult::Held;
        }
        if (errno != EINTR) {
            return LockResult::Impossible;
        }
    }
    return LockResult::Locked;
}

bool isSameFile(int file, const std::string& path) noexcept {
    struct stat opened {};
    struct stat named {};
    return ::fstat(file, &opened) == 0 && ::lstat(path.c_str(), &named) == 0 &&
           opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

} // namespace storage::fileprovider
