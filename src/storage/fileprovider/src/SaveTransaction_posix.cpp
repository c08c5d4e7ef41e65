#include <storage/fileprovider/src/SaveTransaction.h>

#include <storage/fileprovider/src/CopyOver.h>
#include <storage/fileprovider/src/Failure.h>
#include <storage/fileprovider/src/FileIdentity.h>
#include <storage/fileprovider/src/FileIo.h>
#include <storage/fileprovider/src/HeldLocks.h>
#include <storage/fileprovider/src/LocalPath.h>
#include <storage/fileprovider/src/Recoverer.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <foundation/log/log.h>
#include <unistd.h>

namespace storage::fileprovider {

using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::Exception;
using foundation::storage::provider::StorageIRI;

namespace {

constexpr mode_t anyWriteBit = S_IWUSR | S_IWGRP | S_IWOTH;
// Until it has the target's permissions, nobody else may read what is written.
constexpr mode_t privateMode = S_IRUSR | S_IWUSR;
constexpr mode_t permissionBits = 07777;

const foundation::log::basic_diagnostic_logger& logger() {
    static const foundation::log::basic_diagnostic_logger instance("storage::fileprovider::SaveTransaction");
    return instance;
}

/// Whether a file that was given the identity of one has that of the other too.
bool isSameIdentity(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_mode == b.st_mode && a.st_uid == b.st_uid &&
           a.st_gid == b.st_gid;
}

/// Why renaming cannot put a file in a place where it may be overwritten: a mounted file, a folder whose
/// files only their owners may replace.
bool needsOverwriting(int error) {
    return error == EXDEV || error == EBUSY || error == EPERM || error == EACCES;
}

} // namespace

SaveTransaction::SaveTransaction(EnvironmentPtr environment, const StorageIRI& iri,
                                 const SaveRequest& request)
    : m_environment(std::move(environment)), m_iri(iri), m_request(request), m_mark(m_iri) {
    if (const int error = resolveLinks(toLocalFilePath(iri), m_target); error != 0) {
        throwSystemError(m_iri, error);
    }
    m_before = readTarget();
    if (m_before && m_request.mustNotExist) {
        throwSystemError(m_iri, EEXIST);
    }
    if (!m_before && m_request.mustExist) {
        throwSystemError(m_iri, ENOENT);
    }
    if (m_before) {
        requireWritable(*m_before);
    }
    static_cast<void>(Recoverer(m_environment, m_iri, m_target).recoverForSaving());
    m_before = readTarget();
    m_staging = Staging::create(m_environment, m_iri, m_target, m_before ? privateMode : m_request.mode,
                                m_before.has_value());
    try {
        if (m_before && m_request.keep > 0) {
            fillFromTarget();
        }
    } catch (...) {
        discard();
        throw;
    }
}

SaveTransaction::~SaveTransaction() {
    discard();
}

SaveTransaction::Status SaveTransaction::readTarget() const {
    struct stat status {};
    if (::lstat(m_target.c_str(), &status) != 0) {
        if (errno == ENOENT) {
            return std::nullopt;
        }
        throwSystemError(m_iri, errno);
    }
    if (S_ISDIR(status.st_mode)) {
        throw Exception(ErrorCode::AlreadyExists, m_iri, "a folder of that name exists");
    }
    if (S_ISLNK(status.st_mode)) {
        throw Exception(ErrorCode::Busy, m_iri,
                        "a symbolic link was put in the file's place while it was being saved");
    }
    if (!S_ISREG(status.st_mode)) {
        throw Exception(ErrorCode::NotSupported, m_iri, "not a regular file");
    }
    return status;
}

void SaveTransaction::requireWritable(const struct stat& target) const {
    if ((target.st_mode & anyWriteBit) == 0) {
        throw Exception(ErrorCode::NotWritable, m_iri, "the file is read-only");
    }
    if (::faccessat(AT_FDCWD, m_target.c_str(), W_OK, AT_EACCESS) != 0) {
        throwSystemError(m_iri, errno);
    }
}

void SaveTransaction::fillFromTarget() {
    const auto target =
        Descriptor::open(m_environment->calls, m_target.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    struct stat status {};
    if (!target.isOpen() || ::fstat(target.get(), &status) != 0) {
        throwSystemError(m_iri, errno, "cannot read the present contents");
    }
    m_before = status;
    const auto size = std::min(m_request.keep, static_cast<std::uint64_t>(status.st_size));
    int error = copyBytes(*m_environment, target.get(), file(), size, true);
    if (error == 0) {
        error = setSize(*m_environment, file(), size);
    }
    if (error != 0) {
        throwSystemError(m_iri, error, "cannot copy the present contents to " + m_staging->path());
    }
}

void SaveTransaction::commit() {
    for (;;) {
        const auto target = readTarget();
        if (!target) {
            if (commitNewFile()) {
                return;
            }
            continue;
        }
        if (m_request.mustNotExist) {
            throwSystemError(m_iri, EEXIST);
        }
        requireUnchanged(*target);
        if (commitReplacement(*target)) {
            return;
        }
    }
}

bool SaveTransaction::commitNewFile() {
    if (!m_staging->beside) {
        throw Exception(ErrorCode::NotFound, m_iri, "the file was removed while it was being saved");
    }
    int error = 0;
    if (m_before && m_environment->calls->setMode(file(), m_before->st_mode & permissionBits) != 0) {
        error = errno;
    }
    if (error == 0) {
        error = syncFile(*m_environment, file());
    }
    if (error != 0) {
        throwSystemError(m_iri, error, "cannot save");
    }
    // From the renaming on nothing may fail before the lock is passed on.
    const auto folder = m_staging->names.folder();
    if (m_environment->calls->renameToFree(m_staging->path().c_str(), m_target.c_str()) != 0) {
        if (errno == EEXIST) {
            return false;
        }
        throwSystemError(m_iri, errno, "cannot save");
    }
    KX_LOG(logger()) << " target=" << m_target << " way=new";
    HeldLocks::instance().passOn(m_target, std::move(m_staging->file));
    m_staging.reset();
    if (const int syncError = syncFolder(*m_environment, folder); syncError != 0) {
        throwSystemError(m_iri, syncError, "cannot sync " + folder);
    }
    return true;
}

void SaveTransaction::requireUnchanged(const struct stat& target) const {
    if (m_request.keep == 0 || (m_before && isSameState(*m_before, target))) {
        return;
    }
    throw Exception(ErrorCode::Busy, m_iri,
                    m_before ? "another program changed the file while it was open for writing"
                             : "another program made the file while it was open for writing");
}

bool SaveTransaction::commitReplacement(const struct stat& target) {
    const bool wholeIdentity = transferIdentity(*m_environment, m_target, file());
    if (const int error = syncFile(*m_environment, file()); error != 0) {
        throwSystemError(m_iri, error, "cannot save");
    }
    // Syncing may have taken long.
    const auto present = readTarget();
    if (!present || !isSameIdentity(*present, target)) {
        return false;
    }
    requireUnchanged(*present);
    if (m_staging->beside && wholeIdentity && present->st_nlink == 1 && replaceByRenaming()) {
        return true;
    }
    KX_LOG(logger()) << " target=" << m_target << " way=overwrite";
    bool begun = false;
    try {
        if (!copyOver(m_environment, m_iri, m_target, *present, *m_staging, begun)) {
            return false;
        }
    } catch (...) {
        if (begun) {
            m_staging.reset();
        }
        throw;
    }
    m_staging.reset();
    return true;
}

bool SaveTransaction::replaceByRenaming() {
    const auto folder = m_staging->names.folder();
    if (m_environment->calls->rename(m_staging->path().c_str(), m_target.c_str()) != 0) {
        if (needsOverwriting(errno)) {
            return false;
        }
        throwSystemError(m_iri, errno, "cannot save");
    }
    KX_LOG(logger()) << " target=" << m_target << " way=rename";
    HeldLocks::instance().passOn(m_target, std::move(m_staging->file));
    m_staging.reset();
    if (const int error = syncFolder(*m_environment, folder); error != 0) {
        throwSystemError(m_iri, error, "cannot sync " + folder);
    }
    return true;
}

void SaveTransaction::discard() noexcept {
    if (m_staging) {
        m_staging->remove(*m_environment);
        m_staging.reset();
    }
}

} // namespace storage::fileprovider
