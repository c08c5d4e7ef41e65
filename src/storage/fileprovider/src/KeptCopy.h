#pragma once

#include <storage/fileprovider/src/Environment.h>

#include <string>
#include <string_view>

namespace storage::fileprovider {

/// Copies what a file holds to a new file in `folder` that its owner alone may read, and syncs that, before a
/// recovery overwrites bytes of which it cannot tell whose they are. The copy is named after `target`, with
/// ".before-recovery" behind it, and a number where such a file stands already. It has that name only when it
/// is whole; until then it stands at `draft`, in the same folder, from where what a killed recovery has left
/// is removed. Nothing here removes the copy again. Returns 0, with its path in `copy`, or an errno; then
/// there is no copy. EBUSY: another recovery has begun one meanwhile.
int keepCopy(const EnvironmentPtr& environment, int file, std::string_view target, std::string_view folder,
             const std::string& draft, std::string& copy);

} // namespace storage::fileprovider
