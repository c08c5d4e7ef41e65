#include <storage/fileprovider/src/CopyOver.h>

#include <storage/fileprovider/src/Failure.h>
#include <storage/fileprovider/src/FileIo.h>
#include <storage/fileprovider/src/LocalPath.h>
#include <storage/fileprovider/src/Recoverer.h>
#include <storage/fileprovider/src/TargetMark.h>

#include <cerrno>
#include <fcntl.h>
#include <fmt/format.h>
#include <fstream>
#include <random>
#include <sys/stat.h>

namespace storage::fileprovider {

namespace {

using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::Exception;
using foundation::storage::provider::StorageIRI;

// The journal holds no secrets, and whoever may read the target must be able to see that it is half written.
constexpr mode_t journalMode = 0644;

std::string uniqueId() {
    std::random_device random;
    return fmt::format("{:08x}{:08x}", random(), random());
}

/// Writes the journal under its draft name and has it synced. Returns 0 or an errno.
int writeDraft(const EnvironmentPtr& environment, const Journal& journal, const std::string& draft) {
    environment->calls->unlink(draft.c_str());
    auto file = Descriptor::open(environment->calls, draft.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW,
                                 journalMode);
    if (!file.isOpen()) {
        return errno;
    }
    const auto bytes = encodeJournal(journal);
    if (const int error =
            writeAt(*environment, file.get(), bytes.data(), static_cast<std::int64_t>(bytes.size()), 0);
        error != 0) {
        return error;
    }
    if (const int error = syncFile(*environment, file.get()); error != 0) {
        return error;
    }
    return file.close();
}

/// One copy-over from step 1 to step 3.
class CopyOver {
public:
    CopyOver(const EnvironmentPtr& environment, const StorageIRI& iri, const std::string& target,
             Staging& staging)
        : m_environment(environment), m_iri(iri), m_targetPath(target), m_staging(staging),
          m_journalPath(staging.names.journal()) {}

    void openTarget() {
        constexpr int flags = O_NOFOLLOW | O_NONBLOCK;
        m_target = Descriptor::open(m_environment->calls, m_targetPath.c_str(), O_WRONLY | flags);
        struct stat status {};
        struct stat stagingStatus {};
        if (!m_target.isOpen() || ::fstat(m_target.get(), &status) != 0 ||
            ::fstat(m_staging.file.get(), &stagingStatus) != 0) {
            throwSystemError(m_iri, errno, "cannot open the file for writing");
        }
        if (!S_ISREG(status.st_mode)) {
            throw Exception(ErrorCode::NotSupported, m_iri, "not a regular file");
        }
        m_journal.device = status.st_dev;
        m_journal.inode = status.st_ino;
        m_journal.oldSize = static_cast<std::uint64_t>(status.st_size);
        m_journal.newSize = static_cast<std::uint64_t>(stagingStatus.st_size);
        m_journal.stagingInode = stagingStatus.st_ino;
        m_journal.id = uniqueId();
        m_journal.bootId = currentBootId();
        m_journal.target = m_targetPath;
        m_journal.stagingName = nameOf(m_staging.path());
    }

    /// Step 1. Returns false when the journal of another copy-over stands in the way.
    bool writeJournal() {
        const auto draft = m_staging.names.journalDraft(m_staging.slot);
        int error = writeDraft(m_environment, m_journal, draft);
        if (error == 0 && m_environment->calls->renameToFree(draft.c_str(), m_journalPath.c_str()) != 0) {
            if (errno == EEXIST) {
                return false;
            }
            error = errno;
        }
        if (error == 0) {
            error = syncFolder(*m_environment, m_staging.names.folder());
        }
        if (error != 0) {
            static_cast<void>(undo());
            throwSystemError(m_iri, error, "cannot write " + m_journalPath);
        }
        return true;
    }

    /// Step 2.
    void reserveSpace() {
        const int error = reserve(*m_environment, m_target.get(), m_journal.oldSize, m_journal.newSize);
        if (error != 0) {
            static_cast<void>(undo());
            throwSystemError(m_iri, error, "cannot make room for the new contents");
        }
    }

