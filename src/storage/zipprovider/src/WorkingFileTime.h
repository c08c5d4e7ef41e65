#pragma once

#include <fl/filesystem/path.h>

namespace storage::zipprovider {

/// Gives a file the time of modification of another one, exactly. A failure leaves the file's own time.
/// One file per system.
void copyLastModified(const fl::filesystem::path& from, const fl::filesystem::path& to) noexcept;

} // namespace storage::zipprovider
