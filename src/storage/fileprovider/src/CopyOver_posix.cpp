#include <storage/fileprovider/src/CopyOver.h>

#include <storage/fileprovider/src/ContentSamples.h>
#include <storage/fileprovider/src/Failure.h>
#include <storage/fileprovider/src/FileIdentity.h>
#include <storage/fileprovider/src/FileIo.h>
#include <storage/fileprovider/src/JournalFile.h>
#include <storage/fileprovider/src/LocalPath.h>
#include <storage/fileprovider/src/Recoverer.h>
#include <storage/fileprovider/src/TargetMark.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <fmt/format.h>
#include <optional>
#include <random>
#include <sys/stat.h>
#include <unistd.h>

namespace storage::fileprovider {

namespace {

using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::Exception;
using foundation::storage::provider::StorageIRI;

std::string uniqueId() {
    std::random_device random;
    return fmt::format("{:08x}{:08x}", random(), random());
}

/// Tells one journal from another that stands in its place later; disengaged when there is none.
std::optional<struct stat> statusOfJournal(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 ? std::optional(status) : std::nullopt;
}

bool isSameJournal(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_ctim.tv_sec == b.st_ctim.tv_sec &&
           a.st_ctim.tv_nsec == b.st_ctim.tv_nsec;
}

bool hasSpaceBehindItsEnd(const struct stat& status) {
    constexpr off_t blockCountUnit = 512;
    const auto block = std::max<off_t>(status.st_blksize, blockCountUnit);
    return status.st_blocks * blockCountUnit > (status.st_size + block - 1) / block * block;
}

/// One copy-over from step 1 to step 3.
class CopyOver {
public:
    enum class Begin {
        Done,
        /// The journal of another copy-over stands in the way.
        Occupied,
        /// Another copy-over has ended meanwhile, or another program has written the target.
        TargetChanged,
        /// The target carries the mark of another copy-over, which has come through another hard link.
        Marked,
    };

    CopyOver(const EnvironmentPtr& environment, const StorageIRI& iri, const std::string& target,
             const struct stat& present, Staging& staging)
        : m_environment(environment), m_iri(iri), m_targetPath(target), m_present(present),
          m_staging(staging), m_journalPath(staging.names.journal()) {}

    void openTarget() {
        m_target = openToOverwrite(m_environment, m_targetPath);
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
        m_journal.birthTime = birthTimeOf(m_target.get());
        m_journal.id = uniqueId();
        m_journal.bootId = m_environment->calls->run().id;
        m_journal.target = m_targetPath;
        m_journal.stagingName = nameOf(m_staging.path());
    }

    /// Step 1.
    Begin writeJournal() {
        const auto draft = m_staging.names.journalDraft(m_staging.slot);
        int error = writeJournalDraft(m_environment, m_journal, draft);
        bool occupied = false;
        if (error == 0 && m_environment->calls->renameToFree(draft.c_str(), m_journalPath.c_str()) != 0) {
            error = errno;
            occupied = error == EEXIST;
        }
        if (error != 0) {
            // Whatever journal stands there is another saver's, and so is what it says of the target.
            m_environment->calls->unlink(draft.c_str());
            if (occupied) {
                return Begin::Occupied;
            }
            throwJournalError(error);
        }
        if (error = syncFolder(*m_environment, m_staging.names.folder()); error != 0) {
            static_cast<void>(removeJournal());
            throwJournalError(error);
        }
        std::optional<TargetMark> mark;
        if (error = TargetMark::read(m_target.get(), mark); error != 0 && !TargetMark::isHidden(error)) {
            static_cast<void>(removeJournal());
            throwSystemError(m_iri, error, "cannot tell whether the file is being saved");
        }
        const bool marked = mark.has_value();
        if (marked || !isTargetAsItWas()) {
            giveWay();
            return marked ? Begin::Marked : Begin::TargetChanged;
        }
        return Begin::Done;
    }

    /// Step 2.
    void reserveSpace() {
        int error = reserve(*m_environment, m_target.get(), m_journal.newSize);
        keepModified(m_target.get(), m_present);
        if (error == EOPNOTSUPP) {
            error = m_journal.newSize > m_journal.oldSize ? grow() : 0;
        }
        if (error != 0) {
            static_cast<void>(undo());
            throwSystemError(m_iri, error, "cannot make room for the new contents");
        }
    }

