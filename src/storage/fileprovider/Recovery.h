#pragma once

#include <foundation/storage/provider/StorageIRI.h>
#include <storage/fileprovider/Export.h>
#include <storage/fileprovider/LocalFileOptions.h>

#include <string>
#include <vector>

namespace storage::fileprovider {

/// What an interrupted save of a file had left, and what became of it.
enum class RecoveryOutcome {
    /// No save was interrupted; nothing was done.
    Nothing,
    /// A save had been interrupted before it touched the file: the file holds its old contents, or what
    /// another program wrote since, and what the save had left was removed.
    DiscardedUnfinishedSave,
    /// A save had been interrupted while the file was being overwritten: the file holds the new contents.
    FinishedSave,
    /// Something is left that does not belong to the file as it is (it was replaced since), or that this user
    /// may not remove. The file is whole.
    LeftAlone,
};

struct RecoveryReport {
    RecoveryOutcome outcome = RecoveryOutcome::Nothing;
    /// One sentence in UTF-8, without a full stop, for each thing that was found, naming the files.
    std::vector<std::string> details;
};

/// Finishes or discards what a save of this process or of another one left when it was killed. Opening the
/// file through LocalFileProvider does the same without a word. Waits while a living process is overwriting
/// the file. The file need not exist. Errors: the provider's Exception. LocalFileSystem when the file is half
/// overwritten and cannot be made whole (the journal is damaged, the new contents are missing, or another
/// program has changed the file since), and when it cannot be told whether anything is left in the state
/// folder; AccessDenied when only another user can finish the save; NoSpace. Nothing that could help is
/// removed then, and the cause names the files. Threads: any.
KXFILEPROVIDER_API RecoveryReport recoverFile(const foundation::storage::provider::StorageIRI& file,
                                              const LocalFileOptions& options = {});

/// For a process that is about to end in the middle of its work: lets no save of a file begin any more, in
/// this process, and returns the files whose saves have begun. A thread that begins one stops there for good.
/// When the process has ended, recoverFile, called by another one, settles these files, and nothing of the
/// saves is left. Threads: any.
KXFILEPROVIDER_API std::vector<foundation::storage::provider::StorageIRI> haltSaves();

} // namespace storage::fileprovider
