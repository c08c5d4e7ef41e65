#pragma once

#include "ContainerStamp.h"
#include "FolderContents.h"
#include "HostTypes.h"
#include "MiniZipReadHandle.h"
#include "MiniZipWriteHandle.h"
#include "PreparedMove.h"
#include "TemporaryArchive.h"
#include "WorkingFileEntry.h"
#include "ZipEntryAppender.h"
#include "ZipEntryInfos.h"
#include "ZipEntrySink.h"
#include "ZipEntrySource.h"

#include <foundation/log/basic_diagnostic_logger.h>

#include <boost/date_time/posix_time/ptime.hpp>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace storage::zipprovider {

/// An entry of the archive that the next archive takes over unchanged: where its bytes are and what is said
/// of them. The key under which the state keeps it is where the entry is shown; a move changes the key alone.
struct CarriedOverEntry {
    StoredEntryName stored;
    ZipEntryType type;
    std::uint64_t size;
    boost::posix_time::ptime lastModified;
    std::uint64_t index;
    bool encrypted = false;
    /// Whether the next archive stores it under the key rather than under the name it has.
    bool moved = false;
};

/// The archive as the provider sees it: the folder index read from the central directory, and the record of
/// what was changed since, which a flush turns into a new archive.
///
/// Threads: no lock of its own. Every caller holds the file system's mutex; FolderContents objects may be
/// used outside it. The changing operations are const because the state is shared as such with the flushing
/// policy.
template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
class ZipState {
public:
    using BasalState = std::map<ZipEntryPath, std::shared_ptr<FolderContents>, std::less<ZipEntryPath>>;
    using EntryInfos = ZipEntryInfos<StorageItem, ByteStreamDevice>;
    using ReadHandle = MiniZipReadHandle<StorageItem, ByteStreamDevice>;
    using EntrySource = ZipEntrySource<StorageItem, ByteStreamDevice>;

    /// Reads the container's time and the archive's central directory. A container that is not an archive, or
    /// whose directory ends early, is indexed as far as it can be read; a flush then refuses to overwrite it.
    /// Errors: those of the container, also of reading it; Boost's calendar errors for an entry with an
    /// impossible date.
    explicit ZipState(const StorageItem& container);

    ZipState(const ZipState&) = delete;
    ZipState& operator=(const ZipState&) = delete;

    // --- the folder index

    /// The folder index of an archive with these entries: every folder, also those that only the names of
    /// others imply, by absolute path; always with the root. The first of two entries with one path wins.
    BasalState doBuildRepresentation(const EntryInfos& infos) const;
    /// Reads the archive again, installs its index and forgets the change records.
    /// Errors: as the constructor's; the index and the records stay as they are.
    void rebuildBasalState() const;

    /// The contents of a folder, null when the index has none under that path.
    std::shared_ptr<FolderContents> findFolder(const ZipEntryPath& folder) const;
    /// The container's own time when this object was made.
    boost::posix_time::ptime archiveLastModified() const { return m_archiveLastModified; }
    /// Whether `folder` can hold entries: it is the root, or its parent shows a folder of its name. (A file
    /// has a key in the index, too.)
    bool isFolder(const ZipEntryPath& folder) const;

    /// The stored name and the description of a file of the archive that is not changed.
    /// Errors: std::runtime_error "Retrieval of original entry name broke".
    const CarriedOverEntry& originalEntry(const ZipEntryPath& path) const;
    /// A source of that file's bytes, over an archive opened anew.
    /// Errors: as originalEntry; MiniZipException.
    std::unique_ptr<EntrySource> openOriginalEntry(const ZipEntryPath& path) const;
    /// The same. Where the archive is the one that the index was read from, as far as its container tells, it
    /// is not searched again for what the index has found.
    std::unique_ptr<EntrySource> reopenOriginalEntry(const ZipEntryPath& path) const;
    /// The working file of an entry opened for writing since the last flush; null when there is none.
    std::shared_ptr<WorkingFileEntry> modifiedEntry(const ZipEntryPath& path) const;

