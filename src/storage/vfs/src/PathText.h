#pragma once

#include <fl/i18n/ustring.h>

#include <vector>

namespace storage::vfs {

/// The components of a path, empty ones dropped.
std::vector<fl::i18n::ustring_view> components(fl::i18n::ustring_view path);

/// "/a/b" for every spelling of that path; empty for the root.
fl::i18n::ustring normalizedPath(fl::i18n::ustring_view path);

} // namespace storage::vfs
