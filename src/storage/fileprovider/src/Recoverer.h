#pragma once

#include <foundation/storage/provider/ErrorCode.h>
#include <storage/fileprovider/Recovery.h>
#include <storage/fileprovider/src/Descriptor.h>
#include <storage/fileprovider/src/Environment.h>
#include <storage/fileprovider/src/Journal.h>
#include <storage/fileprovider/src/TargetMark.h>
#include <storage/fileprovider/src/WorkingPlaces.h>

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace storage::fileprovider {

/// Finds what interrupted saves of one target have left, and finishes or discards it. For one use.
class Recoverer {
public:
    /// `target` is an absolute path without links; the arguments must outlive the object. Errors name `iri`.
    Recoverer(const EnvironmentPtr& environment, const foundation::storage::provider::StorageIRI& iri,
              const std::string& target);

    /// Everything that is left. Contract: recoverFile. A state folder in which nobody can look is an error.
    RecoveryReport recoverAll();
    /// The same for a target that is about to be saved: the state folder matters only where nothing else
    /// tells that the target is not half written.
    RecoveryReport recoverForSaving();
    /// The same for a target that is about to get another path, at which a journal in the state folder would
    /// not be looked for.
    RecoveryReport recoverForMoving();
    /// The same for a target that is about to be read: the state folder does not matter then, and what does
    /// not keep the target from being whole is looked for only where it costs next to nothing.
    RecoveryReport recoverForReading();

    /// Whether all places could be looked into; to be asked after one of the above.
    bool hasSeenAllPlaces() const { return m_places.stateError == 0; }

private:
    enum class Next { Done, LookAgain };
    enum class Match {
        Matches,
        /// Another file stands in the target's place.
        Replaced,
        /// It is the file, but its size is none that the copy-over gives it.
        Changed,
    };
    struct OpenJournal;

    RecoveryReport run(unsigned emptySlots);
    /// Errors: the provider's, when the target may be half written and the state folder would tell.
    void requireKnownWhole() const;
    [[noreturn]] void failUnseen() const;
    /// Errors: the provider's, when it cannot be told whether there is one.
    std::optional<TargetMark> readMark();
    Next settleJournals();
    Next settleJournal(const std::string& path);
    /// Whether nobody can tell if a journal stands there, which could not be opened, and nothing else says
    /// so.
    bool isOutOfSight(const std::string& path) const;
    Next settleValid(const OpenJournal& journal, Descriptor& staging);
    Next settleWithoutStaging(const OpenJournal& journal);
    Match compareWithTarget(const OpenJournal& journal) const;
    /// Settles what needs no staging file. Returns false for a copy-over that is to be finished.
    bool settleMatched(const OpenJournal& journal);
    bool isFinished(const Journal& journal) const;
    /// Whether a journal counts for a file of that owner, with a mark or without.
    static bool isTrustedFor(const OpenJournal& journal, uid_t fileOwner);
    void requireTrust(const OpenJournal& journal) const;
    bool isUnchanged(const OpenJournal& journal) const;
    void discardPrepared(const OpenJournal& journal);
    /// Returns false when the target is whole, but carries a mark that this user may not remove.
    bool restorePrepared(const OpenJournal& journal);
    /// Only the journal leads to them.
    void removeDrafts(const OpenJournal& journal) const;
    /// Removes the journal of a save that is finished or undone, and the staging file.
    void discard(const OpenJournal& journal, RecoveryOutcome outcome, const std::string& what);
    void finishOverwriting(const OpenJournal& journal, const Descriptor& staging);
    void requireStoppedCopy(const OpenJournal& journal, int target, int staging);
    /// Where bytes are about to be overwritten of which nobody can tell whose they are.
    void keepWhatIsOverwritten(const OpenJournal& journal, int target);
    /// Contract: keepCopy.
    int keepCopyBeside(const OpenJournal& journal, int target, std::string& copy) const;
    [[noreturn]] void failChanged(const OpenJournal& journal) const;
    /// The very file that the journal counts for, whatever has become of its path meanwhile.
    Descriptor openTarget(const OpenJournal& journal) const;
    void found(RecoveryOutcome outcome, std::string detail);
    [[noreturn]] void fail(foundation::storage::provider::ErrorCode code, const std::string& cause) const;

    const EnvironmentPtr& m_environment;
    const foundation::storage::provider::StorageIRI& m_iri;
    const std::string& m_target;
    WorkingPlaces m_places;
    std::optional<TargetMark> m_mark;
    /// Whether the file may carry a mark that this user cannot see.
    bool m_markIsHidden = false;
    /// The id of the mark of a save that did not touch the target.
    std::string m_harmlessMark;
    RecoveryReport m_report;
};

} // namespace storage::fileprovider
