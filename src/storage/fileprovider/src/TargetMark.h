#pragma once

#include <storage/fileprovider/src/Environment.h>

#include <optional>
#include <string>
#include <string_view>

namespace storage::fileprovider {

/// While a file is being overwritten it carries an extended attribute that leads to the journal. Through it
/// the journal is found by every hard link to the file and by every user, and only someone who may write the
/// file can set it. It is removed, for good, before the journal is: a journal whose mark is gone is finished
/// with. File systems without such attributes do without.
struct TargetMark {
    static constexpr const char* attributeName = "user.kxvfs.save";

    std::string id;
    std::string journalPath;

    /// `mark` is disengaged without a mark, and for one that names no journal. Returns 0 or an errno; one
    /// that isHidden() says that there may be a mark which only who may read the file can see.
    static int read(const std::string& target, std::optional<TargetMark>& mark);
    static int read(int target, std::optional<TargetMark>& mark);
    static bool isHidden(int error) noexcept;
    /// Whether the file is not there, or its file system knows such marks and the file has none.
    static bool isKnownMissing(const std::string& target) noexcept;
    /// Never replaces another mark. Returns 0 or an errno; EEXIST when there is one.
    int set(const Environment& environment, int target) const;
    /// Removes the mark of the save with this id; that of another one stays. Returns 0 or an errno; a missing
    /// mark is no error.
    static int remove(const Environment& environment, int target, std::string_view id);
};

} // namespace storage::fileprovider
