#pragma once

#include <foundation/storage/provider/StorageIRI.h>
#include <storage/vfs/Export.h>

#include <string>
#include <vector>

namespace storage::vfs {

/// What an interrupted write of a container had left, and what became of it.
enum class RecoveryResult {
    /// No write was interrupted.
    Nothing,
    /// The container holds its old contents; what the write had left was removed.
    Undone,
    /// The write had begun to overwrite the container and was finished: it holds the new contents.
    Finished,
    /// What was found does not belong to the container as it is, or this user may not remove it. The
    /// container is whole.
    LeftAlone,
};

struct Recovery {
    RecoveryResult result = RecoveryResult::Nothing;
    /// One sentence for each thing that was found, naming the files.
    std::vector<std::string> details;
};

/// Finishes or undoes an interrupted write of the local file at the bottom of `location`. Opening the
/// container does the same without a word. Errors: those of the provider of local files. Threads: any.
KXVFS_API Recovery recoverContainer(const foundation::storage::provider::StorageIRI& location);

/// For a process that is about to end in the middle of its work: lets no save of a local file begin any more,
/// in this process, and returns the files whose saves have begun. A thread that begins one stops there for
/// good. recoverContainer settles these files once the process has ended. Threads: any.
KXVFS_API std::vector<foundation::storage::provider::StorageIRI> haltSaves();

} // namespace storage::vfs
