#pragma once

#include <foundation/storage/provider/FolderEntry.h>

#include <boost/date_time/posix_time/ptime.hpp>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>

namespace foundation::storage::provider {

/// Whether names that differ in letter case alone are different names.
enum class FilenameSensitivity {
    CaseSensitive,
    CaseInsensitive,
};

/// What stands at a location.
enum class Existence {
    Nothing,
    File,
    Folder,
};

/// Order of two paths by the provider's rules: negative, zero or positive as `a` comes before, equals or
/// comes after `b`. Callable from several threads at once.
using PathComparator = std::function<int(fl::i18n::ustring_view a, fl::i18n::ustring_view b)>;

/// Everything a provider tells of one item.
struct ExtendedAttributes {
    EntryKind kind;
    /// Bytes; disengaged for folders and where unknown.
    std::optional<std::uint64_t> size;
    boost::posix_time::ptime lastModified;
    bool writable;
    /// What only some providers know, by name ("owner", "permissions"); values are text in UTF-8.
    std::map<std::string, std::string> properties;
};

/// The space behind a provider; disengaged where unknown.
struct ProviderStorageInfo {
    std::optional<std::uint64_t> totalBytes;
    std::optional<std::uint64_t> freeBytes;
};

/// What a provider keeps in caches of its own.
struct ProviderCacheUsage {
    std::uint64_t files = 0;
    std::uint64_t bytes = 0;
};

} // namespace foundation::storage::provider