    // --- changes

    /// One opening of an entry for writing. Whoever moves the entry while it is open corrects the path.
    struct Registration {
        ZipEntryPath path;
        std::shared_ptr<WorkingFileEntry> entry;
        /// Of the change record, which a flush ends.
        std::uint64_t record;
    };

    /// Records that the entry at `path` is written through `entry` from here on. settle() or revoke() has to
    /// follow. Errors: those of the working file; nothing is recorded then.
    Registration registerModifiedEntry(const ZipEntryPath& path,
                                       const std::shared_ptr<WorkingFileEntry>& entry,
                                       bool entryDidNotExist) const;
    /// The stream was closed: what its working file holds is what the next archive gets, also when a flush
    /// has been in between. Errors: as registerModifiedEntry.
    void settle(const Registration& registration) const;
    /// The stream was given up. When no other is open on the entry and none was closed meanwhile, the entry
    /// is again as it was: what a stream closed before has left, what the archive has, or gone. Returns
    /// whether. What was written before a flush or a failed copy-back came while the stream was open stays.
    bool revoke(const Registration& registration) const;
    /// Records the size of the entry at `path`. Nothing is recorded on a failure.
    void markEntryChanged(const ZipEntryPath& path, std::uint64_t size) const;

    // A change that fails, for want of memory, has changed nothing.

    void createFolder(const ZipEntryPath& path, const boost::posix_time::ptime& time) const;
    void removeFile(const ZipEntryPath& path, const boost::posix_time::ptime& time) const;
    void removeFolder(const ZipEntryPath& path, const boost::posix_time::ptime& time) const;
    /// Shows the file at `to` alone and has the next archive hold its bytes under that name; a file at `to`
    /// is replaced. The entry keeps its own time, the two folders get `time`.
    void moveFile(const ZipEntryPath& from, const ZipEntryPath& to,
                  const boost::posix_time::ptime& time) const;
    /// The same for a folder with everything below it.
    void moveFolder(const ZipEntryPath& from, const ZipEntryPath& to,
                    const boost::posix_time::ptime& time) const;
    /// Errors: MiniZipException when what is below `from` has names that no archive can hold below `to`.
    void requireStorableNamesBelow(const ZipEntryPath& from, const ZipEntryPath& to) const;

    /// Whether something was changed since the archive was last read.
    bool stateChanged() const { return m_stateChanged; }

    // --- the flush

    /// Writes the changed archive: builds it in a temporary file, brings it into the container, reads it
    /// again. Does nothing when nothing was changed. Errors: MiniZipException when the old archive was not
    /// read to its end, was changed by another program, or an entry cannot be carried over or written; those
    /// of the container and of the working files. No change is lost, and a later flush tries again: the
    /// change records stay, and the container is as it was. When bringing the new archive in failed, that
    /// archive is kept as well, its path logged, and what is carried over is read from it until a flush
    /// succeeds.
    void doFlush() const;

private:
    using Path = ZipEntryPath;
    using Time = boost::posix_time::ptime;
    using CarriedOverEntries = std::map<Path, CarriedOverEntry>;

    /// The change record of an entry that was opened for writing since the last flush.
    struct ModifiedEntry {
        std::shared_ptr<WorkingFileEntry> entry;
        std::uint64_t id = 0;
        /// Streams that are open on it, and whether one was closed, so that there is no way back to what was
        /// before.
        int unsettled = 0;
        bool settled = false;
        /// What the last close has left, while a stream that was opened after it may still be given up.
        std::shared_ptr<WorkingFileEntry> closed;
        /// The size of `closed`, which taking back must not have to ask the system for.
        std::uint64_t closedSize = 0;
        /// What was before: the archive's entry, and what the index showed, null for nothing.
        std::optional<CarriedOverEntry> original;
        std::shared_ptr<FolderEntry> shown;

