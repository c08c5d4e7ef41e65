#pragma once

#include "FolderContents.h"

#include <foundation/storage/provider/IClonableFolderEntryIterator.h>

#include <iterator>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>

namespace storage::zipprovider {

struct is_file_predicate {
    bool operator()(const FolderEntry& entry) const { return entry.type == ZipEntryType::File; }
};

struct is_folder_predicate {
    bool operator()(const FolderEntry& entry) const { return entry.type == ZipEntryType::Folder; }
};

struct is_file_or_folder_predicate {
    bool operator()(const FolderEntry&) const { return true; }
};

/// The host's iterator over the children of one folder that satisfy a predicate, in name order. It walks a
/// snapshot taken when it is made, so changes and rebuilds of the archive neither show through it nor disturb
/// it. One thread at a time; clones are independent.
template <typename Predicate>
class FileFolderEntryIterator
    : public foundation::storage::provider::IClonableFolderEntryIterator<FileFolderEntryIterator<Predicate>> {
    using HostEntry = foundation::storage::provider::FolderEntry;

public:
    /// Precondition: `folder` is not null.
    explicit FileFolderEntryIterator(std::shared_ptr<FolderContents> folder)
        : m_owner(std::move(folder)), m_position(m_owner->snapshot(Predicate())) {}

    HostEntry current() const override {
        if (!m_current) {
            throw std::logic_error("cannot give the current entry of a listing: next() was not called");
        }
        return *m_current;
    }

    bool hasNext() const override { return m_position.entry() != m_end.entry(); }

    void next() override {
        const std::shared_ptr<FolderEntry> entry = m_position.entry();
        if (!entry) {
            throw std::out_of_range("cannot move on in a listing: no entry remains");
        }
        m_current = HostEntry(entry->path.fileName(), entry->type == ZipEntryType::Folder
                                                          ? foundation::storage::provider::EntryKind::Folder
                                                          : foundation::storage::provider::EntryKind::File);
        m_position.advance();
    }

private:
    /// A place in a snapshot that it holds by value; default-made, the place behind the last child.
    class Cursor {
    public:
        Cursor() = default;
        explicit Cursor(FolderChildren snapshot) : m_snapshot(std::move(snapshot)) {
            m_node = m_snapshot->begin();
            m_entry = entryAtNode();
        }
        Cursor(const Cursor& other) : m_snapshot(other.m_snapshot), m_entry(other.m_entry) {
            if (m_snapshot) {
                m_node = std::next(
                    m_snapshot->begin(),
                    std::distance(other.m_snapshot->begin(), FolderChildren::const_iterator(other.m_node)));
            }
        }
        Cursor& operator=(const Cursor&) = delete;

        const std::shared_ptr<FolderEntry>& entry() const { return m_entry; }

        void advance() {
            ++m_node;
            m_entry = entryAtNode();
        }

    private:
        std::shared_ptr<FolderEntry> entryAtNode() const {
            return m_node == m_snapshot->end() ? nullptr : m_node->second;
        }

        std::optional<FolderChildren> m_snapshot;
        FolderChildren::const_iterator m_node;
        std::shared_ptr<FolderEntry> m_entry;
    };

    std::shared_ptr<FolderContents> m_owner;
    Cursor m_position;
    Cursor m_end;
    std::optional<HostEntry> m_current;
};

} // namespace storage::zipprovider
