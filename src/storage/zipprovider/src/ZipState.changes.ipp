#pragma once

#include <utility>
#include <vector>

namespace storage::zipprovider {

namespace detail {

/// The first place in a map by path that can hold something below `folder`. Paths below a folder are
/// contiguous: their texts begin with the folder's and a slash.
template <typename Map>
auto firstBelow(Map& map, const ZipEntryPath& folder) {
    return map.lower_bound(folder.child(fl::i18n::ustring(1, u'\0')));
}

/// Gives every key of `map` that is `from` or below it its place under `to`; `onMove` may change the value.
template <typename Map, typename OnMove>
void rekeySubtree(Map& map, const ZipEntryPath& from, const ZipEntryPath& to, OnMove onMove) {
    std::vector<typename Map::node_type> moving;
    if (auto node = map.extract(from)) {
        moving.push_back(std::move(node));
    }
    for (auto place = firstBelow(map, from); place != map.end() && from.isAbove(place->first);) {
        moving.push_back(map.extract(place++));
    }
    for (auto& node : moving) {
        node.key() = node.key().rebased(from, to);
        onMove(node.mapped());
        map.insert(std::move(node));
    }
}

} // namespace detail

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
    if (entryDidNotExist) {
        parent->add(std::make_shared<FolderEntry>(FolderEntry{ZipEntryType::File, path, size, time}));
    }
    markEntryChanged(path, size);