    /// Step 3. Returns false when another copy-over was faster. `begun` becomes true when the step failed and
    /// could not be undone either.
    bool markTarget(bool& begun) {
        if (const int error = sampleContents(*m_environment, m_target.get(), m_journal.oldSize,
                                             m_journal.newSize, m_journal.oldSamples);
            error != 0) {
            static_cast<void>(undo());
            throwSystemError(m_iri, error, "cannot read the present contents");
        }
        const int markError = TargetMark{m_journal.id, m_journalPath}.set(*m_environment, m_target.get());
        if (markError == EEXIST) {
            giveWay();
            return false;
        }
        m_journal.marked = markError == 0;
        const auto before = m_journal.phase;
        int error = syncFile(*m_environment, m_target.get());
        if (error == 0) {
            // Also where this ends by an exception, as when memory runs out.
            begun = true;
            error = advance(CopyOverPhase::Overwriting);
        }
        if (error != 0) {
            m_journal.phase = before;
            // From a journal that may say "overwriting" the save is finished, for which the new contents are
            // needed.
            begun = true;
            begun = undo() != 0;
            throwJournalError(error);
        }
        return true;
    }

    void finish() {
        finishCopyOver(*m_environment, m_iri, m_journal, m_journalPath, m_target.get(), m_staging.file.get());
    }

private:
    /// Before the journal stood, another saver may have been at work on the target.
    bool isTargetAsItWas() const {
        struct stat status {};
        return ::fstat(m_target.get(), &status) == 0 && isSameState(status, m_present) &&
               static_cast<std::uint64_t>(status.st_size) == m_journal.oldSize &&
               isSameFile(m_target.get(), m_targetPath);
    }

    /// What was done to the target is left to the copy-over that has it.
    void giveWay() {
        if (const int error = removeJournal(); error != 0) {
            throwJournalError(error);
        }
    }

    int grow() {
        const int error = advance(CopyOverPhase::Growing);
        return error != 0 ? error
                          : writeZeros(*m_environment, m_target.get(), m_journal.oldSize, m_journal.newSize);
    }

    /// Puts a journal of another phase in the place of the present one.
    int advance(CopyOverPhase phase) {
        m_journal.phase = phase;
        return replaceJournal(m_environment, m_journal, m_staging.names.journalDraft(m_staging.slot),
                              m_journalPath);
    }

    /// For a journal that is this one's own. A failure leaves it, from which the next one who opens the file
    /// undoes the rest.
    int undo() {
        const int error = restoreTarget(*m_environment, m_journal, m_target.get(), false);
        return error != 0 ? error : removeJournal();
    }

    int removeJournal() {
        if (m_environment->calls->unlink(m_journalPath.c_str()) != 0 && errno != ENOENT) {
            return errno;
        }
        return syncFolder(*m_environment, m_staging.names.folder());
    }

    [[noreturn]] void throwJournalError(int error) const {
        throwSystemError(m_iri, error, "cannot write " + m_journalPath);
    }

