#pragma once

#include <storage/mount/MountRecord.h>

#include <optional>
#include <string>

namespace storage::mount {

/// What stands in the file of a record.
std::string toRecordText(const MountRecord& record);
/// Absent for a text that is none; `alive` is for the caller to fill in.
std::optional<MountRecord> fromRecordText(const std::string& text);

} // namespace storage::mount