    auto& record = m_modified.try_emplace(path).first->second;
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
    }
    ++record.unsettled;
    return {path, entry, record.id};
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
    --record.unsettled;
    if (record.unsettled > 0 || (record.settled && !record.closed)) {
        return false;
    }
    if (record.settled) {
        record.entry = std::move(record.closed);
        markEntryChanged(registration.path, record.entry->getCachedFileSize());
        return true;
    }
    const auto undone = std::move(record);
    m_modified.erase(place);
    const auto parent = parentOf(registration.path);
    if (undone.shown) {
        parent->replace(undone.shown);
    } else {
        parent->remove(registration.path.fileName());
    }
    if (undone.original) {
        m_carriedOver.insert_or_assign(registration.path, *undone.original);
    }
    m_stateChanged = m_treeChanged || !m_modified.empty();
    return true;
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::ModifiedEntry::follow(const Path& from, const Path& to) {
    if (original) {
        original->moved = true;
    }
    if (shown) {
        shown = std::make_shared<FolderEntry>(
            FolderEntry{shown->type, shown->path.rebased(from, to), shown->size, shown->lastModified});
    }
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::markEntryChanged(const Path& path, std::uint64_t size) const {
    m_stateChanged = true;
    auto& parent = ensureFolder(Path(path.parentPath()), m_archiveLastModified);
    if (const auto entry = parent.findFile(path.fileName())) {
        replaceEntry(parent, *entry, size, entry->lastModified);
    }
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::markEntryChanged(const Path& path, const Time& time) const {
    m_stateChanged = m_treeChanged = true;
    touchFolder(Path(path.parentPath()), time);
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::createFolder(const Path& path, const Time& time) const {
    const auto entry = std::make_shared<FolderEntry>(FolderEntry{ZipEntryType::Folder, path, 0, time});
    parentOf(path)->add(entry);
    m_basalState.insert_or_assign(path, std::make_shared<FolderContents>(entry));
    m_createdFolders.insert_or_assign(path, time);
    markEntryChanged(path, time);
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::removeFile(const Path& path, const Time& time) const {
    parentOf(path)->remove(path.fileName());
    forgetFile(path);
    markEntryChanged(path, time);
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::removeFolder(const Path& path, const Time& time) const {
    m_carriedOver.erase(path);
    parentOf(path)->remove(path.fileName());
    m_basalState.erase(path);
    m_createdFolders.erase(path);
    markEntryChanged(path, time);
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::moveFile(const Path& from, const Path& to,
                                                       const Time& time) const {
    forgetFile(to);
    if (auto node = m_carriedOver.extract(from)) {
        node.key() = to;
        node.mapped().moved = true;
        m_carriedOver.insert(std::move(node));
    }
    if (auto node = m_modified.extract(from)) {
        node.key() = to;
        node.mapped().follow(from, to);
        m_modified.insert(std::move(node));
    }
    const auto entry = parentOf(from)->remove(from.fileName());
    forgetFile(from);
    parentOf(to)->replace(
        std::make_shared<FolderEntry>(FolderEntry{ZipEntryType::File, to, entry->size, entry->lastModified}));
    markEntryChanged(from, time);
    markEntryChanged(to, time);
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::moveFolder(const Path& from, const Path& to,
                                                         const Time& time) const {
    forgetFile(to);
    parentOf(to)->remove(to.fileName());
    const auto entry = parentOf(from)->remove(from.fileName());
    parentOf(to)->add(
        std::make_shared<FolderEntry>(FolderEntry{ZipEntryType::Folder, to, 0, entry->lastModified}));
    moveIndexBelow(from, to);
    detail::rekeySubtree(m_carriedOver, from, to, [](CarriedOverEntry& moved) { moved.moved = true; });
    detail::rekeySubtree(m_modified, from, to, [&](ModifiedEntry& moved) { moved.follow(from, to); });
    detail::rekeySubtree(m_createdFolders, from, to, [](auto&) {});
    markEntryChanged(from, time);
    markEntryChanged(to, time);
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::requireStorableNamesBelow(const Path& from,
                                                                        const Path& to) const {
    const auto require = [&](const auto& entries, auto typeOf) {
        for (auto place = detail::firstBelow(entries, from);
             place != entries.end() && from.isAbove(place->first); ++place) {
            requireStorableName(place->first.rebased(from, to), typeOf(place->second));
        }
    };
    require(m_carriedOver, [](const CarriedOverEntry& entry) { return entry.type; });
    require(m_modified, [](const ModifiedEntry&) { return ZipEntryType::File; });
    require(m_createdFolders, [](const Time&) { return ZipEntryType::Folder; });
}

/// Listings that are under way keep the old contents; the new places get contents of their own.
template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::moveIndexBelow(const Path& from, const Path& to) const {
    detail::rekeySubtree(m_basalState, from, to, [&](std::shared_ptr<FolderContents>& contents) {
        if (!contents) {
            return;
        }
        const auto rebased = [&](const FolderEntry& entry) {
            return std::make_shared<FolderEntry>(
                FolderEntry{entry.type, entry.path.rebased(from, to), entry.size, entry.lastModified});
        };
        auto moved = std::make_shared<FolderContents>(rebased(*contents->ownEntry()));
        for (const auto& [name, child] : contents->snapshot([](const FolderEntry&) { return true; })) {
            moved->add(rebased(*child));
        }
        contents = std::move(moved);
    });
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
    ensureFolder(Path(folder.parentPath()), time).add(entry);
    return *m_basalState.emplace(folder, std::make_shared<FolderContents>(entry)).first->second;
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::replaceEntry(FolderContents& parent, const FolderEntry& entry,
                                                           std::uint64_t size, const Time& time) {
    parent.replace(std::make_shared<FolderEntry>(FolderEntry{entry.type, entry.path, size, time}));
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::touchFolder(const Path& folder, const Time& time) const {
    const auto contents = findFolder(folder);
    if (!contents) {
        return;
    }
    const auto entry = std::make_shared<FolderEntry>(FolderEntry{ZipEntryType::Folder, folder, 0, time});
    contents->setOwnEntry(entry);
    if (!folder.isRoot()) {
        if (const auto parent = parentOf(folder); parent && parent->findFolder(folder.fileName())) {
            parent->replace(entry);
        }
    }
}

/// Drops what the next archive would take from the file at `path`, and the index's key that every file has. A
/// file with entries below it, which the index shows as a file, leaves their folder behind.
template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::forgetFile(const Path& path) const {
    m_carriedOver.erase(path);
    m_modified.erase(path);
    const auto contents = findFolder(path);
    if (contents && contents->empty()) {
        m_basalState.erase(path);
    } else if (contents) {
        parentOf(path)->add(contents->ownEntry());
    }
}

} // namespace storage::zipprovider
