#pragma once

#include <fl/i18n/ustring.h>

#include <utility>

namespace foundation::storage::provider {

/// What an entry of a folder is.
enum class EntryKind {
    File,
    Folder,
};

/// One entry of a listing: its name (in a recursive listing its path relative to the listed folder, joined
/// with "/") and its kind. A value.
class FolderEntry {
public:
    FolderEntry(fl::i18n::ustring name, EntryKind kind) : m_name(std::move(name)), m_kind(kind) {}

    const fl::i18n::ustring& getName() const { return m_name; }
    EntryKind getKind() const { return m_kind; }
    bool isFolder() const { return m_kind == EntryKind::Folder; }

    friend bool operator==(const FolderEntry&, const FolderEntry&) = default;

private:
    fl::i18n::ustring m_name;
    EntryKind m_kind;
};

} // namespace foundation::storage::provider
