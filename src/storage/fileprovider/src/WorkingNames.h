#pragma once

#include <string>
#include <string_view>

namespace storage::fileprovider {

/// The names of the files that a save needs, all in one folder:
///
///     <prefix>new<slot>       a staging file: the contents that are being written
///     <prefix>journal         the journal of the one copy-over that may be under way for the target
///     <prefix>journal<slot>   a journal before it is complete
///     <prefix>copy<slot>      a copy that a recovery keeps (see KeptCopy.h), before it is complete
///
/// Slots are numbered from 0 and the first free one is taken, so what dead processes left is found without
/// reading the folder.
class WorkingNames {
public:
    /// Beside the target: the prefix is ".NAME.kxvfs-", with a hash in place of the end of a long name.
    static WorkingNames beside(std::string_view target);
    /// In the state folder: the prefix is a hash of the target's path. `stateFolder` must not be empty.
    static WorkingNames inStateFolder(std::string_view stateFolder, std::string_view target);

    /// The folder that they stand in.
    const std::string& folder() const { return m_folder; }
    std::string staging(unsigned slot) const { return m_prefix + "new" + std::to_string(slot); }
    std::string journal() const { return m_prefix + "journal"; }
    std::string journalDraft(unsigned slot) const { return m_prefix + "journal" + std::to_string(slot); }
    /// The lock that stands for the target's name (see FileLock).
    std::string nameLock() const { return m_prefix + "lock"; }

private:
    WorkingNames(std::string_view folder, std::string_view name);

    std::string m_folder;
    std::string m_prefix;
};

/// Whether a name, without its folder, is that of a staging file, wherever it stands.
bool isStagingName(std::string_view name);

/// The name of what keepCopy() makes of a target.
std::string keptCopyName(std::string_view target);

/// The drafts of the journal and of the kept copy that belong to a staging file, from the path of that.
/// Precondition: isStagingName.
std::string journalDraftFor(std::string_view stagingPath);
std::string copyDraftFor(std::string_view stagingPath);

/// Whether a name, without its folder, is that of a working file beside a target.
bool isWorkingName(std::string_view name);

} // namespace storage::fileprovider
