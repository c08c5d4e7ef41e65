#pragma once

#include <fl/i18n/ustring.h>
#include <foundation/storage/provider/ByteStream.h>
#include <storage/vfs/Export.h>

#include <cstdint>
#include <functional>
#include <string>

namespace storage::vfs {

/// What a look at a container's own records says about it, before any provider opens it.
enum class ArchiveCondition {
    /// No bytes at all: an archive without entries.
    Empty,
    /// The end record and every declared entry's header are there.
    Sound,
    /// There is no end-of-central-directory record: the file is something else.
    NotAnArchive,
    /// It is an archive whose records contradict one another or end too early. What precedes the damage may
    /// be readable; a rebuild would lose the rest.
    Damaged,
};

/// One header of the central directory, as stored. Sizes and the offset are those of the Zip64 extra field
/// where there is one.
struct ArchiveEntryRecord {
    /// The stored bytes of the name, undecoded.
    std::string name;
    std::uint16_t flags = 0;
    std::uint16_t method = 0;
    std::uint16_t dosTime = 0;
    std::uint16_t dosDate = 0;
    std::uint32_t crc32 = 0;
    std::uint64_t compressedSize = 0;
    std::uint64_t size = 0;
    /// Where the entry's local header stands, as the archive counts: from behind the leading bytes.
    std::uint64_t localHeader = 0;

    /// General-purpose flag, bit 0.
    bool isEncrypted() const { return (flags & 0x0001U) != 0; }
    /// General-purpose flag, bit 11: the name is UTF-8, whatever the system's code set.
    bool hasUtf8Name() const { return (flags & 0x0800U) != 0; }
    bool isFolder() const { return !name.empty() && name.back() == '/'; }
    /// The path under which a provider shows the entry ("/docs/a.txt"): the name decoded as UTF-8 or in the
    /// system's code set, without empty components. Empty for a name that holds nothing but slashes.
    KXVFS_API fl::i18n::ustring path() const;
    /// Whether the stored date is a day of the calendar. The zero date and a 31st of February are not.
    KXVFS_API bool hasValidDate() const;
};

struct ArchiveSummary {
    ArchiveCondition condition = ArchiveCondition::Empty;
    /// For NotAnArchive and Damaged, a lower-case clause: what is wrong, where. Empty otherwise.
    std::string cause;
    /// The number of entries that the end record declares.
    std::uint64_t declaredEntries = 0;
    /// How many headers were found; fewer than declared in a damaged archive.
    std::uint64_t entries = 0;
    /// Bytes in front of the archive (a self-extractor's program).
    std::uint64_t leadingBytes = 0;
};

using ArchiveEntryVisitor = std::function<void(const ArchiveEntryRecord&)>;

/// Reads the end record (with the Zip64 one where it stands) and walks the central directory once, in its
/// order, handing each header to `onEntry`. Entry data is not looked at. Memory does not grow with the number
/// of entries.
/// Result: never throws for what the bytes say; ArchiveSummary tells.
/// Errors: those of the stream, and whatever `onEntry` throws.
KXVFS_API ArchiveSummary readArchiveDirectory(foundation::storage::provider::ByteStream& archive,
                                              const ArchiveEntryVisitor& onEntry = {});

} // namespace storage::vfs
