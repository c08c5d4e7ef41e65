#pragma once

#include <foundation/storage/provider/StorageIRI.h>
#include <storage/fileprovider/src/Environment.h>
#include <storage/fileprovider/src/Journal.h>
#include <storage/fileprovider/src/Staging.h>

#include <string>

namespace storage::fileprovider {

/// Puts the bytes of a staging file over those of its target, which stays the same file, in steps that the
/// next process can finish or undo whenever this one is killed:
///
/// - 1: a journal says where the target and the staging file are.
///   Undo: remove journal and staging file.
/// - 2: the space that the target grows by is reserved.
///   Undo: cut to the old size as well.
/// - 3: the target is marked, the journal says "overwriting".
/// - 4: the bytes are copied, the target is cut to size and synced.
///   Finish: do it again.
/// - 5: the mark, the journal and the staging file are removed.
///   Finish: remove what is left.
///
/// Each step is on the medium before the next begins.
///
/// `staging` is complete and synced; it is gone when this returns. Waits for, finishes or undoes an earlier
/// copy-over of the same target.
/// Errors: the provider's Exception. Up to step 3 the target keeps its old contents and the staging file is
/// the caller's to remove; afterwards (`begun` is true then) the staging file must stay, and the cause says
/// so.
void copyOver(const EnvironmentPtr& environment, const foundation::storage::provider::StorageIRI& iri,
              const std::string& target, Staging& staging, bool& begun);

/// Steps 4 and 5. `target` and `stagingFile` are open, `journalPath` is where the journal stands.
/// Errors: the provider's Exception; the save can be finished later.
void finishCopyOver(const Environment& environment, const foundation::storage::provider::StorageIRI& iri,
                    const Journal& journal, const std::string& journalPath, int target, int stagingFile);

/// Undoes steps 1 and 2. Returns 0 or an errno.
int undoCopyOver(const Environment& environment, const Journal& journal, const std::string& journalPath,
                 int target);

/// Identifies the run of the system since it was started; empty when unknown.
std::string currentBootId();

} // namespace storage::fileprovider
