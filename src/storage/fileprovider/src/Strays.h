#pragma once

#include <storage/fileprovider/src/Descriptor.h>
#include <storage/fileprovider/src/Environment.h>
#include <storage/fileprovider/src/WorkingNames.h>

#include <string>
#include <vector>

namespace storage::fileprovider {

/// Opens a working file for reading. It is never waited for and never reached through a link; `errno` is set
/// when that fails.
Descriptor openWorkingFile(const EnvironmentPtr& environment, const std::string& path);

/// Removes those staging files of `names`, with all drafts of their slots, whose process is dead,
/// unless a journal stands in one of `places`. Ends at so many empty slots. Returns the removed staging
/// files.
std::vector<std::string> removeStrays(const EnvironmentPtr& environment,
                                      const std::vector<WorkingNames>& places, const WorkingNames& names,
                                      unsigned emptySlots);

} // namespace storage::fileprovider
