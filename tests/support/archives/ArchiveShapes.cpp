#include "ArchiveShapes.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <stdexcept>

#include <zlib.h>

namespace kx::test {

namespace {

/// A non-final deflate block that ends on a byte boundary and refers to nothing before it.
std::string selfContainedBlock(const std::string& chunk) {
    z_stream stream{};
    if (deflateInit2(&stream, 9, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY) != Z_OK)
        throw std::runtime_error("cannot build archive: zlib cannot be set up");
    std::string out(deflateBound(&stream, static_cast<uLong>(chunk.size())) + 64, '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(chunk.data()));
    stream.avail_in = static_cast<uInt>(chunk.size());
    stream.next_out = reinterpret_cast<Bytef*>(out.data());
    stream.avail_out = static_cast<uInt>(out.size());
    const int result = deflate(&stream, Z_FULL_FLUSH);
    const bool whole = result == Z_OK && stream.avail_in == 0;
    out.resize(stream.total_out);
    deflateEnd(&stream);
    if (!whole)
        throw std::runtime_error("cannot build archive: deflating failed");
    return out;
}

/// Of two texts behind each other, the second one of that size. zlib's own type for it has 32 bits on
/// Windows.
uLong combinedCrc(uLong first, uLong second, std::uint64_t secondSize) {
    constexpr std::uint64_t step = 1ULL << 30;
    for (; secondSize > step; secondSize -= step)
        first = crc32_combine(first, 0, static_cast<z_off_t>(step));
    return crc32_combine(first, second, static_cast<z_off_t>(secondSize));
}

std::uint32_t repeatedCrc(std::uint32_t chunkCrc, std::uint64_t chunkSize, std::uint64_t count) {
    uLong crc = crc32(0, nullptr, 0);
    uLong power = chunkCrc;
    std::uint64_t powerSize = chunkSize;
    for (std::uint64_t left = count; left != 0; left >>= 1) {
        if (left & 1)
            crc = combinedCrc(crc, power, powerSize);
        power = combinedCrc(power, power, powerSize);
        powerSize *= 2;
    }
    return static_cast<std::uint32_t>(crc);
}

std::string numbered(const char* form, unsigned number) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), form, number);
    return text.data();
}

} // namespace

ArchiveEntry repeatedEntry(std::string name, const std::string& chunk, std::uint64_t count) {
    const std::string block = selfContainedBlock(chunk);
    const std::string emptyFinalBlock("\x03\x00", 2);
    std::string data;
    data.reserve(block.size() * count + emptyFinalBlock.size());
    for (std::uint64_t i = 0; i != count; ++i)
        data += block;
    data += emptyFinalBlock;

    ArchiveEntry entry;
    entry.name = std::move(name);
    entry.rawData = std::move(data);
    entry.uncompressedSize = chunk.size() * count;
    entry.crc32 = repeatedCrc(crc32Of(chunk), chunk.size(), count);
    return entry;
}

ArchiveEntry sparseEntry(std::string name, std::uint64_t size) {
    ArchiveEntry entry;
    entry.name = std::move(name);
    entry.method = Method::Stored;
    entry.rawData.emplace();
    entry.hole = size;
    entry.uncompressedSize = size;
    entry.crc32 = repeatedCrc(crc32Of(std::string_view("\0", 1)), 1, size);
    return entry;
}

std::string wideArchiveFile(unsigned folder, unsigned file) {
    return numbered("d%04u/", folder) + numbered("f%04u.txt", file);
}

std::string wideArchive(unsigned folders, unsigned perFolder, bool explicitFolders) {
    ArchiveBuilder builder;
    for (unsigned folder = 0; folder != folders; ++folder) {
        if (explicitFolders)
            builder.add(numbered("d%04u/", folder));
        for (unsigned file = 0; file != perFolder; ++file) {
            const std::string name = wideArchiveFile(folder, file);
            builder.add(name, name);
            builder.last().method = Method::Stored;
        }
    }
    return builder.build();
}

std::string deepArchive(unsigned depth) {
    std::string name;
    for (unsigned level = 0; level != depth; ++level)
        name += "n/";
    return simpleArchive({{name + "leaf.txt", "deep"}});
}

} // namespace kx::test
