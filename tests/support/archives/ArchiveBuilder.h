#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kx::test {

/// The date and time words of a ZIP header (years 1980 to 2107, two-second steps).
struct DosTime {
    std::uint16_t date = 0;
    std::uint16_t time = 0;

    static DosTime of(int year, int month, int day, int hour = 0, int minute = 0, int second = 0);
    friend bool operator==(const DosTime&, const DosTime&) = default;
};

enum class Method : std::uint16_t {
    Stored = 0,
    Shrunk = 1,
    Deflated = 8,
    Deflate64 = 9,
    Bzip2 = 12,
    Lzma = 14
};

/// Bits of the general-purpose flag word.
namespace flag {
constexpr std::uint16_t encrypted = 0x0001;
constexpr std::uint16_t dataDescriptor = 0x0008;
constexpr std::uint16_t strongEncryption = 0x0040;
constexpr std::uint16_t utf8Name = 0x0800;
} // namespace flag

enum class DataDescriptor { None, WithSignature, WithoutSignature };

/// Values written instead of the right ones, in one header of one entry. A length field is overridden apart
/// from the bytes that follow it, so that the two can disagree.
struct HeaderOverrides {
    std::optional<std::uint32_t> signature;
    std::optional<std::uint16_t> versionMadeBy; ///< central header only
    std::optional<std::uint16_t> versionNeeded;
    std::optional<std::uint16_t> flags;
    std::optional<std::uint16_t> method;
    std::optional<DosTime> modified;
    std::optional<std::uint32_t> crc32;
    std::optional<std::uint32_t> compressedSize;
    std::optional<std::uint32_t> uncompressedSize;
    std::optional<std::string> name;
    std::optional<std::uint16_t> nameLength;
    std::optional<std::uint16_t> extraLength;
    std::optional<std::uint16_t> commentLength; ///< central header only
    std::optional<std::uint16_t> diskNumber;    ///< central header only
    std::optional<std::uint32_t> localOffset;   ///< central header only
};

/// One entry of an archive. What is left alone is computed so that the archive is valid.
struct ArchiveEntry {
    std::string name;    ///< stored bytes of the name; a folder ends in '/'
    std::string content; ///< uncompressed bytes
    Method method = Method::Deflated;
    int level = 6;
    DosTime modified = DosTime::of(2020, 2, 3, 4, 5, 6);
    std::uint16_t flags = 0; ///< the bit of a data descriptor is added by itself
    std::uint16_t versionMadeBy = 20;
    std::uint16_t versionNeeded = 20;
    std::uint16_t internalAttributes = 0;
    std::uint32_t externalAttributes = 0;
    std::string localExtra;
    std::string centralExtra;
    std::string comment;
    DataDescriptor descriptor = DataDescriptor::None;
    bool zip64 = false; ///< sizes and position in Zip64 extra fields though they would fit
    /// The bytes between the headers, in place of `content` compressed by `method`. With it the checksum and
    /// the size of the uncompressed bytes come from the two values below when they are set, else from
    /// `content`.
    std::optional<std::string> rawData;
    std::optional<std::uint32_t> crc32;
    std::optional<std::uint64_t> uncompressedSize;
    /// Zeros behind the data, counted as compressed bytes, that writeFile leaves unwritten.
    std::uint64_t hole = 0;
    bool omitLocal = false;   ///< write neither local header nor data
    bool omitCentral = false; ///< write no central header
    HeaderOverrides local;
    HeaderOverrides central;
};

/// The end of the archive. What is left alone is computed.
struct EndOverrides {
    std::optional<std::uint32_t> signature;
    std::optional<std::uint16_t> diskNumber;
    std::optional<std::uint16_t> directoryDisk;
    std::optional<std::uint16_t> entriesOnDisk;
    std::optional<std::uint16_t> entries;
    std::optional<std::uint32_t> directorySize;
    std::optional<std::uint32_t> directoryOffset;
    std::optional<std::uint16_t> commentLength;
    std::optional<std::uint64_t> zip64Entries;
    std::optional<std::uint64_t> zip64DirectorySize;
    std::optional<std::uint64_t> zip64DirectoryOffset;
    std::optional<std::uint64_t> zip64RecordOffset; ///< as the locator states it
    std::string comment;
    bool zip64 = false;       ///< write the Zip64 records though the counts would fit
    bool omitLocator = false; ///< leave out the Zip64 locator
    bool omitEnd = false;     ///< leave out the end-of-central-directory record
};

/// Where the parts of a built archive begin, in bytes from the start of the text.
struct ArchiveLayout {
    std::vector<std::size_t> localHeaders; ///< npos for an omitted one
    std::vector<std::size_t> data;
    std::vector<std::size_t> centralHeaders;
    std::size_t centralDirectory = 0;
    std::size_t zip64EndRecord = std::string::npos;
    std::size_t endRecord = 0;
};

/// Makes a ZIP archive byte by byte. Every field can be given a wrong value, so that an archive with exactly
/// one fault can be made from a valid one. The same calls give the same bytes.
///
///     ArchiveBuilder builder;
///     builder.add("docs/").add("docs/a.txt", "text");
///     builder.last().central.crc32 = 1;
///     std::string bytes = builder.build();
class ArchiveBuilder {
public:
    /// Appends an entry; `last()` is it.
    ArchiveBuilder& add(std::string name, std::string content = {});
    ArchiveBuilder& add(ArchiveEntry entry);

    /// Precondition: an entry was added. The reference stays valid.
    ArchiveEntry& last() { return m_entries.back(); }
    ArchiveEntry& entry(std::size_t position) { return m_entries.at(position); }
    EndOverrides& end() { return m_end; }

    /// Bytes in front of the first local header. With `counted`, the positions in the records count them
    /// (as a self-extracting archive that was adjusted has it), else they do not.
    ArchiveBuilder& leading(std::string bytes, bool counted = false);
    /// Bytes behind the end record.
    ArchiveBuilder& trailing(std::string bytes);

    std::string build(ArchiveLayout* layout = nullptr) const;
    /// Writes the archive to a new file. Holes cost no disk where the file system knows sparse files.
    /// Throws std::runtime_error when the file cannot be written.
    void writeFile(const std::filesystem::path& file, ArchiveLayout* layout = nullptr) const;

private:
    struct Image;
    Image render(ArchiveLayout* layout) const;

    std::deque<ArchiveEntry> m_entries;
    EndOverrides m_end;
    std::string m_leading;
    std::string m_trailing;
    bool m_leadingCounted = false;
};

/// A valid archive of these entries (stored name, content), deflated.
std::string simpleArchive(const std::vector<std::pair<std::string, std::string>>& entries);

/// One block of an extra field: header id, length, bytes.
std::string extraField(std::uint16_t id, std::string_view bytes);
/// The Info-ZIP Unicode path block (0x7075) for a stored name.
std::string unicodePathField(std::string_view storedName, std::string_view utf8Name);
/// The extended-timestamp block (0x5455) with a modification time in seconds since 1970.
std::string timestampField(std::int32_t modified);

std::uint32_t crc32Of(std::string_view bytes);
/// Deflate without a zlib header.
std::string rawDeflate(std::string_view bytes, int level = 6);

/// `bytes` overwritten in place at `position` by the little-endian form of a value.
void poke16(std::string& bytes, std::size_t position, std::uint16_t value);
void poke32(std::string& bytes, std::size_t position, std::uint32_t value);

} // namespace kx::test
