#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace storage::fileprovider {

/// How far the copy-over is that a journal describes.
enum class CopyOverPhase : std::uint32_t {
    /// The target is as it was; space behind its end may be reserved.
    Prepared = 1,
    /// The target holds its old contents and may have grown by zeros behind them.
    Growing = 2,
    /// The target may hold any mixture of old and new bytes.
    Overwriting = 3,
};

/// What the next process must know to finish or undo a copy-over that was interrupted. It stands beside the
/// staging file.
///
/// Layout, all numbers little-endian:
///
///     offset  bytes
///          0      8  "KXVFSJNL"
///          8      4  version, 2
///         12      4  phase
///         16      4  1 when the target carries the mark (see TargetMark.h), else 0
///         20      8  device of the target
///         28      8  inode of the target
///         36      8  size of the target before
///         44      8  size of the new contents
///         52      8  inode of the staging file
///         60      8  when the target was made, in nanoseconds since 1970; 0 when unknown
///         68      -  five texts, each with its length in 4 bytes in front:
///                    id of the save; id of the system's run; path of the target; name of the staging file;
///                    checksums of the old contents (see ContentSamples.h)
///        end      4  CRC-32 of everything before
struct Journal {
    CopyOverPhase phase = CopyOverPhase::Prepared;
    bool marked = false;
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::uint64_t oldSize = 0;
    std::uint64_t newSize = 0;
    std::uint64_t stagingInode = 0;
    std::uint64_t birthTime = 0;
    std::string id;
    /// Device numbers can be compared only while the system runs on; empty when unknown.
    std::string bootId;
    std::string target;
    std::string stagingName;
    std::string oldSamples;

    friend bool operator==(const Journal&, const Journal&) = default;
};

/// Larger than any real journal: what is read of a file that claims to be one.
constexpr std::size_t maximalJournalSize = 64 * 1024;

std::string encodeJournal(const Journal& journal);
/// Disengaged when a byte is missing, too many or changed, and when a name in it cannot be one.
std::optional<Journal> decodeJournal(std::string_view bytes);

} // namespace storage::fileprovider
