#pragma once

#include "FolderEntry.h"

#include <foundation/core/Mutex.h>
#include <foundation/core/ThreadAnnotations.h>

#include <map>
#include <memory>

namespace storage::zipprovider {

/// The children of a folder by name, in the order of the names' UTF-16 code units. One name is one child.
using FolderChildren = std::map<fl::i18n::ustring, std::shared_ptr<FolderEntry>>;

/// One folder of the folder index: its own entry and its children. A handle: copies share the children.
/// Threads: every operation may be called from several threads; none calls out while it holds the folder's
/// mutex, and no two folders' mutexes are ever held at once.
class FolderContents {
public:
    using Child = FolderChildren::node_type;

    /// Precondition: `ownEntry` is not null and a folder.
    explicit FolderContents(std::shared_ptr<FolderEntry> ownEntry);

    /// Adds a child under the last component of its path. A child of that name, file or folder, is kept and
    /// the new one dropped.
    void add(std::shared_ptr<FolderEntry> entry);
    /// The file (folder) of that name, null when there is none; a child of the other type counts as none.
    std::shared_ptr<FolderEntry> findFile(const fl::i18n::ustring& name) const;
    std::shared_ptr<FolderEntry> findFolder(const fl::i18n::ustring& name) const;

    /// Puts `entry` in the place of the child of its name, or adds it.
    void replace(std::shared_ptr<FolderEntry> entry);
    /// A child made ready for put(): what needs memory is done.
    static Child prepare(std::shared_ptr<FolderEntry> entry);
    /// The same as replace(), without a way to fail. Precondition: `child` is one that prepare() made.
    void put(Child child) noexcept;
    /// Takes the child of that name away and returns it, null when there is none.
    std::shared_ptr<FolderEntry> remove(const fl::i18n::ustring& name);
    bool empty() const;

    /// The folder's own entry, never null.
    std::shared_ptr<FolderEntry> ownEntry() const;
    void setOwnEntry(std::shared_ptr<FolderEntry> entry);

    /// The children for which `predicate(const FolderEntry&)` holds.
    template <typename Predicate>
    FolderChildren snapshot(Predicate predicate) const;

private:
    struct Impl {
        explicit Impl(std::shared_ptr<FolderEntry> own) : ownEntry(std::move(own)) {}

        std::shared_ptr<FolderEntry> ownEntry KX_GUARDED_BY(mutex);
        FolderChildren children KX_GUARDED_BY(mutex);
        mutable foundation::core::Mutex mutex;
    };

    std::shared_ptr<FolderEntry> find(const fl::i18n::ustring& name, ZipEntryType type) const;

    std::shared_ptr<Impl> m_impl;
};

template <typename Predicate>
FolderChildren FolderContents::snapshot(Predicate predicate) const {
    FolderChildren matching;
    const foundation::core::MutexLock lock(m_impl->mutex);
    for (const auto& child : m_impl->children) {
        if (predicate(*child.second)) {
            matching.emplace_hint(matching.end(), child);
        }
    }
    return matching;
}

} // namespace storage::zipprovider
