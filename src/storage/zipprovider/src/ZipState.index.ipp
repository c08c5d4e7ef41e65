#pragma once

#include "EmptyArchive.h"
#include "LocalArchiveStream.h"
#include "MiniZipException.h"

#include <fl/i18n/utf8.h>
#include <foundation/core/except/throwInternal.h>
#include <foundation/log/log.h>

#include <cstddef>
#include <iterator>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace storage::zipprovider {

namespace detail {

[[noreturn]] inline void throwMiniZip(const std::u16string& message) {
    foundation::core::except::throwInternal(MiniZipException(message));
}

} // namespace detail

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
ZipState<StorageItem, ByteStreamDevice>::ZipState(const StorageItem& container)
    : m_container(container), m_archiveLastModified(container.getFileAttributes().getLastModified()),
      m_logger("storage::zipprovider::ZipState") {
    rebuildBasalState();
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
auto ZipState<StorageItem, ByteStreamDevice>::doBuildRepresentation(const EntryInfos& infos) const
    -> BasalState {
    auto state = buildRepresentation(infos, m_container.getFileAttributes().getLastModified());
    for (auto place = state.begin(); place != state.end(); ++place) {
        contentsAt(state, place);
    }
    return state;
}

/// Builds the index in one walk over the entries. Entries of one folder mostly stand together, so the places
/// of the folders above the entry before are kept at hand; a folder that has its key is also in its parent,
/// and nothing is left to be done for it. The key of a file gets its contents, which are empty, when somebody
/// asks for them.
template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
auto ZipState<StorageItem, ByteStreamDevice>::buildRepresentation(const EntryInfos& infos,
                                                                  const Time& rootTime) -> BasalState {
    BasalState state;
    const Path root(u"/");
    auto rootEntry = std::make_shared<FolderEntry>(FolderEntry{ZipEntryType::Folder, root, 0, rootTime});
    state.emplace(root, std::make_shared<FolderContents>(std::move(rootEntry)));
    /// The place of each prefix of the path before, from the root on.
    std::vector<typename BasalState::iterator> places{state.begin()};
    Path before = root;
    for (const auto& info : infos) {
        auto path = info.path.asAbsolute();
        auto last = places.back();
        places.resize(1 + path.commonPrefix(before));
        for (auto depth = places.size(); depth <= path.components().size(); ++depth) {
            last = addToRepresentation(state, {places.back(), last}, path.prefix(depth), info);
            places.push_back(last);
        }
        before = std::move(path);
    }
    return state;
}

/// Ensures the folder of the path and registers it in its parent; returns its place.
template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
auto ZipState<StorageItem, ByteStreamDevice>::addToRepresentation(BasalState& state,
                                                                  const Surroundings& around,
                                                                  const Path& path, const ZipEntryInfo& info)
    -> typename BasalState::iterator {
    const auto count = state.size();
    const auto place = state.try_emplace(std::next(around.before), path, nullptr);
    if (state.size() == count) {
        return place;
    }
    const auto makeEntry = [&](ZipEntryType type) {
        return std::make_shared<FolderEntry>(
            FolderEntry{type, path, type == ZipEntryType::File ? info.size : 0, info.lastModified});
    };
    // The name decides, not the depth: a file x/x shows as a file x in the root, too.
    const bool isFile =
        info.type == ZipEntryType::File && path.components().back() == info.path.components().back();
    auto child = makeEntry(isFile ? ZipEntryType::File : ZipEntryType::Folder);
    if (!isFile) {
        place->second = std::make_shared<FolderContents>(child);
    }
    contentsAt(state, around.parent)->add(std::move(child));
    return place;
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
const std::shared_ptr<FolderContents>&
ZipState<StorageItem, ByteStreamDevice>::contentsAt(const BasalState& state,
                                                    typename BasalState::iterator place) {
    if (!place->second) {
        const auto& path = place->first;
        const auto parent = state.find(path.prefix(path.components().size() - 1));
        const auto shown =
            parent == state.end() || !parent->second ? nullptr : parent->second->findFile(path.fileName());
        place->second = std::make_shared<FolderContents>(std::make_shared<FolderEntry>(
            FolderEntry{ZipEntryType::Folder, path, 0, shown ? shown->lastModified : Time()}));
    }
    return place->second;
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
auto ZipState<StorageItem, ByteStreamDevice>::carriedOverEntries(std::vector<ZipEntryInfo> infos)
    -> CarriedOverEntries {
    CarriedOverEntries entries;
    auto place = entries.end();
    for (auto& info : infos) {
        // A stored name such as "/" is the root itself, which every archive has.
        if (!info.path.components().empty()) {
            place = entries.try_emplace(place, info.path.asAbsolute(),
                                        CarriedOverEntry{std::move(info.stored), info.type, info.size,
                                                         info.lastModified, info.index, info.encrypted});
            ++place;
        }
    }
    return entries;
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::rebuildBasalState() const {
    rebuildBasalState(Incomplete::IsShownAsFarAsItGoes);
}

/// Opening the container may settle an interrupted save of it, and another program may be writing it: what it
/// looked like counts only when it looks the same afterwards. While it does not come to rest, the stamp is
/// the one from before, so that a flush refuses.
template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::rebuildBasalState(Incomplete incomplete) const {
    KX_LOG_FUNCTION(m_logger);
    constexpr int attempts = 5;
    auto attributes = m_container.getFileAttributes();
    for (int attempt = 1;; ++attempt) {
        const auto stamp = ContainerStamp::of(attributes);
        const auto archive = openArchive();
        auto infos = readEntries(archive);
        auto unread = unreadPart(infos);
        if (unread.empty() && !archive->isOpen() && stamp.size != std::uint64_t{0} &&
            !isEmptyArchive(*openArchiveStream())) {
            unread = u"it is not a ZIP archive, or its end record is damaged";
        }
        if (unread.empty() && archive->isEndRecordCut()) {
            unread = u"its end record is cut off";
        }
        const auto rootTime = attributes.getLastModified();
        attributes = m_container.getFileAttributes();
        if (ContainerStamp::of(attributes) != stamp && attempt < attempts) {
            continue;
        }
        if (incomplete == Incomplete::IsRefused && !unread.empty()) {
            detail::throwMiniZip(u"cannot read " + containerText() + u" after it was rebuilt: " + unread);
        }
        install(std::move(infos), rootTime);
        m_stamp = stamp;
        m_unread = std::move(unread);
        return;
    }
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
std::u16string ZipState<StorageItem, ByteStreamDevice>::unreadPart(const EntryInfos& infos) {
    if (infos.hasUndeclaredEntries()) {
        return u"it holds more entries than the " +
               fl::i18n::fromUtf8(std::to_string(infos.declaredCount())) + u" that its end record declares";
    }
    return infos.isComplete()
               ? std::u16string()
               : fl::i18n::fromUtf8("only " + std::to_string(infos.size()) + " of the " +
                                    std::to_string(infos.declaredCount()) + " entries could be read");
}

/// A container that fails while it is read is told, since what is missing then is not missing in the archive.
template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
auto ZipState<StorageItem, ByteStreamDevice>::readEntries(const std::shared_ptr<ReadHandle>& archive)
    -> EntryInfos {
    archive->rethrowFailure();
    try {
        EntryInfos infos(archive);
        archive->rethrowFailure();
        return infos;
    } catch (const MiniZipException&) {
        archive->rethrowFailure();
        throw;
    }
}

/// Makes the index of these entries the current one; no entry counts as changed.
template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::install(EntryInfos infos, const Time& rootTime) const {
    KX_LOG_DEBUG(m_logger) << "Number of entries read: " << infos.size();
    std::set<std::size_t> ownDirectories{directoryFingerprint(infos)};
    auto basalState = buildRepresentation(infos, rootTime);
    auto carriedOver = carriedOverEntries(infos.release());
    const auto directoryPlace = infos.directoryPlace();

    m_basalState = std::move(basalState);
    m_carriedOver = std::move(carriedOver);
    m_ownDirectories = std::move(ownDirectories);
    m_directoryPlace = directoryPlace;
    m_createdFolders.clear();
    m_stateChanged = m_treeChanged = false;
    // Working files that no stream holds are deleted here.
    m_modified.clear();
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
std::shared_ptr<FolderContents>
ZipState<StorageItem, ByteStreamDevice>::findFolder(const Path& folder) const {
    const auto place = m_basalState.find(folder);
    return place == m_basalState.end() ? nullptr : contentsAt(m_basalState, place);
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
bool ZipState<StorageItem, ByteStreamDevice>::isFolder(const Path& folder) const {
    if (folder.isRoot()) {
        return true;
    }
    const auto parent = parentOf(folder);
    return parent && parent->findFolder(folder.fileName()) && findFolder(folder);
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
const CarriedOverEntry& ZipState<StorageItem, ByteStreamDevice>::originalEntry(const Path& path) const {
    const auto place = m_carriedOver.find(path);
    // The index may show a file where the archive has a folder: the first x of a file x/x.
    if (place == m_carriedOver.end() || place->second.type != ZipEntryType::File) {
        throw std::runtime_error("Retrieval of original entry name broke");
    }
    return place->second;
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
auto ZipState<StorageItem, ByteStreamDevice>::openOriginalEntry(const Path& path) const
    -> std::unique_ptr<EntrySource> {
    readKeptArchive();
    return std::make_unique<EntrySource>(openArchive(), originalEntry(path).stored);
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
auto ZipState<StorageItem, ByteStreamDevice>::reopenOriginalEntry(const Path& path) const
    -> std::unique_ptr<EntrySource> {
    readKeptArchive();
    return std::make_unique<EntrySource>(reopenArchive(), originalEntry(path).stored);
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
auto ZipState<StorageItem, ByteStreamDevice>::reopenArchive() const -> std::shared_ptr<ReadHandle> {
    if (!m_directoryPlace || m_keptArchive ||
        ContainerStamp::of(m_container.getFileAttributes()) != m_stamp) {
        return openArchive();
    }
    return std::make_shared<ReadHandle>(openArchiveStream(), m_directoryPlace);
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
std::shared_ptr<WorkingFileEntry>
ZipState<StorageItem, ByteStreamDevice>::modifiedEntry(const Path& path) const {
    const auto place = m_modified.find(path);
    return place == m_modified.end() ? nullptr : place->second.entry;
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
std::unique_ptr<foundation::storage::provider::ByteStream>
ZipState<StorageItem, ByteStreamDevice>::openArchiveStream() const {
    if (m_keptArchive) {
        return std::make_unique<LocalArchiveStream>(*m_keptArchive);
    }
    return m_container.openReadOnlyStream();
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
auto ZipState<StorageItem, ByteStreamDevice>::openArchive() const -> std::shared_ptr<ReadHandle> {
    return std::make_shared<ReadHandle>(openArchiveStream());
}

} // namespace storage::zipprovider
