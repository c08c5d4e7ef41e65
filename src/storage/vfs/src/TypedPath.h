#pragma once

#include <fl/i18n/ustring.h>
#include <foundation/storage/provider/StorageIRI.h>

#include <optional>
#include <string>
#include <string_view>

namespace storage::vfs {

/// A local path as people type it, made absolute.
struct TypedPath {
    /// Where the path starts.
    foundation::storage::provider::StorageIRI root;
    /// What follows, with "/" between the names.
    fl::i18n::ustring path;
};

/// Takes apart what was typed (UTF-8) in the system's own notation. One file per system implements the
/// functions here.
TypedPath typedPath(std::string_view typed);

/// Whether what was typed ends like the path of a folder.
bool endsLikeFolder(std::string_view typed);

/// Why a name must not be given to a local file although "." and ".." and the like are out of question;
/// nothing where it may.
std::optional<std::string> objectionToLocalName(fl::i18n::ustring_view name);

/// Whether a symbolic link itself stands at a local location.
bool isSymbolicLink(const foundation::storage::provider::StorageIRI& location);

} // namespace storage::vfs
