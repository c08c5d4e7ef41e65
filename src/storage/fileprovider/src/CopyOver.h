#pragma once

#include <foundation/storage/provider/StorageIRI.h>
#include <storage/fileprovider/src/Environment.h>
#include <storage/fileprovider/src/Journal.h>
#include <storage/fileprovider/src/Staging.h>

#include <sys/stat.h>

#include <string>

namespace storage::fileprovider {

/// Puts the bytes of a staging file over those of its target, which stays the same file, in steps that the
/// next process can finish or undo whenever this one is killed:
///
/// - 1: a journal says where the target and the staging file are.
///   Undo: remove journal and staging file.
/// - 2: the space of the new contents is reserved. Where the file system cannot do that, the journal says
///   "growing" and zeros are written behind the old contents.
///   Undo: give the space back, or cut the zeros off.
/// - 3: the target is marked, the journal says "overwriting" and has samples of the old contents.
/// - 4: the bytes are copied, the target is cut to size and synced.
///   Finish: do it again.
/// - 5: the mark, the journal and the staging file are removed.
///   Finish: remove what is left.
///
/// Each step is on the medium before the next begins.
///
/// `staging` is complete and synced, `present` is the target as it was last looked at. Returns true when the
/// new contents are in place and `staging` is gone. Returns false, with the target untouched, when it is not
/// as `present` says, or another copy-over of it stood in the way, which was waited for, finished or undone:
/// the caller is to look at the target again.
/// Errors: the provider's Exception. Up to step 3 the target keeps its old contents and the staging file is
/// the caller's to remove; afterwards (`begun` is true then) the staging file must stay, and the cause says
/// so. Busy when the journal of an earlier save stands in the way and cannot be removed.
bool copyOver(const EnvironmentPtr& environment, const foundation::storage::provider::StorageIRI& iri,
              const std::string& target, const struct stat& present, Staging& staging, bool& begun);

/// Opens the target for writing, and for reading where the user may; `errno` is set when that fails.
Descriptor openToOverwrite(const EnvironmentPtr& environment, const std::string& target);

/// Steps 4 and 5. `target` and `stagingFile` are open, `journalPath` is where the journal stands.
/// Errors: the provider's Exception; the save can be finished later.
void finishCopyOver(const Environment& environment, const foundation::storage::provider::StorageIRI& iri,
                    const Journal& journal, const std::string& journalPath, int target, int stagingFile);

/// Undoes what step 2 did to the target, and takes the mark away; the journal stays. What another program has
/// put behind the old contents stays too, unless `cutsAnything` or `target` is not open for reading, and so
/// does the time of modification. Does nothing while the target carries the mark of another copy-over.
/// Returns 0 or an errno.
int restoreTarget(const Environment& environment, const Journal& journal, int target, bool cutsAnything);

/// Whether the target may have grown by what step 2 writes where space cannot be reserved.
bool mayHaveGrown(const Journal& journal, std::uint64_t size);

/// Whether the system has stopped since the journal was written, and nobody has written the target after it
/// was started again: then what was not synced may hold anything, and is nobody's.
bool isAsTheSystemsStopLeftIt(const Environment& environment, const Journal& journal, int target);

} // namespace storage::fileprovider
