#pragma once

#include <storage/fileprovider/src/Descriptor.h>
#include <storage/fileprovider/src/Environment.h>
#include <storage/fileprovider/src/Journal.h>

#include <sys/types.h>

#include <string>

namespace storage::fileprovider {

/// Writes a journal under its draft name and has it synced. Returns 0 or an errno.
int writeJournalDraft(const EnvironmentPtr& environment, const Journal& journal, const std::string& draft);

/// Puts a journal in the place of the one at `path`, through `draft`, for good. Returns 0 or an errno; then
/// one of the two stands there.
int replaceJournal(const EnvironmentPtr& environment, const Journal& journal, const std::string& draft,
                   const std::string& path);

/// Opens the folder of a journal of `owner`, who may change what stands at any part of its path meanwhile:
/// only one in which a journal of that owner stands, so that nothing is made where the owner may make
/// nothing. Not open after a failure, with `errno` set; EPERM when the journal there is another user's.
Descriptor openJournalFolder(const EnvironmentPtr& environment, const std::string& path, uid_t owner);

/// Has the journal take the target, which is open, as it is for the old contents, so that finishing the save
/// can be stopped and begun again like the save itself. It stays its owner's, as the staging file is: what a
/// journal of root's says would be believed of whoever has written it. Returns 0 or an errno, EPERM when this
/// user may not write journals of that owner; then the journal stands as it was, or renewed.
int renewJournal(const EnvironmentPtr& environment, const Journal& journal, const std::string& journalPath,
                 uid_t owner, int target);

} // namespace storage::fileprovider
