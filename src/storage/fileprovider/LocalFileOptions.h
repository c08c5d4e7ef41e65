#pragma once

#include <memory>
#include <optional>
#include <string>

namespace storage::fileprovider {

class SystemCalls;

/// How local files are saved. The defaults are what a program wants.
struct LocalFileOptions {
    /// Whether a save waits until the bytes are on the storage medium. Without it a save still survives the
    /// end of the process, but not that of the system. For benchmarks.
    bool sync = true;

    /// The folder (absolute, UTF-8) for what cannot stand beside a saved file because its folder is not
    /// writable or the name would be too long; made when needed, for this user alone. Disengaged:
    /// `$XDG_STATE_HOME/kxvfs`, or `.local/state/kxvfs` in the user's home folder.
    std::optional<std::string> stateFolder;

    /// How the operating system is called; null for the plain way. A seam for tests.
    std::shared_ptr<SystemCalls> systemCalls;
};

} // namespace storage::fileprovider
