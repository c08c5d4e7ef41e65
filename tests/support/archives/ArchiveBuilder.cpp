#include "ArchiveBuilder.h"

#include <fstream>
#include <stdexcept>

#include <zlib.h>

namespace kx::test {

namespace {

constexpr std::uint32_t localSignature = 0x04034b50;
constexpr std::uint32_t descriptorSignature = 0x08074b50;
constexpr std::uint32_t centralSignature = 0x02014b50;
constexpr std::uint32_t zip64EndSignature = 0x06064b50;
constexpr std::uint32_t zip64LocatorSignature = 0x07064b50;
constexpr std::uint32_t endSignature = 0x06054b50;
constexpr std::uint16_t zip64ExtraId = 0x0001;
constexpr std::uint32_t inZip64 = 0xffffffff;
constexpr std::uint16_t countInZip64 = 0xffff;

void put16(std::string& out, std::uint16_t value) {
    out.push_back(static_cast<char>(value & 0xff));
    out.push_back(static_cast<char>(value >> 8));
}

void put32(std::string& out, std::uint32_t value) {
    put16(out, static_cast<std::uint16_t>(value & 0xffff));
    put16(out, static_cast<std::uint16_t>(value >> 16));
}

void put64(std::string& out, std::uint64_t value) {
    put32(out, static_cast<std::uint32_t>(value & 0xffffffff));
    put32(out, static_cast<std::uint32_t>(value >> 32));
}

std::uint16_t length16(const std::string& text) {
    if (text.size() > 0xffff)
        throw std::length_error("cannot build archive: a name, extra field or comment is over 65535 bytes");
    return static_cast<std::uint16_t>(text.size());
}

std::uint32_t clip(std::uint64_t value) {
    return value < inZip64 ? static_cast<std::uint32_t>(value) : inZip64;
}

/// An entry with everything computed that its headers say.
struct Prepared {
    std::string data;
    std::uint64_t compressedSize = 0;
    std::uint64_t uncompressedSize = 0;
    std::uint32_t crc = 0;
    std::uint16_t flags = 0;
    bool zip64 = false;
    std::uint64_t offset = 0;
};

Prepared prepare(const ArchiveEntry& entry) {
    Prepared result;
    if (entry.rawData)
        result.data = *entry.rawData;
    else if (entry.method == Method::Deflated && !entry.name.ends_with('/'))
        result.data = rawDeflate(entry.content, entry.level);
    else
        result.data = entry.content;
    result.compressedSize = result.data.size() + entry.hole;
    result.uncompressedSize = entry.uncompressedSize.value_or(entry.content.size());
    result.crc = entry.crc32.value_or(crc32Of(entry.content));
    result.flags = entry.flags;
    if (entry.descriptor != DataDescriptor::None)
        result.flags = static_cast<std::uint16_t>(result.flags | flag::dataDescriptor);
    result.zip64 = entry.zip64 || result.uncompressedSize >= inZip64 || result.compressedSize >= inZip64;
    return result;
}

std::uint16_t methodOf(const ArchiveEntry& entry) {
    const bool folder = entry.name.ends_with('/') && !entry.rawData && entry.method == Method::Deflated;
    return static_cast<std::uint16_t>(folder ? Method::Stored : entry.method);
}

void putLocal(std::string& out, const ArchiveEntry& entry, const Prepared& prepared) {
    const HeaderOverrides& wrong = entry.local;
    const bool late = entry.descriptor != DataDescriptor::None;
    std::string extra = entry.localExtra;
    if (prepared.zip64) {
        std::string sizes;
        put64(sizes, late ? 0 : prepared.uncompressedSize);
        put64(sizes, late ? 0 : prepared.compressedSize);
        extra += extraField(zip64ExtraId, sizes);
    }
    const std::uint32_t compressed = prepared.zip64 ? inZip64 : late ? 0 : clip(prepared.compressedSize);
    const std::uint32_t uncompressed = prepared.zip64 ? inZip64 : late ? 0 : clip(prepared.uncompressedSize);
    const std::string& name = wrong.name ? *wrong.name : entry.name;
    const DosTime modified = wrong.modified.value_or(entry.modified);

    put32(out, wrong.signature.value_or(localSignature));
    put16(out, wrong.versionNeeded.value_or(prepared.zip64 ? 45 : entry.versionNeeded));
    put16(out, wrong.flags.value_or(prepared.flags));
    put16(out, wrong.method.value_or(methodOf(entry)));
    put16(out, modified.time);
    put16(out, modified.date);
    put32(out, wrong.crc32.value_or(late ? 0 : prepared.crc));
    put32(out, wrong.compressedSize.value_or(compressed));
    put32(out, wrong.uncompressedSize.value_or(uncompressed));
    put16(out, wrong.nameLength.value_or(length16(name)));
    put16(out, wrong.extraLength.value_or(length16(extra)));
    out += name;
    out += extra;
}

void putDescriptor(std::string& out, const ArchiveEntry& entry, const Prepared& prepared) {
    if (entry.descriptor == DataDescriptor::None)
        return;
    if (entry.descriptor == DataDescriptor::WithSignature)
        put32(out, descriptorSignature);
    put32(out, prepared.crc);
    if (prepared.zip64) {
        put64(out, prepared.compressedSize);
        put64(out, prepared.uncompressedSize);
    } else {
        put32(out, clip(prepared.compressedSize));
        put32(out, clip(prepared.uncompressedSize));
    }
}

void putCentral(std::string& out, const ArchiveEntry& entry, const Prepared& prepared) {
    const HeaderOverrides& wrong = entry.central;
    std::string extra = entry.centralExtra;
    const bool zip64 = prepared.zip64 || prepared.offset >= inZip64;
    if (zip64) {
        std::string values;
        if (prepared.zip64) {
            put64(values, prepared.uncompressedSize);
            put64(values, prepared.compressedSize);
        }
        put64(values, prepared.offset);
        extra += extraField(zip64ExtraId, values);
    }
    const std::string& name = wrong.name ? *wrong.name : entry.name;
    const DosTime modified = wrong.modified.value_or(entry.modified);

    put32(out, wrong.signature.value_or(centralSignature));
    put16(out, wrong.versionMadeBy.value_or(entry.versionMadeBy));
    put16(out, wrong.versionNeeded.value_or(zip64 ? 45 : entry.versionNeeded));
    put16(out, wrong.flags.value_or(prepared.flags));
    put16(out, wrong.method.value_or(methodOf(entry)));
    put16(out, modified.time);
    put16(out, modified.date);
    put32(out, wrong.crc32.value_or(prepared.crc));
    put32(out, wrong.compressedSize.value_or(prepared.zip64 ? inZip64 : clip(prepared.compressedSize)));
    put32(out, wrong.uncompressedSize.value_or(prepared.zip64 ? inZip64 : clip(prepared.uncompressedSize)));
    put16(out, wrong.nameLength.value_or(length16(name)));
    put16(out, wrong.extraLength.value_or(length16(extra)));
    put16(out, wrong.commentLength.value_or(length16(entry.comment)));
    put16(out, wrong.diskNumber.value_or(0));
    put16(out, entry.internalAttributes);
    put32(out, entry.externalAttributes);
    put32(out, wrong.localOffset.value_or(zip64 ? inZip64 : clip(prepared.offset)));
    out += name;
    out += extra;
    out += entry.comment;
}

void putEnd(std::string& out, const EndOverrides& end, std::uint64_t entries, std::uint64_t directoryOffset,
            std::uint64_t directorySize, std::uint64_t recordOffset, ArchiveLayout& layout) {
    const std::size_t before = out.size();
    const bool zip64 =
        end.zip64 || entries >= countInZip64 || directoryOffset >= inZip64 || directorySize >= inZip64;
    if (zip64) {
        layout.zip64EndRecord = layout.endRecord;
        put32(out, zip64EndSignature);
        put64(out, 44);
        put16(out, 45);
        put16(out, 45);
        put32(out, 0);
        put32(out, 0);
        put64(out, end.zip64Entries.value_or(entries));
        put64(out, end.zip64Entries.value_or(entries));
        put64(out, end.zip64DirectorySize.value_or(directorySize));
        put64(out, end.zip64DirectoryOffset.value_or(directoryOffset));
        if (!end.omitLocator) {
            put32(out, zip64LocatorSignature);
            put32(out, 0);
            put64(out, end.zip64RecordOffset.value_or(recordOffset));
            put32(out, 1);
        }
    }
    layout.endRecord += out.size() - before;
    if (end.omitEnd)
        return;
    const std::uint16_t count =
        zip64 || entries >= countInZip64 ? countInZip64 : static_cast<std::uint16_t>(entries);
    put32(out, end.signature.value_or(endSignature));
    put16(out, end.diskNumber.value_or(0));
    put16(out, end.directoryDisk.value_or(0));
    put16(out, end.entriesOnDisk.value_or(count));
    put16(out, end.entries.value_or(count));
    put32(out, end.directorySize.value_or(zip64 ? inZip64 : clip(directorySize)));
    put32(out, end.directoryOffset.value_or(zip64 ? inZip64 : clip(directoryOffset)));
    put16(out, end.commentLength.value_or(length16(end.comment)));
    out += end.comment;
}

} // namespace

/// The archive's bytes without its holes.
struct ArchiveBuilder::Image {
    struct Hole {
        std::size_t position; ///< in `bytes`
        std::uint64_t size;
    };

