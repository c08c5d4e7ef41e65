#include <storage/vfs/ArchiveDirectory.h>

#include <storage/vfs/src/PathText.h>
#include <storage/vfs/src/ZipRecords.h>

#include <fl/i18n/KxLocale.h>
#include <fl/i18n/codecvt_string_to_ustring.h>
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <span>
#include <vector>

namespace storage::vfs {

using foundation::storage::provider::ByteStream;
using foundation::storage::provider::SeekOrigin;
using namespace records;

namespace {

using Bytes = std::span<const unsigned char>;

/// A window over the stream, so that walking thousands of small headers costs few reads.
class Window {
public:
    explicit Window(ByteStream& stream)
        : m_stream(stream), m_size(static_cast<std::uint64_t>(stream.seek(0, SeekOrigin::End))) {}

    std::uint64_t size() const { return m_size; }

    /// The `count` bytes at `offset`, valid until the next call; fewer where the file ends.
    Bytes at(std::uint64_t offset, std::size_t count) {
        if (offset >= m_size)
            return {};
        count = static_cast<std::size_t>(std::min<std::uint64_t>(count, m_size - offset));
        if (offset < m_start || offset - m_start + count > m_bytes.size())
            fill(offset, std::max(count, chunk));
        const auto from = static_cast<std::size_t>(offset - m_start);
        return Bytes(m_bytes).subspan(from, std::min(count, m_bytes.size() - from));
    }

private:
    static constexpr std::size_t chunk = 256 * 1024;

    void fill(std::uint64_t offset, std::size_t count) {
        m_bytes.resize(static_cast<std::size_t>(std::min<std::uint64_t>(count, m_size - offset)));
        m_start = offset;
        m_stream.seek(static_cast<std::int64_t>(offset), SeekOrigin::Begin);
        std::size_t got = 0;
        while (got < m_bytes.size()) {
            const auto n = m_stream.read(reinterpret_cast<char*>(m_bytes.data()) + got,
                                         static_cast<std::int64_t>(m_bytes.size() - got));
            if (n <= 0)
                break;
            got += static_cast<std::size_t>(n);
        }
        m_bytes.resize(got);
    }

