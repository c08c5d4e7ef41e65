#pragma once

#include <storage/mount/Export.h>

#include <chrono>
#include <cstdint>
#include <string_view>

namespace storage::mount {

/// How an archive is shown, and when its changes are saved.
struct MountOptions {
    /// Nothing can be changed; the archive's lock is not needed.
    bool readOnly = false;
    /// Every file NAME.zip also appears as a read-only folder NAME.zip.d.
    bool nested = false;
    /// Other users may look in, as far as the permissions shown allow.
    bool allowOther = false;

    /// Owner and group of everything that is shown.
    std::uint32_t uid = 0;
    std::uint32_t gid = 0;
    /// Taken off 0755 (folders) and 0644 (files).
    std::uint32_t umask = 022;

    /// Changes are saved when none has come for this long...
    std::chrono::milliseconds saveAfter{1000};
    /// ...at the latest this long after the first one...
    std::chrono::milliseconds saveWithin{60'000};
    /// ...and as soon as what is not saved takes this many bytes.
    std::uint64_t spaceLimit = std::uint64_t{256} << 20;
};

/// The options of a process's user and its file mode mask.
KXMOUNT_API MountOptions defaultMountOptions();

/// Sets what a comma-separated list says: "ro", "rw", "nested", "allow_other", "uid=N", "gid=N",
/// "umask=OCTAL", "save_after=SECONDS", "save_within=SECONDS", "space=BYTES" (with K, M or G). Errors:
/// std::invalid_argument naming the option that is unknown or has no such value; `options` may then have been
/// set in part.
KXMOUNT_API void setMountOptions(MountOptions& options, std::string_view list);

} // namespace storage::mount