        /// The record of the entry moved, whose way back leads to where it was moved.
        ModifiedEntry moved(const Path& from, const Path& to) const;
    };

    using ModifiedEntries = std::map<Path, ModifiedEntry>;

    /// The mark that a change leaves, made ready: the new time of the folder in which it happens. Without
    /// that folder, nothing.
    struct EntryMark {
        std::shared_ptr<FolderContents> folder;
        std::shared_ptr<FolderEntry> entry;
        std::shared_ptr<FolderContents> parent;
        FolderContents::Child child;
    };
    /// A file's place in its folder, about to be free or to show the folder of the file's name.
    struct VacatedPlace {
        std::shared_ptr<FolderContents> parent;
        fl::i18n::ustring name;
        FolderContents::Child folder;
    };

    /// What an archive that cannot be read to its end is.
    enum class Incomplete { IsShownAsFarAsItGoes, IsRefused };
    /// Where a key of the index is about to go: its parent's place, and the place of the key made before it,
    /// behind which it mostly goes.
    struct Surroundings {
        typename BasalState::iterator parent;
        typename BasalState::iterator before;
    };

    // the folder index (ZipState.index.ipp)
    void rebuildBasalState(Incomplete incomplete) const;
    static std::u16string unreadPart(const EntryInfos& infos);
    std::unique_ptr<foundation::storage::provider::ByteStream> openArchiveStream() const;
    std::shared_ptr<ReadHandle> openArchive() const;
    std::shared_ptr<ReadHandle> reopenArchive() const;
    static EntryInfos readEntries(const std::shared_ptr<ReadHandle>& archive);
    void install(EntryInfos infos, const Time& rootTime) const;
    static BasalState buildRepresentation(const EntryInfos& infos, const Time& rootTime);
    static typename BasalState::iterator addToRepresentation(BasalState& state, const Surroundings& around,
                                                             const Path& path, const ZipEntryInfo& info);
    static const std::shared_ptr<FolderContents>& contentsAt(const BasalState& state,
                                                             typename BasalState::iterator place);
    static CarriedOverEntries carriedOverEntries(std::vector<ZipEntryInfo> infos);
    FolderContents& ensureFolder(const Path& folder, const Time& time) const;
    static void replaceEntry(FolderContents& parent, const FolderEntry& entry, std::uint64_t size,
                             const Time& time);

    // changes (ZipState.changes.ipp)
    std::shared_ptr<FolderContents> parentOf(const Path& path) const;
    EntryMark prepareMark(const Path& changed, const Time& time) const;
    void markEntryChanged(EntryMark mark) const noexcept;
    VacatedPlace prepareVacating(const Path& path) const;
    static void vacate(VacatedPlace place) noexcept;
    void forgetFile(const Path& path) const noexcept;
    PreparedMove<BasalState> prepareIndexMove(const Path& from, const Path& to) const;
    PreparedMove<CarriedOverEntries> prepareCarriedOverMove(const Path& from, const Path& to,
                                                            MovedKeys keys) const;
    PreparedMove<ModifiedEntries> prepareModifiedMove(const Path& from, const Path& to, MovedKeys keys) const;

