#include <storage/fileprovider/src/WindowsSave.h>

#include <storage/fileprovider/src/WindowsCommitMark.h>
#include <storage/fileprovider/src/WindowsFile.h>
#include <storage/fileprovider/src/WindowsNames.h>
#include <storage/fileprovider/src/WindowsPath.h>

namespace storage::fileprovider {

namespace fs = std::filesystem;
using foundation::storage::provider::StorageIRI;

namespace {

// Slots are taken from the first on, so a few empty ones in a row mean that there are no more.
constexpr unsigned emptySlotsInARow = 4;

/// Removes a staging file unless a living process holds it; whether there was one to remove.
bool removeStray(const fs::path& staging) {
    const auto status = statusOf(staging);
    if (!status || WindowsCommitMark::isSet(*status)) {
        return false;
    }
    const auto file = FileHandle::open(staging, GENERIC_READ | DELETE, OPEN_EXISTING);
    if (!file.isOpen() || lockFile(file.get(), false) == LockResult::Held ||
        WindowsCommitMark::isSet(*status)) {
        return false;
    }
    return ::DeleteFileW(staging.c_str()) != 0;
}

void finishOverwriting(const StorageIRI& iri, const fs::path& target, const fs::path& journal,
                       RecoveryReport& report) {
    const auto contents = FileHandle::open(journal, GENERIC_READ | DELETE, OPEN_EXISTING);
    // The process that writes the file holds the lock on the journal until it is done.
    if (!contents.isOpen() || lockFile(contents.get(), true) != LockResult::Locked || !statusOf(journal)) {
        return;
    }
    const auto status = statusOf(contents.get());
    const auto goal = FileHandle::open(target, GENERIC_READ | GENERIC_WRITE, OPEN_EXISTING);
    if (!status || !goal.isOpen() || !copyBytes(contents.get(), goal.get(), status->size) ||
        !setSize(goal.get(), status->size) || ::FlushFileBuffers(goal.get()) == 0) {
        throwWindowsError(iri, ::GetLastError(),
                          "cannot finish the interrupted save whose contents are in " + textOf(journal));
    }
    ::DeleteFileW(journal.c_str());
    report.outcome = RecoveryOutcome::FinishedSave;
    report.details.push_back("finished the save that had been interrupted while it overwrote the file");
}

constexpr int looks = 500;
constexpr DWORD pauseMilliseconds = 10;

/// Puts the whole new contents in the place of a file that is missing, in the place of the process that was
/// replacing it; while that lives, waits for it. Whether it had to.
bool settleReplacement(const fs::path& target) noexcept {
    const auto replacement = replacementBeside(target);
    for (int look = 0; look < looks; ++look) {
        const auto status = statusOf(replacement);
        if (!status) {
            return look > 0;
        }
        if (!WindowsCommitMark::isSet(*status)) {
            return ::MoveFileExW(replacement.c_str(), target.c_str(), MOVEFILE_WRITE_THROUGH) != 0;
        }
        ::Sleep(pauseMilliseconds);
    }
    return false;
}

bool isMissing(const std::optional<FileStatus>& status) {
    return !status && (::GetLastError() == ERROR_FILE_NOT_FOUND || ::GetLastError() == ERROR_PATH_NOT_FOUND);
}

/// What a process that was killed while it replaced the file has left.
void settleReplacement(const fs::path& target, RecoveryReport& report) {
    const auto replacement = replacementBeside(target);
    if (isMissing(statusOf(target)) && settleReplacement(target)) {
        report.outcome = RecoveryOutcome::FinishedSave;
        report.details.push_back("finished the save that had been interrupted while it replaced the file");
    } else if (statusOf(target) && removeStray(replacement)) {
        report.outcome = RecoveryOutcome::DiscardedUnfinishedSave;
        report.details.push_back("removed " + textOf(replacement) + ", which an interrupted save had left");
    }
}

} // namespace

std::optional<FileStatus> settledStatusOf(const fs::path& path) noexcept {
    auto status = statusOf(path);
    // Looked at once more, since the file may have been put in place since the first look.
    for (int look = 0; look < 3 && isMissing(status); ++look) {
        settleReplacement(path);
        status = statusOf(path);
    }
    return status;
}

RecoveryReport recoverTarget(const StorageIRI& iri, const fs::path& target) {
    RecoveryReport report;
    unsigned empty = 0;
    for (unsigned slot = 0; empty < emptySlotsInARow; ++slot) {
        const auto staging = stagingBeside(target, slot);
        if (!statusOf(staging)) {
            ++empty;
        } else if (removeStray(staging)) {
            report.outcome = RecoveryOutcome::DiscardedUnfinishedSave;
            report.details.push_back("removed " + textOf(staging) + ", which an interrupted save had left");
        }
    }
    settleReplacement(target, report);
    const auto status = statusOf(target);
    if (status && !status->isFolder) {
        const auto journal = journalBeside(target, status->index);
        if (statusOf(journal)) {
            finishOverwriting(iri, target, journal, report);
        }
    }
    return report;
}

RecoveryReport recoverFile(const StorageIRI& file, const LocalFileOptions& /*options*/) {
    return recoverTarget(file, resolvePath(toWindowsFilePath(file)));
}

} // namespace storage::fileprovider
