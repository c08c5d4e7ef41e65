#pragma once

#include <filesystem>
#include <string>

namespace storage::mount {

/// The user's folder for what programs keep ($XDG_STATE_HOME/kxvfs); empty where there is none.
std::filesystem::path stateFolder();
/// The user's folder for what belongs to running programs ($XDG_RUNTIME_DIR/kxvfs); empty where there is
/// none.
std::filesystem::path runtimeFolder();

/// A new folder in `parent` is the folder of temporary files (TMPDIR) as long as the object lives, and is
/// removed with it. No other thread may ask for the environment meanwhile. Errors: std::system_error.
class TemporaryFolderInUse {
public:
    explicit TemporaryFolderInUse(const std::filesystem::path& parent);
    ~TemporaryFolderInUse();

    TemporaryFolderInUse(const TemporaryFolderInUse&) = delete;
    TemporaryFolderInUse& operator=(const TemporaryFolderInUse&) = delete;

private:
    std::string m_before;
    bool m_hadBefore = false;
    std::filesystem::path m_folder;
};

} // namespace storage::mount