    ByteStream& m_stream;
    std::uint64_t m_size;
    std::uint64_t m_start = 0;
    std::vector<unsigned char> m_bytes;
};

/// What the end record says, Zip64 or not.
struct EndRecord {
    std::uint64_t position = 0;
    std::uint64_t disk = 0;
    std::uint64_t directoryDisk = 0;
    std::uint64_t entriesOnDisk = 0;
    std::uint64_t entries = 0;
    std::uint64_t directorySize = 0;
    std::uint64_t directoryOffset = 0;
    bool zip64 = false;
    bool whole = true;
};

/// The last place where a signature stands, whether or not a whole record follows: the provider's reader
/// settles for it too.
std::optional<std::uint64_t> findLast(Window& file, std::uint32_t signature) {
    const auto distance = std::min(file.size(), searchDistance);
    const auto start = file.size() - distance;
    const auto tail = file.at(start, static_cast<std::size_t>(distance));
    if (tail.size() < sizeof signature)
        return std::nullopt;
    for (auto at = tail.size() - sizeof signature + 1; at-- > 0;)
        if (get32(&tail[at]) == signature)
            return start + at;
    return std::nullopt;
}

std::optional<EndRecord> findZip64End(Window& file) {
    const auto place = findLast(file, zip64LocatorSignature);
    if (!place)
        return std::nullopt;
    const auto locator = file.at(*place, zip64LocatorSize);
    // Of a locator that speaks of several disks, the provider's reader makes nothing.
    if (locator.size() < zip64LocatorSize || get32(&locator[4]) != 0 || get32(&locator[16]) != 1)
        return std::nullopt;
    const auto position = get64(&locator[8]);
    const auto record = file.at(position, zip64EndSize);
    if (record.size() < zip64EndSize || get32(&record[0]) != zip64EndSignature)
        return std::nullopt;
    return EndRecord{position,           get32(&record[16]), get32(&record[20]), get64(&record[24]),
                     get64(&record[32]), get64(&record[40]), get64(&record[48]), true};
}

std::optional<EndRecord> findEnd(Window& file) {
    if (auto zip64 = findZip64End(file))
        return zip64;
    const auto position = findLast(file, endSignature);
    if (!position)
        return std::nullopt;
    const auto record = file.at(*position, endSize);
    if (record.size() < endSize) {
        EndRecord cut{*position};
        cut.whole = false;
        return cut;
    }
    return EndRecord{*position,          get16(&record[4]),  get16(&record[6]),  get16(&record[8]),
                     get16(&record[10]), get32(&record[12]), get32(&record[16]), false};
}

/// What contradicts itself in the end record; empty where nothing does.
std::string contradiction(const EndRecord& end) {
    if (!end.whole)
        return "its end-of-central-directory record is cut off";
    if (end.disk != 0 || end.directoryDisk != 0 || end.entriesOnDisk != end.entries)
        return "it is one part of an archive in several parts";
    if (end.directorySize > end.position || end.directoryOffset > end.position - end.directorySize)
        return fmt::format("the end record puts the central directory ({} bytes at {}) beyond itself (at {})",
                           end.directorySize, end.directoryOffset, end.position);
    if (end.entries == 0 && end.directorySize != 0)
        return fmt::format("the end record declares no entries but a central directory of {} bytes",
                           end.directorySize);
    return {};
}

void readZip64Extra(Bytes extra, ArchiveEntryRecord& record) {
    while (extra.size() >= 4) {
        const auto id = get16(&extra[0]);
        const std::size_t length = get16(&extra[2]);
        extra = extra.subspan(4);
        if (length > extra.size())
            return;
        if (id == zip64ExtraId) {
            auto field = extra.first(length);
            for (auto* value : {&record.size, &record.compressedSize, &record.localHeader})
                if (*value == all32 && field.size() >= 8) {
                    *value = get64(&field[0]);
                    field = field.subspan(8);
                }
        }
        extra = extra.subspan(length);
    }
}

/// The header at `offset`; sets `next` to the place behind it. Nothing where no whole header stands there.
std::optional<ArchiveEntryRecord> readHeader(Window& file, std::uint64_t offset, std::uint64_t limit,
                                             std::uint64_t& next) {
    const auto header = file.at(offset, centralHeaderSize);
    if (header.size() < centralHeaderSize || get32(&header[0]) != centralHeaderSignature)
        return std::nullopt;
    ArchiveEntryRecord record;
    record.flags = get16(&header[8]);
    record.method = get16(&header[10]);
    record.dosTime = get16(&header[12]);
    record.dosDate = get16(&header[14]);
    record.crc32 = get32(&header[16]);
    record.compressedSize = get32(&header[20]);
    record.size = get32(&header[24]);
    record.localHeader = get32(&header[42]);
    const std::size_t nameLength = get16(&header[28]);
    const std::size_t extraLength = get16(&header[30]);
    const std::size_t commentLength = get16(&header[32]);
    next = offset + centralHeaderSize + nameLength + extraLength + commentLength;
    if (next > limit)
        return std::nullopt;
    const auto rest = file.at(offset + centralHeaderSize, nameLength + extraLength);
    if (rest.size() < nameLength + extraLength)
        return std::nullopt;
    record.name.assign(reinterpret_cast<const char*>(rest.data()), nameLength);
    readZip64Extra(rest.subspan(nameLength), record);
    return record;
}

} // namespace

bool ArchiveEntryRecord::hasValidDate() const {
    using namespace std::chrono;
    return year_month_day(year(1980 + (dosDate >> 9)), month((dosDate >> 5) & 0x0fU), day(dosDate & 0x1fU))
        .ok();
}

fl::i18n::ustring ArchiveEntryRecord::path() const {
    static const fl::i18n::codecvt_string_to_ustring fromUtf8("UTF-8", 1);
    static const fl::i18n::codecvt_string_to_ustring fromSystem(fl::i18n::KxLocale::system().codeSet(), 1);
    return normalizedPath(hasUtf8Name() ? fromUtf8(name) : fromSystem(name));
}

ArchiveSummary readArchiveDirectory(ByteStream& archive, const ArchiveEntryVisitor& onEntry) {
    Window file(archive);
    ArchiveSummary summary;
    if (file.size() == 0)
        return summary;
    const auto end = findEnd(file);
    if (!end) {
        summary.condition = ArchiveCondition::NotAnArchive;
        summary.cause = "it has no end-of-central-directory record";
        return summary;
    }
    summary.condition = ArchiveCondition::Sound;
    summary.declaredEntries = end->entries;
    summary.cause = contradiction(*end);
    if (!summary.cause.empty()) {
        summary.condition = ArchiveCondition::Damaged;
        return summary;
    }
    summary.leadingBytes = end->position - end->directorySize - end->directoryOffset;

    // A writer without Zip64 that had more entries than fit stores all ones: the headers go on until the end
    // record.
    const bool open = !end->zip64 && end->entries == all16;
    auto next = end->directoryOffset + summary.leadingBytes;
    while (open ? next < end->position : summary.entries < end->entries) {
        const auto record = readHeader(file, next, end->position, next);
        if (!record)
            break;
        ++summary.entries;
        if (onEntry)
            onEntry(*record);
    }
    const auto follows = file.at(next, centralHeaderSize);
    if (summary.entries == end->entries && next + centralHeaderSize <= end->position &&
        follows.size() == centralHeaderSize && get32(&follows[0]) == centralHeaderSignature) {
        summary.condition = ArchiveCondition::Damaged;
        summary.cause =
            fmt::format("the end record declares {} entries, the central directory holds more", end->entries);
    } else if (summary.entries < end->entries) {
        summary.condition = ArchiveCondition::Damaged;
        summary.cause = fmt::format("the end record declares {} entries, the central directory holds {}",
                                    end->entries, summary.entries);
    }
    return summary;
}

} // namespace storage::vfs
