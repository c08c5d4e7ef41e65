#pragma once

#include <storage/fileprovider/LocalFileOptions.h>
#include <storage/fileprovider/src/SystemCalls.h>

#include <memory>
#include <string>

namespace storage::fileprovider {

class SettledFiles;

/// What the operations of the component share: LocalFileOptions with the defaults filled in, which do not
/// change, and what is remembered of files.
struct Environment {
    std::shared_ptr<SystemCalls> calls;
    bool sync = true;
    /// Empty when the user has no place for it.
    std::string stateFolder;
    std::shared_ptr<SettledFiles> settled;

    static std::shared_ptr<const Environment> from(const LocalFileOptions& options);
};

using EnvironmentPtr = std::shared_ptr<const Environment>;

/// `$XDG_STATE_HOME/kxvfs`, else `.local/state/kxvfs` in the home folder; empty when neither is known.
std::string defaultStateFolder();

/// Makes the state folder and what is missing above it. Returns 0, or an errno: EACCES when it is not this
/// user's own, since whoever else can write there could have a save finished with bytes of theirs.
int makeStateFolder(const Environment& environment);

} // namespace storage::fileprovider