    const EnvironmentPtr& m_environment;
    const StorageIRI& m_iri;
    const std::string& m_targetPath;
    const struct stat& m_present;
    Staging& m_staging;
    const std::string m_journalPath;
    Descriptor m_target;
    Journal m_journal;
};

/// Makes way for a journal at `journalPath`.
void settleEarlierSave(const EnvironmentPtr& environment, const StorageIRI& iri, const std::string& target,
                       const std::string& journalPath) {
    const auto before = statusOfJournal(journalPath);
    const auto report = Recoverer(environment, iri, target).recoverForSaving();
    const auto after = statusOfJournal(journalPath);
    if (!before || !after || !isSameJournal(*before, *after)) {
        return;
    }
    const auto detail = std::find_if(report.details.begin(), report.details.end(), [&](const auto& text) {
        return text.find(journalPath) != std::string::npos;
    });
    throw Exception(
        ErrorCode::Busy, iri,
        fmt::format("{}; remove {}",
                    detail != report.details.end() ? *detail : "the journal of an earlier save is in the way",
                    journalPath));
}

/// The same for the save whose mark the target carries.
void settleMarkedSave(const EnvironmentPtr& environment, const StorageIRI& iri, const std::string& target) {
    if (::faccessat(AT_FDCWD, target.c_str(), R_OK, AT_EACCESS) != 0 && errno == EACCES) {
        throw Exception(ErrorCode::Busy, iri,
                        "the file is being saved through another hard link, or a save of it was interrupted; "
                        "only who may read the file can tell which");
    }
    static_cast<void>(Recoverer(environment, iri, target).recoverForSaving());
}

} // namespace

bool copyOver(const EnvironmentPtr& environment, const StorageIRI& iri, const std::string& target,
              const struct stat& present, Staging& staging, bool& begun) {
    CopyOver step(environment, iri, target, present, staging);
    step.openTarget();
    auto begin = step.writeJournal();
    if (begin == CopyOver::Begin::Done) {
        step.reserveSpace();
        begin = step.markTarget(begun) ? begin : CopyOver::Begin::Marked;
    }
    if (begin == CopyOver::Begin::Occupied) {
        settleEarlierSave(environment, iri, target, staging.names.journal());
    }
    if (begin == CopyOver::Begin::Marked) {
        settleMarkedSave(environment, iri, target);
    }
    if (begin != CopyOver::Begin::Done) {
        return false;
    }
    begun = true;
    step.finish();
    return true;
}

Descriptor openToOverwrite(const EnvironmentPtr& environment, const std::string& target) {
    constexpr int flags = O_NOFOLLOW | O_NONBLOCK;
    auto file = Descriptor::open(environment->calls, target.c_str(), O_RDWR | flags);
    return file.isOpen() || errno != EACCES
               ? std::move(file)
               : Descriptor::open(environment->calls, target.c_str(), O_WRONLY | flags);
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
        check(TargetMark::remove(environment, target, journal.id));
    }
    check(syncFile(environment, target));
    if (environment.calls->unlink(journalPath.c_str()) != 0 && errno != ENOENT && !journal.marked) {
        check(errno);
    }
    check(syncFolder(environment, folder));
    environment.calls->unlink(stagingPath.c_str());
}

bool mayHaveGrown(const Journal& journal, std::uint64_t size) {
    return journal.phase == CopyOverPhase::Growing && size > journal.oldSize && size <= journal.newSize;
}

int restoreTarget(const Environment& environment, const Journal& journal, int target, bool cutsAnything) {
    struct stat status {};
    if (::fstat(target, &status) != 0) {
        return errno;
    }
    std::optional<TargetMark> mark;
    if (const int error = TargetMark::read(target, mark); error != 0 && !TargetMark::isHidden(error)) {
        return error;
    }
    if (mark && mark->id != journal.id) {
        return 0;
    }
    const auto size = static_cast<std::uint64_t>(status.st_size);
    std::optional<bool> grew = false;
    if (mayHaveGrown(journal, size)) {
        grew = cutsAnything ? true : isZeroFrom(environment, target, journal.oldSize);
        if (!grew && errno == EBADF) {
            // It is not open for reading, so nothing but its size tells what stands there.
            grew = true;
        }
    }
    int error = grew ? 0 : errno;
    if (error == 0 && (*grew || (size == journal.oldSize && hasSpaceBehindItsEnd(status)))) {
        // Cutting to the present size gives back what is reserved behind it.
        error = setSize(environment, target, journal.oldSize);
        keepModified(target, status);
    }
    if (error == 0) {
        error = TargetMark::remove(environment, target, journal.id);
    }
    return error != 0 ? error : syncFile(environment, target);
}

bool isAsTheSystemsStopLeftIt(const Environment& environment, const Journal& journal, int target) {
    const auto run = environment.calls->run();
    struct stat status {};
    return !journal.bootId.empty() && !run.id.empty() && journal.bootId != run.id &&
           ::fstat(target, &status) == 0 && toNanoseconds(status.st_mtim) < run.start;
}

} // namespace storage::fileprovider
