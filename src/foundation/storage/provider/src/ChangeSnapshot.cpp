#include "ChangeSnapshot.h"

#include <foundation/storage/provider/Exception.h>
#include <foundation/storage/provider/IProvider.h>

namespace foundation::storage::provider::detail {

namespace {

void addUnlessGone(IProvider& provider, ChangeSnapshot& snapshot, const fl::i18n::ustring& name,
                   EntryKind kind, const StorageIRI& location) {
    try {
        if (kind == EntryKind::Folder) {
            const auto time = provider.getFolderAttributes(location).getLastModified();
            snapshot.insert_or_assign(name, ItemState{kind, std::nullopt, time});
        } else {
            const auto attributes = provider.getFileAttributes(location);
            snapshot.insert_or_assign(name,
                                      ItemState{kind, attributes.getSize(), attributes.getLastModified()});
        }
    } catch (const Exception& failure) {
        if (failure.getErrorCode() != ErrorCode::NotFound) {
            throw;
        }
    }
}

} // namespace

ChangeSnapshot lookAtFolder(IProvider& provider, const StorageIRI& folder) {
    ChangeSnapshot snapshot;
    const auto listing = provider.listAll(folder);
    while (listing->hasNext()) {
        listing->next();
        const auto entry = listing->current();
        addUnlessGone(provider, snapshot, entry.getName(), entry.getKind(), folder.child(entry.getName()));
    }
    return snapshot;
}

ChangeSnapshot lookAtFile(IProvider& provider, const StorageIRI& file) {
    ChangeSnapshot snapshot;
    if (provider.isFile(file)) {
        addUnlessGone(provider, snapshot, {}, EntryKind::File, file);
    }
    return snapshot;
}

std::vector<ChangeEvent> changesBetween(const StorageIRI& location, const ChangeSnapshot& before,
                                        const ChangeSnapshot& after) {
    std::vector<ChangeEvent> events;
    const auto add = [&](ChangeKind kind, const fl::i18n::ustring& name) {
        events.push_back({kind, name.empty() ? location : location.child(name)});
    };
    auto old = before.begin();
    auto current = after.begin();
    while (old != before.end() || current != after.end()) {
        if (current == after.end() || (old != before.end() && old->first < current->first)) {
            add(ChangeKind::Removed, old->first);
            ++old;
        } else if (old == before.end() || current->first < old->first) {
            add(ChangeKind::Created, current->first);
            ++current;
        } else {
            if (old->second.kind != current->second.kind) {
                add(ChangeKind::Removed, old->first);
                add(ChangeKind::Created, current->first);
            } else if (!(old->second == current->second)) {
                add(ChangeKind::Modified, current->first);
            }
            ++old;
            ++current;
        }
    }
    return events;
}

} // namespace foundation::storage::provider::detail
