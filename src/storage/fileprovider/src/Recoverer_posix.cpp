#include <storage/fileprovider/src/Recoverer.h>

#include <storage/fileprovider/src/ContentSamples.h>
#include <storage/fileprovider/src/CopyOver.h>
#include <storage/fileprovider/src/Failure.h>
#include <storage/fileprovider/src/FileIo.h>
#include <storage/fileprovider/src/JournalFile.h>
#include <storage/fileprovider/src/KeptCopy.h>
#include <storage/fileprovider/src/LocalPath.h>
#include <storage/fileprovider/src/Staging.h>
#include <storage/fileprovider/src/Strays.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <fmt/format.h>
#include <foundation/log/log.h>
#include <sys/stat.h>
#include <unistd.h>

namespace storage::fileprovider {

using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::Exception;
using foundation::storage::provider::StorageIRI;

namespace {

const foundation::log::basic_diagnostic_logger& logger() {
    static const foundation::log::basic_diagnostic_logger instance("storage::fileprovider::Recoverer");
    return instance;
}

// A slot becomes free when its saver is done, so dead ones may stand behind free ones.
constexpr unsigned thoroughlyEmptySlots = 4;

/// The path of another item in the folder of the one at `path`.
std::string besideOf(const std::string& path, std::string_view name) {
    return path.substr(0, path.size() - nameOf(path).size()) + std::string(name);
}

} // namespace

struct Recoverer::OpenJournal {
    std::string path;
    std::string bytes;
    uid_t owner = 0;
    Journal content;

