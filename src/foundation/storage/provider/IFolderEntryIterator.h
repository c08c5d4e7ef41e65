#pragma once

#include <foundation/storage/provider/Export.h>
#include <foundation/storage/provider/FolderEntry.h>

#include <memory>

namespace foundation::storage::provider {

/// A walk over the entries of a folder, standing before the first one at the start:
///
///     while (entries->hasNext()) { entries->next(); use(entries->current()); }
///
/// An iterator shows the folder as it was when the listing was asked for. Threads: one at a time; clones are
/// independent. The order of the virtual operations is part of the binary interface.
class KXFLSTORAGEPROVIDER_API IFolderEntryIterator {
public:
    /// The entry that the last next() passed over.
    /// Errors: std::logic_error before the first next().
    virtual FolderEntry current() const = 0;
    /// Whether an entry remains.
    virtual bool hasNext() const = 0;
    /// Moves over the next entry. Errors: std::out_of_range when none remains.
    virtual void next() = 0;
    /// An independent copy that stands at the same entry.
    virtual std::unique_ptr<IFolderEntryIterator> clone() const = 0;
    virtual ~IFolderEntryIterator();

protected:
    IFolderEntryIterator() = default;
    IFolderEntryIterator(const IFolderEntryIterator&) = default;
    IFolderEntryIterator& operator=(const IFolderEntryIterator&) = default;
};

} // namespace foundation::storage::provider