    // the flush (ZipState.flush.ipp)
    void refuseUnreadArchive() const;
    void refuseForeignChange() const;
    [[noreturn]] void throwForeignChange() const;
    bool holdsWhatWasRead() const;
    bool hasOwnDirectory(bool sameSize) const;
    void refuseEncryptedEntries() const;
    void buildArchive(const std::shared_ptr<ReadHandle>& archive, const TemporaryArchive& target) const;
    /// Errors: MiniZipException when anything of the archive could not be written, also before.
    void closeArchive(MiniZipWriteHandle& writer, const TemporaryArchive& target) const;
    static EntryDescription description(const Path& path, const CarriedOverEntry& entry);
    typename CarriedOverEntries::const_iterator writeStoredEntries(const std::shared_ptr<ReadHandle>& archive,
                                                                   const TemporaryArchive& target) const;
    void writeCarriedOverEntries(const std::shared_ptr<ReadHandle>& archive,
                                 typename CarriedOverEntries::const_iterator place,
                                 MiniZipWriteHandle& target) const;
    void writeModifiedEntries(ZipEntryAppender& target) const;
    void writeFolders(ZipEntryAppender& target) const;
    static Path nameInNextArchive(const Path& path, const CarriedOverEntry& entry);
    void bringIntoContainer(TemporaryArchive& archive, std::vector<StoredEntryName>& stored) const;
    bool showsPartOf(const fl::filesystem::path& archive) const;
    void copyIntoContainer(ByteStreamDevice& container, const TemporaryArchive& archive) const;
    std::u16string containerText() const;

    // going on from an archive that was kept (ZipState.kept.ipp)
    std::vector<StoredEntryName> prepareToContinue() const;
    void continueFrom(TemporaryArchive& archive, std::vector<StoredEntryName>& stored) const;
    void readKeptArchive() const;
    void carryOverFrom(const EntryInfos& infos) const;
    void goBackFromKeptArchive() const;
    /// Calls `visit` with every entry that is read from the archive, those that changes have put aside
    /// included.
    template <typename Visit>
    void forEachOfTheArchive(Visit visit) const;
    void removeSuperseded() const;
    void removeQuietly(const fl::filesystem::path& archive) const;

    const StorageItem m_container;
    const Time m_archiveLastModified;
    foundation::log::basic_diagnostic_logger m_logger;

    // guarded by the file system's mutex
    /// The key of a file may have no contents yet; contentsAt() makes them.
    mutable BasalState m_basalState;
    mutable CarriedOverEntries m_carriedOver;
    mutable ModifiedEntries m_modified;
    /// Folders made since the last flush, written as empty entries.
    mutable std::map<Path, Time> m_createdFolders;
    mutable bool m_stateChanged = false;
    /// Whether one of the changes is another than the opening of an entry, which can be taken back.
    mutable bool m_treeChanged = false;
    /// The number of change records made.
    mutable std::uint64_t m_records = 0;
    /// Of the container when it last held, as far as is known, what was read or written here.
    mutable ContainerStamp m_stamp;
    /// Fingerprints of the directories that the container may have without another program's doing: of the
    /// archive that was read, and of those whose copy into the container was interrupted.
    mutable std::set<std::size_t> m_ownDirectories;
    /// The place of the directory of the archive that m_stamp is of, where opening it again may rely on that.
    mutable std::optional<DirectoryPlace> m_directoryPlace;
    /// Why the archive must not be overwritten; empty when it was read to its end.
    mutable std::u16string m_unread;
    /// A new archive that could not be brought into the container. The container may be half written, so
    /// this file is the archive until a flush succeeds.
    mutable std::optional<fl::filesystem::path> m_keptArchive;
    /// What was read from before the kept archive, until that is read: null for the container.
    mutable std::optional<fl::filesystem::path> m_keptBefore;
    /// Whether the kept archive could not be read either. Then the entries that are carried over have no more
    /// of their position in it than their number.
    mutable bool m_keptArchiveIsUnread = false;
    /// As long as it could not: how many entries it has, and how those that are carried over were stored in
    /// the archive before, by their number.
    mutable std::size_t m_keptEntries = 0;
    mutable std::vector<StoredEntryName> m_storedBefore;
    /// Archives that were kept before and are removed when nothing can need them any more.
    mutable std::vector<fl::filesystem::path> m_superseded;
};

} // namespace storage::zipprovider

#include "ZipState.index.ipp"

#include "ZipState.changes.ipp"

#include "ZipState.flush.ipp"

#include "ZipState.kept.ipp"