    std::string stagingPath() const { return besideOf(path, content.stagingName); }
    /// The staging file of another save must not be touched, whatever the journal says.
    bool namesItsOwnStaging() const {
        const auto draft = journalDraftFor(stagingPath());
        return draft.compare(0, path.size(), path) == 0 &&
               draft.find_first_not_of("0123456789", path.size()) == std::string::npos;
    }
};

Recoverer::Recoverer(const EnvironmentPtr& environment, const StorageIRI& iri, const std::string& target)
    : m_environment(environment), m_iri(iri), m_target(target),
      m_places(WorkingPlaces::of(*environment, target)) {}

RecoveryReport Recoverer::recoverAll() {
    auto report = run(thoroughlyEmptySlots);
    if (!hasSeenAllPlaces()) {
        failUnseen();
    }
    return report;
}

RecoveryReport Recoverer::recoverForSaving() {
    auto report = run(thoroughlyEmptySlots);
    requireKnownWhole();
    return report;
}

RecoveryReport Recoverer::recoverForMoving() {
    auto report = run(1);
    requireKnownWhole();
    return report;
}

RecoveryReport Recoverer::recoverForReading() {
    return run(1);
}

RecoveryReport Recoverer::run(unsigned emptySlots) {
    while (settleJournals() == Next::LookAgain) {
    }
    for (const auto& names : m_places.names) {
        for (const auto& path : removeStrays(m_environment, m_places.names, names, emptySlots)) {
            found(RecoveryOutcome::DiscardedUnfinishedSave,
                  fmt::format("a save was interrupted before it touched the file; removed {}", path));
        }
    }
    if (m_report.outcome != RecoveryOutcome::Nothing) {
        for (const auto& detail : m_report.details) {
            KX_LOG(logger()) << " target=" << m_target << " " << detail;
        }
    }
    return std::move(m_report);
}

void Recoverer::requireKnownWhole() const {
    if (!hasSeenAllPlaces() && !TargetMark::isKnownMissing(m_target)) {
        failUnseen();
    }
}

void Recoverer::failUnseen() const {
    throwSystemError(m_iri, m_places.stateError,
                     "cannot look for interrupted saves in " + m_environment->stateFolder);
}

std::optional<TargetMark> Recoverer::readMark() {
    std::optional<TargetMark> mark;
    const int error = TargetMark::read(m_target, mark);
    m_markIsHidden = TargetMark::isHidden(error);
    if (error != 0 && !m_markIsHidden) {
        throwSystemError(m_iri, error, "cannot tell whether a save of the file was interrupted");
    }
    return mark;
}

Recoverer::Next Recoverer::settleJournals() {
    m_mark = readMark();
    std::vector<std::string> paths;
    for (const auto& names : m_places.names) {
        paths.push_back(names.journal());
    }
    if (m_mark && std::find(paths.begin(), paths.end(), m_mark->journalPath) == paths.end()) {
        paths.push_back(m_mark->journalPath);
    }
    for (const auto& path : paths) {
        if (settleJournal(path) == Next::LookAgain) {
            return Next::LookAgain;
        }
    }
    const auto mark = readMark();
    if (mark && mark->id == m_harmlessMark) {
        return Next::Done;
    }
    if (mark && m_mark && mark->id == m_mark->id) {
        // The mark goes before its journal does, so the journal was lost or is out of sight, or the file is a
        // copy of a half written one.
        fail(ErrorCode::LocalFileSystem,
             fmt::format(
                 "a save was interrupted while it overwrote the file, and there is no journal for it at {}; "
                 "the file may be half old and half new (to use it as it is, remove its extended "
                 "attribute {})",
                 mark->journalPath, TargetMark::attributeName));
    }
    return mark ? Next::LookAgain : Next::Done;
}

Recoverer::Next Recoverer::settleJournal(const std::string& path) {
    const auto file = openWorkingFile(m_environment, path);
    if (!file.isOpen()) {
        const int error = errno;
        if (isMissing(error)) {
            return Next::Done;
        }
        if (isOutOfSight(path)) {
            m_places.stateError = error;
            return Next::Done;
        }
        throwSystemError(m_iri, error, "cannot read the journal " + path + " of an interrupted save");
    }
    struct stat status {};
    OpenJournal journal;
    journal.path = path;
    journal.bytes.resize(maximalJournalSize);
    const auto size = readAt(*m_environment, file.get(), journal.bytes.data(),
                             static_cast<std::int64_t>(journal.bytes.size()), 0);
    if (size < 0 || ::fstat(file.get(), &status) != 0) {
        throwSystemError(m_iri, errno, "cannot read the journal " + path + " of an interrupted save");
    }
    journal.bytes.resize(static_cast<std::size_t>(size));
    journal.owner = status.st_uid;
    auto content = S_ISREG(status.st_mode) ? decodeJournal(journal.bytes) : std::nullopt;
    journal.content = content.value_or(Journal());
    if (!content || !journal.namesItsOwnStaging()) {
        fail(ErrorCode::LocalFileSystem,
             fmt::format(
                 "the journal {} of an interrupted save is damaged; the file may be half old and half new, "
                 "the new contents stand beside the journal (to use the file as it is, remove the journal)",
                 path));
    }
    auto staging = openWorkingFile(m_environment, journal.stagingPath());
    if (staging.isOpen()) {
        return settleValid(journal, staging);
    }
    if (errno == ENOENT) {
        return settleWithoutStaging(journal);
    }
    fail(toErrorCode(errno),
         fmt::format("user {} is saving the file, or was interrupted while saving it, and only that user can "
                     "finish it: cannot read {}: {}",
                     journal.owner, journal.stagingPath(), systemText(errno)));
}

bool Recoverer::isOutOfSight(const std::string& path) const {
    struct stat status {};
    return path != m_places.names.front().journal() && !(m_mark && m_mark->journalPath == path) &&
           ::lstat(path.c_str(), &status) != 0;
}

Recoverer::Next Recoverer::settleValid(const OpenJournal& journal, Descriptor& staging) {
    switch (lockFile(staging.get(), false)) {
    case LockResult::Locked:
        break;
    case LockResult::Held:
        if (lockFile(staging.get(), true) == LockResult::Locked) {
            return Next::LookAgain;
        }
        [[fallthrough]];
    case LockResult::Impossible:
        fail(ErrorCode::Busy,
             fmt::format(
                 "the file is being saved, or a save of it was interrupted; the file system cannot tell "
                 "which, since it cannot lock {}: {}",
                 journal.stagingPath(), systemText(errno)));
    }
    if (!isUnchanged(journal) || !isSameFile(staging.get(), journal.stagingPath())) {
        return Next::LookAgain;
    }
    if (!settleMatched(journal)) {
        finishOverwriting(journal, staging);
    }
    return Next::Done;
}

Recoverer::Next Recoverer::settleWithoutStaging(const OpenJournal& journal) {
    if (!isUnchanged(journal)) {
        return Next::LookAgain;
    }
    if (!settleMatched(journal)) {
        fail(ErrorCode::LocalFileSystem,
             fmt::format(
                 "a save was interrupted while it overwrote the file, and the new contents, {}, are "
                 "missing; the file may be half old and half new (to use it as it is, remove {} and the "
                 "file's extended attribute {})",
                 journal.stagingPath(), journal.path, TargetMark::attributeName));
    }
    return Next::Done;
}

bool Recoverer::settleMatched(const OpenJournal& journal) {
    const auto match = compareWithTarget(journal);
    if (match == Match::Replaced) {
        found(RecoveryOutcome::LeftAlone,
              fmt::format(
                  "an interrupted save left {} and {}, which do not belong to the file: it was replaced "
                  "since",
                  journal.path, journal.stagingPath()));
        return true;
    }
    if (isFinished(journal.content)) {
        discard(journal, RecoveryOutcome::FinishedSave,
                "a save was interrupted after it had written the file");
        return true;
    }
    if (journal.content.phase != CopyOverPhase::Overwriting) {
        discardPrepared(journal);
        return true;
    }
    if (match == Match::Changed) {
        failChanged(journal);
    }
    return false;
}

Recoverer::Match Recoverer::compareWithTarget(const OpenJournal& journal) const {
    struct stat status {};
    const auto& content = journal.content;
    const bool marked = m_mark && m_mark->id == content.id;
    const auto run = m_environment->calls->run();
    const bool sameRun = !run.id.empty() && run.id == content.bootId;
    const auto file = Descriptor::open(m_environment->calls, m_target.c_str(), O_PATH | O_NOFOLLOW);
    if ((!file.isOpen() && !isAbsence(errno)) || (file.isOpen() && ::fstat(file.get(), &status) != 0)) {
        throwSystemError(m_iri, errno, "cannot compare the file with the journal " + journal.path);
    }
    // Another hard link to the file, or a renamed file, is recognised by the mark.
    if (!S_ISREG(status.st_mode) || status.st_ino != content.inode ||
        (sameRun && status.st_dev != content.device) ||
        (!marked && nameOf(content.target) != nameOf(m_target))) {
        return Match::Replaced;
    }
    // The number of a removed file is given to another one before long.
    const auto birthTime = birthTimeOf(file.get());
    if (birthTime != 0 && content.birthTime != 0 && birthTime != content.birthTime) {
        return Match::Replaced;
    }
    const auto smallest = std::min(content.oldSize, content.newSize);
    const auto largest = std::max(content.oldSize, content.newSize);
    const auto size = static_cast<std::uint64_t>(status.st_size);
    return size >= smallest && size <= largest ? Match::Matches : Match::Changed;
}

bool Recoverer::isFinished(const Journal& journal) const {
    return journal.phase == CopyOverPhase::Overwriting && journal.marked && !m_markIsHidden &&
           !(m_mark && m_mark->id == journal.id);
}

bool Recoverer::isTrustedFor(const OpenJournal& journal, uid_t fileOwner) {
    return journal.owner == ::geteuid() || journal.owner == 0 || journal.owner == fileOwner;
}

void Recoverer::requireTrust(const OpenJournal& journal) const {
    struct stat status {};
    const bool marked = m_mark && m_mark->id == journal.content.id;
    // In a folder where everyone may create files, a journal of a stranger could name any bytes as the
    // contents.
    if (marked || isTrustedFor(journal, ::geteuid()) ||
        (::stat(m_target.c_str(), &status) == 0 && isTrustedFor(journal, status.st_uid))) {
        return;
    }
    fail(ErrorCode::AccessDenied,
         fmt::format(
             "user {} was interrupted while saving the file, and only that user can finish it (to use the "
             "file as it is, remove {})",
             journal.owner, journal.path));
}

bool Recoverer::isUnchanged(const OpenJournal& journal) const {
    const auto file = openWorkingFile(m_environment, journal.path);
    std::string bytes(maximalJournalSize, '\0');
    const auto size = file.isOpen() ? readAt(*m_environment, file.get(), bytes.data(),
                                             static_cast<std::int64_t>(bytes.size()), 0)
                                    : -1;
    return size >= 0 && bytes.substr(0, static_cast<std::size_t>(size)) == journal.bytes;
}

void Recoverer::discardPrepared(const OpenJournal& journal) {
    if (!restorePrepared(journal)) {
        m_harmlessMark = journal.content.id;
        found(RecoveryOutcome::LeftAlone,
              fmt::format("a save was interrupted before it touched the file; {} and {} are left to who may "
                          "write the file",
                          journal.path, journal.stagingPath()));
        return;
    }
    removeDrafts(journal);
    discard(journal, RecoveryOutcome::DiscardedUnfinishedSave,
            "a save was interrupted before it touched the file");
}

bool Recoverer::restorePrepared(const OpenJournal& journal) {
    struct stat status {};
    const bool marked = m_mark && m_mark->id == journal.content.id;
    const bool hasStatus = ::stat(m_target.c_str(), &status) == 0;
    if (!hasStatus && !isAbsence(errno)) {
        throwSystemError(m_iri, errno, "cannot undo an interrupted save that " + journal.path + " describes");
    }
    const auto size = static_cast<std::uint64_t>(status.st_size);
    const bool hasGrown =
        journal.content.phase == CopyOverPhase::Growing && hasStatus && size > journal.content.oldSize;
    if (hasGrown) {
        requireTrust(journal);
    }
    const bool mustRestore = marked || hasGrown;
    const bool named = marked && m_mark->journalPath == journal.path;
    const bool isOld = named && hasStatus && size == journal.content.oldSize;
    if ((!mustRestore || isOld) && !openToOverwrite(m_environment, m_target).isOpen()) {
        // At most there is space to give back, and nobody misses it. A mark without its journal would say
        // that the file is broken.
        return !marked;
    }
    const auto target = openTarget(journal);
    // Not zeros, which is all that the save has written there.
    const bool garbled = mayHaveGrown(journal.content, size) &&
                         !isZeroFrom(*m_environment, target.get(), journal.content.oldSize).value_or(true) &&
                         isAsTheSystemsStopLeftIt(*m_environment, journal.content, target.get());
    if (garbled) {
        keepWhatIsOverwritten(journal, target.get());
    }
    const int error = restoreTarget(*m_environment, journal.content, target.get(), garbled);
    if (error != 0 && mustRestore) {
        throwSystemError(m_iri, error, "cannot undo an interrupted save that " + journal.path + " describes");
    }
    return true;
}

void Recoverer::finishOverwriting(const OpenJournal& journal, const Descriptor& staging) {
    requireTrust(journal);
    struct stat status {};
    if (::fstat(staging.get(), &status) != 0) {
        throwSystemError(m_iri, errno, "cannot finish an interrupted save from " + journal.stagingPath());
    }
    if (!S_ISREG(status.st_mode) || status.st_ino != journal.content.stagingInode ||
        status.st_uid != journal.owner ||
        static_cast<std::uint64_t>(status.st_size) != journal.content.newSize) {
        fail(ErrorCode::LocalFileSystem,
             fmt::format(
                 "a save was interrupted while it overwrote the file, and {} does not hold the new contents "
                 "that the journal {} describes; the file may be half old and half new",
                 journal.stagingPath(), journal.path));
    }
    const auto target = openTarget(journal);
    requireStoppedCopy(journal, target.get(), staging.get());
    removeDrafts(journal);
    finishCopyOver(*m_environment, m_iri, journal.content, journal.path, target.get(), staging.get());
    m_mark.reset();
    found(RecoveryOutcome::FinishedSave,
          fmt::format(
              "a save was interrupted while it overwrote the file; the new contents, {} bytes, are in place",
              journal.content.newSize));
}

void Recoverer::removeDrafts(const OpenJournal& journal) const {
    m_environment->calls->unlink(journalDraftFor(journal.stagingPath()).c_str());
    m_environment->calls->unlink(copyDraftFor(journal.stagingPath()).c_str());
}

void Recoverer::discard(const OpenJournal& journal, RecoveryOutcome outcome, const std::string& what) {
    if (m_environment->calls->unlink(journal.path.c_str()) != 0 && errno != ENOENT) {
        // It may be another user's. It says nothing that the next one could not find out again.
        found(RecoveryOutcome::LeftAlone,
              fmt::format("{}, and cannot remove its journal {}: {}", what, journal.path, systemText(errno)));
        return;
    }
    m_environment->calls->unlink(journal.stagingPath().c_str());
    found(outcome, fmt::format("{}; removed {} and {}", what, journal.path, journal.stagingPath()));
}

void Recoverer::requireStoppedCopy(const OpenJournal& journal, int target, int staging) {
    const auto& content = journal.content;
    bool fits = false;
    const int error = compareWithStoppedCopy(
        *m_environment, target, {content.oldSamples, content.oldSize, content.newSize, staging}, fits);
    if (error != 0) {
        throwSystemError(m_iri, error, "cannot compare the file with the journal " + journal.path);
    }
    if (fits) {
        return;
    }
    if (!isAsTheSystemsStopLeftIt(*m_environment, content, target)) {
        failChanged(journal);
    }
    keepWhatIsOverwritten(journal, target);
    const int renewError = renewJournal(m_environment, content, journal.path, journal.owner, target);
    const bool isAnothers = renewError == EPERM && journal.owner != ::geteuid();
    if (renewError != 0 && !isAnothers) {
        throwSystemError(m_iri, renewError,
                         "cannot finish an interrupted save: cannot write " + journal.path);
    }
}

void Recoverer::keepWhatIsOverwritten(const OpenJournal& journal, int target) {
    std::string copy;
    if (const int error = keepCopyBeside(journal, target, copy); error != 0) {
        // Not the code of the copy's failure: who replaces the file need not settle its save.
        fail(ErrorCode::LocalFileSystem,
             fmt::format("the system has stopped while a save of the file was interrupted, and what the file "
                         "holds cannot be copied to {} before that save is finished or undone: {}",
                         copy, systemText(error)));
    }
    // At once: what follows may fail, and the next recovery knows nothing of the copy.
    KX_LOG(logger()) << " target=" << m_target << " copy=" << copy;
    found(RecoveryOutcome::DiscardedUnfinishedSave,
          fmt::format("the system has stopped while a save was interrupted, and the file held bytes that are "
                      "neither from before nor from that save; {} is a copy of it",
                      copy));
}

int Recoverer::keepCopyBeside(const OpenJournal& journal, int target, std::string& copy) const {
    const auto draft = copyDraftFor(journal.stagingPath());
    if (journal.owner == ::geteuid()) {
        return keepCopy(m_environment, target, m_target, parentOf(journal.path), draft, copy);
    }
    copy = besideOf(journal.path, keptCopyName(m_target));
    const auto opened = openJournalFolder(m_environment, journal.path, journal.owner);
    if (!opened.isOpen()) {
        return errno;
    }
    const auto inside = fmt::format("/proc/self/fd/{}", opened.get());
    const int error =
        keepCopy(m_environment, target, m_target, inside, inside + '/' + std::string(nameOf(draft)), copy);
    copy = besideOf(journal.path, nameOf(copy));
    return error;
}

void Recoverer::failChanged(const OpenJournal& journal) const {
    fail(ErrorCode::LocalFileSystem,
         fmt::format(
             "a save was interrupted while it overwrote the file, and another program changed the file "
             "since; the new contents are in {} (to use the file as it is, remove {} and the file's "
             "extended attribute {})",
             journal.stagingPath(), journal.path, TargetMark::attributeName));
}

Descriptor Recoverer::openTarget(const OpenJournal& journal) const {
    auto target = openToOverwrite(m_environment, m_target);
    struct stat status {};
    if (!target.isOpen()) {
        throwSystemError(m_iri, errno,
                         "a save was interrupted, and finishing it needs permission to write the file");
    }
    if (::fstat(target.get(), &status) != 0) {
        throwSystemError(m_iri, errno, "cannot finish or undo an interrupted save");
    }
    const auto& content = journal.content;
    const bool isTouched = content.phase == CopyOverPhase::Overwriting ||
                           mayHaveGrown(content, static_cast<std::uint64_t>(status.st_size));
    std::optional<TargetMark> mark;
    if (isTouched && !isTrustedFor(journal, status.st_uid)) {
        // The mark, and with it the trust, was another file's if its path leads elsewhere by now.
        if (const int error = TargetMark::read(target.get(), mark); error != 0) {
            throwSystemError(m_iri, error, "cannot finish or undo an interrupted save");
        }
    }
    const bool isTrusted =
        !isTouched || isTrustedFor(journal, status.st_uid) || (mark && mark->id == content.id);
    if (status.st_ino != content.inode || !isTrusted) {
        fail(ErrorCode::Busy, "the file is being replaced");
    }
    return target;
}

void Recoverer::found(RecoveryOutcome outcome, std::string detail) {
    m_report.outcome = std::max(m_report.outcome, outcome);
    m_report.details.push_back(std::move(detail));
}

void Recoverer::fail(ErrorCode code, const std::string& cause) const {
    throw Exception(code, m_iri, cause);
}

RecoveryReport recoverFile(const StorageIRI& file, const LocalFileOptions& options) {
    const auto environment = Environment::from(options);
    std::string target;
    if (const int error = resolveLinks(toLocalPath(file), target); error != 0) {
        throwSystemError(file, error);
    }
    return Recoverer(environment, file, target).recoverAll();
}

} // namespace storage::fileprovider