    std::uint64_t position() const { return bytes.size() + skipped; }
    void skip(std::uint64_t size) {
        if (size == 0)
            return;
        holes.push_back({bytes.size(), size});
        skipped += size;
    }

    std::string bytes;
    std::vector<Hole> holes;
    std::uint64_t skipped = 0;
};

DosTime DosTime::of(int year, int month, int day, int hour, int minute, int second) {
    return {static_cast<std::uint16_t>(((year - 1980) << 9) | (month << 5) | day),
            static_cast<std::uint16_t>((hour << 11) | (minute << 5) | (second / 2))};
}

ArchiveBuilder& ArchiveBuilder::add(std::string name, std::string content) {
    ArchiveEntry entry;
    entry.name = std::move(name);
    entry.content = std::move(content);
    return add(std::move(entry));
}

ArchiveBuilder& ArchiveBuilder::add(ArchiveEntry entry) {
    m_entries.push_back(std::move(entry));
    return *this;
}

ArchiveBuilder& ArchiveBuilder::leading(std::string bytes, bool counted) {
    m_leading = std::move(bytes);
    m_leadingCounted = counted;
    return *this;
}

ArchiveBuilder& ArchiveBuilder::trailing(std::string bytes) {
    m_trailing = std::move(bytes);
    return *this;
}

ArchiveBuilder::Image ArchiveBuilder::render(ArchiveLayout* layout) const {
    ArchiveLayout places;
    Image image;
    std::string& out = image.bytes;
    out = m_leading;
    const std::uint64_t base = m_leadingCounted ? 0 : m_leading.size();
    std::string directory;
    std::uint64_t listed = 0;
    std::vector<std::size_t> inDirectory;

    for (const ArchiveEntry& entry : m_entries) {
        Prepared prepared = prepare(entry);
        prepared.offset = image.position() - base;
        places.localHeaders.push_back(entry.omitLocal ? std::string::npos : image.position());
        if (!entry.omitLocal)
            putLocal(out, entry, prepared);
        places.data.push_back(image.position());
        if (!entry.omitLocal) {
            out += prepared.data;
            image.skip(entry.hole);
            putDescriptor(out, entry, prepared);
        }
        inDirectory.push_back(entry.omitCentral ? std::string::npos : directory.size());
        if (!entry.omitCentral) {
            putCentral(directory, entry, prepared);
            ++listed;
        }
    }

    places.centralDirectory = image.position();
    for (const std::size_t position : inDirectory) {
        places.centralHeaders.push_back(position == std::string::npos ? position
                                                                      : places.centralDirectory + position);
    }
    out += directory;
    places.endRecord = image.position();
    putEnd(out, m_end, listed, places.centralDirectory - base, directory.size(), places.endRecord - base,
           places);
    out += m_trailing;
    if (layout)
        *layout = std::move(places);
    return image;
}

std::string ArchiveBuilder::build(ArchiveLayout* layout) const {
    Image image = render(layout);
    std::size_t shift = 0;
    for (const Image::Hole& hole : image.holes) {
        image.bytes.insert(hole.position + shift, hole.size, '\0');
        shift += hole.size;
    }
    return std::move(image.bytes);
}

void ArchiveBuilder::writeFile(const std::filesystem::path& file, ArchiveLayout* layout) const {
    const Image image = render(layout);
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    std::size_t written = 0;
    const auto writeUpTo = [&](std::size_t end) {
        out.write(image.bytes.data() + written, static_cast<std::streamsize>(end - written));
        written = end;
    };
    for (const Image::Hole& hole : image.holes) {
        writeUpTo(hole.position);
        out.seekp(static_cast<std::streamoff>(hole.size), std::ios::cur);
    }
    writeUpTo(image.bytes.size());
    out.close();
    if (!out)
        throw std::runtime_error("cannot write archive " + file.string());
}

std::string simpleArchive(const std::vector<std::pair<std::string, std::string>>& entries) {
    ArchiveBuilder builder;
    for (const auto& [name, content] : entries)
        builder.add(name, content);
    return builder.build();
}

std::string extraField(std::uint16_t id, std::string_view bytes) {
    std::string out;
    put16(out, id);
    put16(out, static_cast<std::uint16_t>(bytes.size()));
    out += bytes;
    return out;
}

std::string unicodePathField(std::string_view storedName, std::string_view utf8Name) {
    std::string bytes("\x01", 1);
    put32(bytes, crc32Of(storedName));
    bytes += utf8Name;
    return extraField(0x7075, bytes);
}

std::string timestampField(std::int32_t modified) {
    std::string bytes("\x01", 1);
    put32(bytes, static_cast<std::uint32_t>(modified));
    return extraField(0x5455, bytes);
}

std::uint32_t crc32Of(std::string_view bytes) {
    return static_cast<std::uint32_t>(
        crc32_z(crc32_z(0, nullptr, 0), reinterpret_cast<const Bytef*>(bytes.data()), bytes.size()));
}

std::string rawDeflate(std::string_view bytes, int level) {
    z_stream stream{};
    if (deflateInit2(&stream, level, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY) != Z_OK)
        throw std::runtime_error("cannot build archive: zlib cannot be set up");
    std::string out(deflateBound(&stream, static_cast<uLong>(bytes.size())), '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
    stream.avail_in = static_cast<uInt>(bytes.size());
    stream.next_out = reinterpret_cast<Bytef*>(out.data());
    stream.avail_out = static_cast<uInt>(out.size());
    const int result = deflate(&stream, Z_FINISH);
    out.resize(stream.total_out);
    deflateEnd(&stream);
    if (result != Z_STREAM_END)
        throw std::runtime_error("cannot build archive: deflating failed");
    return out;
}

void poke16(std::string& bytes, std::size_t position, std::uint16_t value) {
    std::string form;
    put16(form, value);
    bytes.replace(position, form.size(), form);
}

void poke32(std::string& bytes, std::size_t position, std::uint32_t value) {
    std::string form;
    put32(form, value);
    bytes.replace(position, form.size(), form);
}

} // namespace kx::test
