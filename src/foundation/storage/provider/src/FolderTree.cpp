#include "FolderTree.h"

#include <foundation/storage/provider/Exception.h>
#include <foundation/storage/provider/IProvider.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace foundation::storage::provider::detail {

namespace {

std::vector<FolderEntry> entriesOf(IProvider& provider, const StorageIRI& folder) {
    std::vector<FolderEntry> entries;
    const auto listing = provider.listAll(folder);
    while (listing->hasNext()) {
        listing->next();
        entries.push_back(listing->current());
    }
    return entries;
}

std::vector<FolderEntry> entriesUnlessGone(IProvider& provider, const StorageIRI& folder) {
    try {
        return entriesOf(provider, folder);
    } catch (const Exception& failure) {
        if (failure.getErrorCode() != ErrorCode::NotFound) {
            throw;
        }
        return {};
    }
}

} // namespace

FolderTree FolderTree::below(IProvider& provider, const StorageIRI& folder) {
    struct Pending {
        std::size_t parent;
        /// Of the parent's path.
        std::size_t length;
        FolderEntry entry;
    };
    std::vector<Pending> pending;
    const auto postpone = [&pending](std::size_t parent, std::size_t length,
                                     std::vector<FolderEntry> entries) {
        std::for_each(entries.rbegin(), entries.rend(), [&](FolderEntry& entry) {
            pending.push_back({parent, length, std::move(entry)});
        });
    };

    FolderTree tree;
    // The path of the folder that was looked into last: every pending entry stands in it or in a folder
    // above it.
    fl::i18n::ustring path;
    postpone(top, 0, entriesOf(provider, folder));
    while (!pending.empty()) {
        auto next = std::move(pending.back());
        pending.pop_back();
        const auto index = tree.add(next.parent, std::move(next.entry));
        if (tree.isFolder(index)) {
            path.resize(next.length);
            path += path.empty() ? u"" : u"/";
            path += tree.nameOf(index);
            postpone(index, path.size(), entriesUnlessGone(provider, folder.child(path)));
        }
    }
    return tree;
}

fl::i18n::ustring FolderTree::pathOf(std::size_t index) const {
    std::vector<std::size_t> chain;
    std::size_t length = 0;
    for (; index != top; index = m_entries[index].parent) {
        chain.push_back(index);
        length += nameOf(index).size() + 1;
    }
    fl::i18n::ustring path;
    path.reserve(length);
    std::for_each(chain.rbegin(), chain.rend(), [this, &path](std::size_t link) {
        path += path.empty() ? u"" : u"/";
        path += nameOf(link);
    });
    return path;
}

std::size_t FolderTree::add(std::size_t parent, FolderEntry entry) {
    m_entries.push_back({parent, std::move(entry)});
    return m_entries.size() - 1;
}

FolderTreeIterator::FolderTreeIterator(FolderTree tree, std::vector<std::size_t> chosen)
    : m_snapshot(std::make_shared<const Snapshot>(Snapshot{std::move(tree), std::move(chosen)})) {}

FolderEntry FolderTreeIterator::current() const {
    if (m_passed == 0) {
        throw std::logic_error("cannot tell the current entry of a listing: it stands before the first");
    }
    const auto index = m_snapshot->chosen[m_passed - 1];
    return {m_snapshot->tree.pathOf(index),
            m_snapshot->tree.isFolder(index) ? EntryKind::Folder : EntryKind::File};
}

bool FolderTreeIterator::hasNext() const {
    return m_passed < m_snapshot->chosen.size();
}

void FolderTreeIterator::next() {
    if (!hasNext()) {
        throw std::out_of_range("cannot move on in a listing: no entry remains");
    }
    ++m_passed;
}

} // namespace foundation::storage::provider::detail
