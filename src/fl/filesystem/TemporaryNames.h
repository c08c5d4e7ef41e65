#pragma once

#include <fl/filesystem/Export.h>

#include <functional>
#include <string>

namespace fl::filesystem {

/// Gives the unique part of a temporary name: ASCII letters and digits. A name that is taken is followed by
/// another call, so the source must come to a name that is free.
using TemporaryNameSource = std::function<std::string()>;

/// Sets where unique parts come from, for tests that need the same names each time; an empty function
/// restores the default, 16 random letters and digits. Returns what was set before (empty for the default).
/// Threads: any. Calls of the source are made one at a time, under a lock: it must not make temporary files
/// itself.
KXFOUNDATION_FILESYSTEM_API TemporaryNameSource setTemporaryNameSource(TemporaryNameSource source);

} // namespace fl::filesystem
