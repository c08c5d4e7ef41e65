#pragma once

#include "IEntrySink.h"
#include "MiniZipWriteHandle.h"
#include "ZipEntryPath.h"
#include "ZipEntryType.h"

#include <boost/date_time/posix_time/ptime.hpp>
#include <boost/iostreams/categories.hpp>

#include <cstdint>

namespace storage::zipprovider {

/// What the new archive is told of an entry.
struct EntryDescription {
    ZipEntryType type;
    ZipEntryPath path;
    /// Uncompressed bytes as far as known.
    std::uint64_t size;
    boost::posix_time::ptime lastModified;
    std::uint64_t index;
};

/// The name under which an entry of that path and type is stored: a folder's name ends in "/".
fl::i18n::ustring zipEntryName(const ZipEntryPath& path, ZipEntryType type);

/// Errors: MiniZipException when no archive can hold an entry of that path and type: its name has a NUL in
/// it, or takes more than 65535 bytes.
void requireStorableName(const ZipEntryPath& path, ZipEntryType type);

/// What the bytes written into an entry are.
enum class EntryData {
    /// The contents; minizip deflates them and keeps their checksum and size.
    ToDeflate,
    /// Contents deflated before; whoever writes them closes the entry with checksum and size.
    AlreadyDeflated,
};

/// Opens the next entry of the archive being written; minizip finishes the one before. What minizip deflates
/// it also marks as text or not, in the internal attributes; data deflated before come with theirs.
/// Errors: MiniZipException, also for a name that holds a NUL or is longer than 65535 bytes.
void openZipEntry(MiniZipWriteHandle& handle, const EntryDescription& description, EntryData data,
                  std::uint32_t internalAttributes = 0);

/// One entry of an archive being written, deflated. Also a Boost.Iostreams output device; copies write to the
/// same entry. minizip finishes the entry when the next one is opened or the archive is closed, so the sink
/// is used, and a stream over it closed, before the next sink is made on the handle. Threads: as the
/// handle's.
class ZipEntrySink : public IEntrySink {
public:
    using char_type = char;
    using category = boost::iostreams::sink_tag;

    /// Opens the entry. `handle` must outlive the sink and its copies.
    /// Errors: those of openZipEntry.
    ZipEntrySink(MiniZipWriteHandle& handle, const EntryDescription& description);

    std::int64_t write(const char* data, std::int64_t count) override;

private:
    MiniZipWriteHandle* m_handle;
    EntryDescription m_description;
};

} // namespace storage::zipprovider
