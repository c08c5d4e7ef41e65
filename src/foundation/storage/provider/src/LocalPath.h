#pragma once

#include <fl/i18n/ustring.h>

#include <optional>

namespace foundation::storage::provider::detail {

/// A local path as the authority and the path of a "file" IRI.
struct LocalPath {
    fl::i18n::ustring authority;
    /// Begins with "/".
    fl::i18n::ustring path;
};

/// Takes an absolute path in the system's generic form apart; nothing when it is not absolute. On Windows
/// "//server/share" names a server and "C:/" becomes "/C:/"; elsewhere a path has no authority.
std::optional<LocalPath> splitLocalPath(fl::i18n::ustring_view path);

} // namespace foundation::storage::provider::detail
