#pragma once

#include "PreparedMove.h"
#include "PreparedNode.h"

#include <utility>

namespace storage::zipprovider {

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
auto ZipState<StorageItem, ByteStreamDevice>::registerModifiedEntry(
    const Path& path, const std::shared_ptr<WorkingFileEntry>& entry, bool entryDidNotExist) const
    -> Registration {
    const auto size = entry->getCachedFileSize();
    const auto time = entry->getCachedFileLastModified();
    // Streams share one working file; what was closed before is put aside for the case that this one is given
    // up.
    const auto known = m_modified.find(path);
    const bool reopened = known != m_modified.end() && known->second.settled && known->second.unsettled == 0;
    auto closed = reopened ? known->second.entry->copy() : nullptr;
    const auto parent = parentOf(path);
    const auto shown = parent->findFile(path.fileName());
    const bool isNew = entryDidNotExist && !shown && !parent->findFolder(path.fileName());
    auto child = isNew ? FolderContents::prepare(
                             std::make_shared<FolderEntry>(FolderEntry{ZipEntryType::File, path, size, time}))
                       : FolderContents::Child();
    auto made = preparedNode<ModifiedEntries>(path, {});
    Registration registration{path, entry, 0};
    markEntryChanged(path, size);

    // Nothing fails from here on.
    if (child) {
        parent->put(std::move(child));
    }
    auto& record = m_modified.insert(std::move(made)).position->second;
    if (!record.entry) {
        record.entry = entry;
        record.id = ++m_records;
        record.shown = shown;
        if (auto node = m_carriedOver.extract(path)) {
            record.original = std::move(node.mapped());
        }
    }
    if (reopened) {
        record.closed = std::move(closed);
        record.closedSize = size;
    }
    ++record.unsettled;
    registration.record = record.id;
    return registration;
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::settle(const Registration& registration) const {
    auto counted = registration.record;
    if (!m_modified.contains(registration.path)) {
        // A flush has written the entry while the stream was open; what came later is still to be written.
        const auto parent = parentOf(registration.path);
        if (!parent) {
            return;
        }
        counted = registerModifiedEntry(registration.path, registration.entry,
                                        !parent->findFile(registration.path.fileName()))
                      .record;
    }
    auto& record = m_modified.find(registration.path)->second;
    if (record.id == counted) {
        --record.unsettled;
    }
    record.entry = registration.entry;
    record.settled = true;
    record.closed.reset();
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
bool ZipState<StorageItem, ByteStreamDevice>::revoke(const Registration& registration) const {
    const auto place = m_modified.find(registration.path);
    if (place == m_modified.end() || place->second.id != registration.record) {
        return false;
    }
    auto& record = place->second;
    if (record.unsettled > 1 || (record.settled && !record.closed)) {
        --record.unsettled;
        return false;
    }
    const auto parent = parentOf(registration.path);
    const auto name = registration.path.fileName();
    auto back = record.shown;
    if (record.settled) {
        const auto entry = parent->findFile(name);
        back = entry ? std::make_shared<FolderEntry>(
                           FolderEntry{entry->type, entry->path, record.closedSize, entry->lastModified})
                     : nullptr;
    }
    auto child = back ? FolderContents::prepare(std::move(back)) : FolderContents::Child();
    auto original = record.original && !record.settled
                        ? preparedNode<CarriedOverEntries>(registration.path, *record.original)
                        : typename CarriedOverEntries::node_type();

    // Nothing fails from here on.
    if (child) {
        parent->put(std::move(child));
    } else if (!record.settled) {
        parent->remove(name);
    }
    if (record.settled) {
        --record.unsettled;
        record.entry = std::move(record.closed);
        return true;
    }
    m_modified.erase(place);
    if (original) {
        putNode(m_carriedOver, std::move(original));
    }
    m_stateChanged = m_treeChanged || !m_modified.empty();
    return true;
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
auto ZipState<StorageItem, ByteStreamDevice>::ModifiedEntry::moved(const Path& from, const Path& to) const
    -> ModifiedEntry {
    auto copy = *this;
    if (copy.original) {
        copy.original->moved = true;
    }
    if (copy.shown) {
        copy.shown = std::make_shared<FolderEntry>(
            FolderEntry{shown->type, shown->path.rebased(from, to), shown->size, shown->lastModified});
    }
    return copy;
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::markEntryChanged(const Path& path, std::uint64_t size) const {
    auto& parent = ensureFolder(Path(path.parentPath()), m_archiveLastModified);
    if (const auto entry = parent.findFile(path.fileName())) {
        replaceEntry(parent, *entry, size, entry->lastModified);
    }
    m_stateChanged = true;
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::createFolder(const Path& path, const Time& time) const {
    const auto parent = parentOf(path);
    const auto entry = std::make_shared<FolderEntry>(FolderEntry{ZipEntryType::Folder, path, 0, time});
    auto child = FolderContents::prepare(entry);
    auto contents = preparedNode<BasalState>(path, std::make_shared<FolderContents>(entry));
    auto made = preparedNode<std::map<Path, Time>>(path, time);
    auto mark = prepareMark(path, time);

    // Nothing fails from here on, here and in the other changes.
    parent->put(std::move(child));
    putNode(m_basalState, std::move(contents));
    putNode(m_createdFolders, std::move(made));
    markEntryChanged(std::move(mark));
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::removeFile(const Path& path, const Time& time) const {
    auto vacated = prepareVacating(path);
    auto mark = prepareMark(path, time);

    forgetFile(path);
    vacate(std::move(vacated));
    markEntryChanged(std::move(mark));
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::removeFolder(const Path& path, const Time& time) const {
    const auto parent = parentOf(path);
    const auto name = path.fileName();
    auto mark = prepareMark(path, time);

    m_carriedOver.erase(path);
    parent->remove(name);
    m_basalState.erase(path);
    m_createdFolders.erase(path);
    markEntryChanged(std::move(mark));
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::moveFile(const Path& from, const Path& to,
                                                       const Time& time) const {
    const auto toParent = parentOf(to);
    const auto entry = parentOf(from)->findFile(from.fileName());
    auto shown = FolderContents::prepare(
        std::make_shared<FolderEntry>(FolderEntry{ZipEntryType::File, to, entry->size, entry->lastModified}));
    auto carriedOver = prepareCarriedOverMove(from, to, MovedKeys::ThePathAlone);
    auto modified = prepareModifiedMove(from, to, MovedKeys::ThePathAlone);
    auto vacated = prepareVacating(from);
    auto markFrom = prepareMark(from, time);
    auto markTo = prepareMark(to, time);

    forgetFile(to);
    carriedOver.commit();
    modified.commit();
    forgetFile(from);
    vacate(std::move(vacated));
    toParent->put(std::move(shown));
    markEntryChanged(std::move(markFrom));
    markEntryChanged(std::move(markTo));
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::moveFolder(const Path& from, const Path& to,
                                                         const Time& time) const {
    const auto fromParent = parentOf(from);
    const auto toParent = parentOf(to);
    const auto name = from.fileName();
    const auto entry = fromParent->findFolder(name);
    auto shown = FolderContents::prepare(
        std::make_shared<FolderEntry>(FolderEntry{ZipEntryType::Folder, to, 0, entry->lastModified}));
    auto index = prepareIndexMove(from, to);
    auto carriedOver = prepareCarriedOverMove(from, to, MovedKeys::WithAllBelow);
    auto modified = prepareModifiedMove(from, to, MovedKeys::WithAllBelow);
    PreparedMove created(m_createdFolders, from, to, MovedKeys::WithAllBelow,
                         [](const Time& made) { return made; });
    auto markFrom = prepareMark(from, time);
    auto markTo = prepareMark(to, time);

    forgetFile(to);
    index.commit();
    carriedOver.commit();
    modified.commit();
    created.commit();
    fromParent->remove(name);
    toParent->put(std::move(shown));
    markEntryChanged(std::move(markFrom));
    markEntryChanged(std::move(markTo));
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::requireStorableNamesBelow(const Path& from,
                                                                        const Path& to) const {
    const auto require = [&](const auto& entries, auto typeOf) {
        for (auto place = firstBelow(entries, from); place != entries.end() && from.isAbove(place->first);
             ++place) {
            requireStorableName(place->first.rebased(from, to), typeOf(place->second));
        }
    };
    require(m_carriedOver, [](const CarriedOverEntry& entry) { return entry.type; });
    require(m_modified, [](const ModifiedEntry&) { return ZipEntryType::File; });
    require(m_createdFolders, [](const Time&) { return ZipEntryType::Folder; });
}

/// Listings that are under way keep the old contents; the new places get contents of their own.
template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
auto ZipState<StorageItem, ByteStreamDevice>::prepareIndexMove(const Path& from, const Path& to) const
    -> PreparedMove<BasalState> {
    const auto rebased = [&](const FolderEntry& entry) {
        return std::make_shared<FolderEntry>(
            FolderEntry{entry.type, entry.path.rebased(from, to), entry.size, entry.lastModified});
    };
    return {m_basalState, from, to, MovedKeys::WithAllBelow,
            [&](const std::shared_ptr<FolderContents>& contents) {
                if (!contents) {
                    return contents;
                }
                auto moved = std::make_shared<FolderContents>(rebased(*contents->ownEntry()));
                for (const auto& [name, child] :
                     contents->snapshot([](const FolderEntry&) { return true; })) {
                    moved->add(rebased(*child));
                }
                return moved;
            }};
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
auto ZipState<StorageItem, ByteStreamDevice>::prepareCarriedOverMove(const Path& from, const Path& to,
                                                                     MovedKeys keys) const
    -> PreparedMove<CarriedOverEntries> {
    return {m_carriedOver, from, to, keys, [](CarriedOverEntry entry) {
                entry.moved = true;
                return entry;
            }};
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
auto ZipState<StorageItem, ByteStreamDevice>::prepareModifiedMove(const Path& from, const Path& to,
                                                                  MovedKeys keys) const
    -> PreparedMove<ModifiedEntries> {
    return {m_modified, from, to, keys, [&](const ModifiedEntry& entry) { return entry.moved(from, to); }};
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
std::shared_ptr<FolderContents> ZipState<StorageItem, ByteStreamDevice>::parentOf(const Path& path) const {
    return findFolder(Path(path.parentPath()));
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
FolderContents& ZipState<StorageItem, ByteStreamDevice>::ensureFolder(const Path& folder,
                                                                      const Time& time) const {
    if (const auto contents = findFolder(folder)) {
        return *contents;
    }
    const auto entry = std::make_shared<FolderEntry>(FolderEntry{ZipEntryType::Folder, folder, 0, time});
    auto contents = preparedNode<BasalState>(folder, std::make_shared<FolderContents>(entry));
    ensureFolder(Path(folder.parentPath()), time).add(entry);
    return *m_basalState.insert(std::move(contents)).position->second;
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::replaceEntry(FolderContents& parent, const FolderEntry& entry,
                                                           std::uint64_t size, const Time& time) {
    parent.replace(std::make_shared<FolderEntry>(FolderEntry{entry.type, entry.path, size, time}));
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
auto ZipState<StorageItem, ByteStreamDevice>::prepareMark(const Path& changed, const Time& time) const
    -> EntryMark {
    const Path folder(changed.parentPath());
    EntryMark mark{findFolder(folder), nullptr, nullptr, {}};
    if (!mark.folder) {
        return mark;
    }
    mark.entry = std::make_shared<FolderEntry>(FolderEntry{ZipEntryType::Folder, folder, 0, time});
    if (!folder.isRoot()) {
        if (auto parent = parentOf(folder); parent && parent->findFolder(folder.fileName())) {
            mark.parent = std::move(parent);
            mark.child = FolderContents::prepare(mark.entry);
        }
    }
    return mark;
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::markEntryChanged(EntryMark mark) const noexcept {
    m_stateChanged = m_treeChanged = true;
    if (mark.folder) {
        mark.folder->setOwnEntry(std::move(mark.entry));
    }
    if (mark.parent) {
        mark.parent->put(std::move(mark.child));
    }
}

/// A file with entries below it, which the index shows as a file, leaves their folder behind.
template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
auto ZipState<StorageItem, ByteStreamDevice>::prepareVacating(const Path& path) const -> VacatedPlace {
    VacatedPlace vacated{parentOf(path), path.fileName(), {}};
    if (const auto contents = findFolder(path); contents && !contents->empty()) {
        vacated.folder = FolderContents::prepare(contents->ownEntry());
    }
    return vacated;
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::vacate(VacatedPlace place) noexcept {
    if (place.folder) {
        place.parent->put(std::move(place.folder));
    } else {
        place.parent->remove(place.name);
    }
}

/// Drops what the next archive would take from the file at `path`, and the index's key that every file has.
template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::forgetFile(const Path& path) const noexcept {
    m_carriedOver.erase(path);
    m_modified.erase(path);
    const auto place = m_basalState.find(path);
    if (place != m_basalState.end() && (!place->second || place->second->empty())) {
        m_basalState.erase(place);
    }
}

} // namespace storage::zipprovider
