#pragma once

#include "EmptyArchive.h"
#include "LocalArchiveStream.h"
#include "MiniZipException.h"

#include <fl/i18n/utf8.h>
#include <foundation/core/except/throwInternal.h>
#include <foundation/log/log.h>

#include <cstddef>
#include <stdexcept>
#include <string>
#include <utility>

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
    return buildRepresentation(infos, m_container.getFileAttributes().getLastModified());
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
auto ZipState<StorageItem, ByteStreamDevice>::buildRepresentation(const EntryInfos& infos,
                                                                  const Time& rootTime) const -> BasalState {
    BasalState state;
    const Path root(u"/");
    auto rootEntry = std::make_shared<FolderEntry>(FolderEntry{ZipEntryType::Folder, root, 0, rootTime});
    state.emplace(root, std::make_shared<FolderContents>(std::move(rootEntry)));
    for (const auto& info : infos) {
        addToRepresentation(state, info);
    }
    return state;
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::addToRepresentation(BasalState& state,
                                                                  const ZipEntryInfo& info) const {
    const auto makeEntry = [&info](ZipEntryType type, const Path& path) {
        return std::make_shared<FolderEntry>(
            FolderEntry{type, path, type == ZipEntryType::File ? info.size : 0, info.lastModified});
    };
    const auto ensure = [&](const Path& folder) -> const std::shared_ptr<FolderContents>& {
        auto place = state.lower_bound(folder);
        if (place == state.end() || place->first != folder) {
            place = state.emplace_hint(
                place, folder, std::make_shared<FolderContents>(makeEntry(ZipEntryType::Folder, folder)));
        }
        return place->second;
    };

    const auto name = info.path.fileName();
    const auto path = info.path.asAbsolute();
    std::shared_ptr<FolderContents> parent = state.find(path.prefix(0))->second;
    for (std::size_t depth = 1; depth <= path.components().size(); ++depth) {
        const auto current = path.prefix(depth);
        const auto& component = path.components()[depth - 1];
        const auto& contents = ensure(current);
        // The name decides, not the depth: a file x/x shows as a file x in the root, too.
        if (component == name && info.type == ZipEntryType::File) {
            if (!parent->findFile(component)) {
                parent->add(makeEntry(ZipEntryType::File, current));
            }
        } else {
            if (!parent->findFolder(component)) {
                parent->add(makeEntry(ZipEntryType::Folder, current));
            }
            if (component == name) {
                // A file of that name may have come first; it stays, and the folder has no entry to ensure.
                if (const auto folder = parent->findFolder(component)) {
                    ensure(folder->path);
                }
            }
        }
        parent = contents;
    }
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
auto ZipState<StorageItem, ByteStreamDevice>::carriedOverEntries(const EntryInfos& infos)
    -> CarriedOverEntries {
    CarriedOverEntries entries;
    for (const auto& info : infos) {
        // A stored name such as "/" is the root itself, which every archive has.
        if (!info.path.components().empty()) {
            entries.try_emplace(info.path.asAbsolute(),
                                CarriedOverEntry{info.stored, info.type, info.size, info.lastModified,
                                                 info.index, info.encrypted});
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
        const auto infos = readEntries(archive);
        auto unread = unreadPart(infos);
        if (unread.empty() && !archive->isOpen() && stamp.size != std::uint64_t{0} &&
            !isEmptyArchive(*openArchiveStream())) {
            unread = u"it is not a ZIP archive, or its end record is damaged";
        }
        const auto rootTime = attributes.getLastModified();
        attributes = m_container.getFileAttributes();
        if (ContainerStamp::of(attributes) != stamp && attempt < attempts) {
            continue;
        }
        if (incomplete == Incomplete::IsRefused && !unread.empty()) {
            detail::throwMiniZip(u"cannot read " + containerText() + u" after it was rebuilt: " + unread);
        }
        install(infos, rootTime);
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
void ZipState<StorageItem, ByteStreamDevice>::install(const EntryInfos& infos, const Time& rootTime) const {
    auto basalState = buildRepresentation(infos, rootTime);
    auto carriedOver = carriedOverEntries(infos);
    const auto fingerprint = directoryFingerprint(infos);
    KX_LOG_DEBUG(m_logger) << "Number of entries read: " << infos.size();

    m_basalState = std::move(basalState);
    m_carriedOver = std::move(carriedOver);
    m_ownDirectories = {fingerprint};
    m_createdFolders.clear();
    m_stateChanged = m_treeChanged = false;
    // Working files that no stream holds are deleted here.
    m_modified.clear();
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
std::shared_ptr<FolderContents>
ZipState<StorageItem, ByteStreamDevice>::findFolder(const Path& folder) const {
    const auto place = m_basalState.find(folder);
    return place == m_basalState.end() ? nullptr : place->second;
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
