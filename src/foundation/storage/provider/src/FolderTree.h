#pragma once

#include <foundation/storage/provider/IClonableFolderEntryIterator.h>
#include <foundation/storage/provider/StorageIRI.h>

#include <cstddef>
#include <limits>
#include <memory>
#include <vector>

namespace foundation::storage::provider {
class IProvider;
}

namespace foundation::storage::provider::detail {

/// A snapshot of entries of a folder and of what stands below it. Entries remember their folder's place in
/// the snapshot instead of their paths: a path that is thousands of folders long would otherwise be stored
/// once for each of them.
class FolderTree {
public:
    /// The parent of the entries that stand in the listed folder itself.
    static constexpr std::size_t top = std::numeric_limits<std::size_t>::max();

    /// Everything below `folder`, each folder before its entries and siblings in the provider's order.
    /// A subfolder that is gone when its turn comes counts as empty.
    static FolderTree below(IProvider& provider, const StorageIRI& folder);

    std::size_t size() const { return m_entries.size(); }
    bool isFolder(std::size_t index) const { return m_entries[index].entry.isFolder(); }
    const fl::i18n::ustring& nameOf(std::size_t index) const { return m_entries[index].entry.getName(); }
    /// The folder's index, or top.
    std::size_t parentOf(std::size_t index) const { return m_entries[index].parent; }
    /// The path relative to the listed folder, joined with "/".
    fl::i18n::ustring pathOf(std::size_t index) const;

    /// Adds an entry and returns its index. Precondition: `parent` is top or an earlier index.
    std::size_t add(std::size_t parent, FolderEntry entry);

private:
    struct Entry {
        std::size_t parent;
        FolderEntry entry;
    };

    std::vector<Entry> m_entries;
};

/// Walks over chosen entries of a snapshot; clones share it.
class FolderTreeIterator final : public IClonableFolderEntryIterator<FolderTreeIterator> {
public:
    /// `chosen` are indices of `tree`, in the order of the walk.
    FolderTreeIterator(FolderTree tree, std::vector<std::size_t> chosen);

    FolderEntry current() const override;
    bool hasNext() const override;
    void next() override;

private:
    struct Snapshot {
        FolderTree tree;
        std::vector<std::size_t> chosen;
    };

    std::shared_ptr<const Snapshot> m_snapshot;
    /// How many entries next() passed over.
    std::size_t m_passed = 0;
};

} // namespace foundation::storage::provider::detail