    /// Step 3. `begun` becomes true when the step failed and could not be undone either.
    void markTarget(bool& begun) {
        m_journal.marked = TargetMark{m_journal.id, m_journalPath}.set(*m_environment, m_target.get());
        m_journal.phase = CopyOverPhase::Overwriting;
        const auto draft = m_staging.names.journalDraft(m_staging.slot);
        int error = syncFile(*m_environment, m_target.get());
        if (error == 0) {
            error = writeDraft(m_environment, m_journal, draft);
        }
        if (error == 0 && m_environment->calls->rename(draft.c_str(), m_journalPath.c_str()) != 0) {
            error = errno;
        }
        if (error == 0) {
            error = syncFolder(*m_environment, m_staging.names.folder());
        }
        if (error != 0) {
            // From a journal that may say "overwriting" the save is finished, for which the new contents are
            // needed.
            begun = undo() != 0;
            throwSystemError(m_iri, error, "cannot write " + m_journalPath);
        }
    }

    void finish() {
        finishCopyOver(*m_environment, m_iri, m_journal, m_journalPath, m_target.get(), m_staging.file.get());
    }

private:
    /// A failure leaves the journal, from which the next one who opens the file undoes the rest.
    int undo() { return undoCopyOver(*m_environment, m_journal, m_journalPath, m_target.get()); }

    const EnvironmentPtr& m_environment;
    const StorageIRI& m_iri;
    const std::string& m_targetPath;
    Staging& m_staging;
    const std::string m_journalPath;
    Descriptor m_target;
    Journal m_journal;
};

} // namespace

void copyOver(const EnvironmentPtr& environment, const StorageIRI& iri, const std::string& target,
              Staging& staging, bool& begun) {
    for (;;) {
        CopyOver step(environment, iri, target, staging);
        step.openTarget();
        if (!step.writeJournal()) {
            const auto report = Recoverer(environment, iri, target).recoverAll();
            if (report.outcome == RecoveryOutcome::LeftAlone) {
                throw Exception(ErrorCode::Busy, iri,
                                report.details.back() + "; remove " + staging.names.journal());
            }
            continue;
        }
        step.reserveSpace();
        step.markTarget(begun);
        begun = true;
        step.finish();
        return;
    }
}

void finishCopyOver(const Environment& environment, const StorageIRI& iri, const Journal& journal,
                    const std::string& journalPath, int target, int stagingFile) {
    const auto folder = std::string(parentOf(journalPath));
    const auto stagingPath = folder + '/' + journal.stagingName;
    const auto check = [&](int error) {
        if (error != 0) {
            throwSystemError(iri, error,
                             "cannot finish saving; opening the file again tries once more, the new contents "
                             "are in " +
                                 stagingPath);
        }
    };
    check(copyBytes(environment, stagingFile, target, journal.newSize, false));
    check(setSize(environment, target, journal.newSize));
    check(syncFile(environment, target));
    if (journal.marked) {
        check(TargetMark::remove(environment, target));
    }
    check(syncFile(environment, target));
    if (environment.calls->unlink(journalPath.c_str()) != 0 && errno != ENOENT && !journal.marked) {
        check(errno);
    }
    check(syncFolder(environment, folder));
    environment.calls->unlink(stagingPath.c_str());
}

int undoCopyOver(const Environment& environment, const Journal& journal, const std::string& journalPath,
                 int target) {
    struct stat status {};
    if (::fstat(target, &status) != 0) {
        return errno;
    }
    int error = 0;
    if (static_cast<std::uint64_t>(status.st_size) > journal.oldSize) {
        error = setSize(environment, target, journal.oldSize);
    }
    if (error == 0) {
        error = TargetMark::remove(environment, target);
    }
    if (error == 0) {
        error = syncFile(environment, target);
    }
    if (error == 0 && environment.calls->unlink(journalPath.c_str()) != 0 && errno != ENOENT) {
        error = errno;
    }
    return error != 0 ? error : syncFolder(environment, std::string(parentOf(journalPath)));
}

std::string currentBootId() {
    std::ifstream file("/proc/sys/kernel/random/boot_id");
    std::string id;
    std::getline(file, id);
    return id;
}

} // namespace storage::fileprovider
