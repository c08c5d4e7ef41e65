#include <array>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>
#include <zlib.h>

#include <corpus/LocalArchive.h>
#include <support/archives/ArchiveShapes.h>

namespace {

using namespace kx::test;

constexpr std::uint64_t aboveFourGiB = (4ULL << 30) + (64ULL << 20);

struct Contents {
    std::uint64_t size = 0;
    std::uint32_t crc32 = 0;
};

Contents readThrough(LocalArchive& archive, const std::string& path) {
    const auto stream = archive.provider().openReadStream(archive.at(path));
    static std::array<char, 1 << 20> buffer;
    Contents contents;
    uLong crc = crc32(0, nullptr, 0);
    while (const std::int64_t count = stream->read(buffer.data(), buffer.size())) {
        crc = crc32(crc, reinterpret_cast<const Bytef*>(buffer.data()), static_cast<uInt>(count));
        contents.size += static_cast<std::uint64_t>(count);
    }
    contents.crc32 = static_cast<std::uint32_t>(crc);
    return contents;
}

bool spaceFor(std::uint64_t bytes) {
    return std::filesystem::space(std::filesystem::temp_directory_path()).available > bytes;
}

#define KX_SKIP_WITHOUT_SPACE(bytes)                                                                         \
    if (!spaceFor(bytes))                                                                                    \
    GTEST_SKIP() << "less than " << ((bytes) >> 30) << " GiB are free for working files"

TEST(HugeEntries, ADeflatedOneAboveFourGiBReadsToItsEnd) {
    KX_SKIP_WITHOUT_SPACE(6ULL << 30);
    ArchiveBuilder builder;
    builder.add(repeatedEntry("big.bin", std::string(1 << 20, 'b') + "end of chunk", aboveFourGiB >> 20));
    const ArchiveEntry expected = builder.last();
    LocalArchive archive(builder);
    const Contents contents = readThrough(archive, "big.bin");
    EXPECT_EQ(contents.size, *expected.uncompressedSize);
    EXPECT_EQ(contents.crc32, *expected.crc32);
}

TEST(HugeEntries, AStoredOneAboveFourGiBReadsToItsEnd) {
    KX_SKIP_WITHOUT_SPACE(6ULL << 30);
    ArchiveBuilder builder;
    builder.add(sparseEntry("hole.bin", aboveFourGiB)).add("behind.txt", "behind");
    const ArchiveEntry expected = builder.entry(0);
    LocalArchive archive(builder);
    const Contents contents = readThrough(archive, "hole.bin");
    EXPECT_EQ(contents.size, aboveFourGiB);
    EXPECT_EQ(contents.crc32, *expected.crc32);
    EXPECT_EQ(archive.read("behind.txt"), "behind");
}

TEST(HugeEntries, EveryOneOfSeventyThousandReads) {
    LocalArchive archive(wideArchive(700, 100));
    for (unsigned folder = 0; folder != 700; ++folder) {
        for (unsigned file = 0; file != 100; ++file) {
            const std::string path = wideArchiveFile(folder, file);
            ASSERT_EQ(archive.read(path), path);
        }
    }
}

} // namespace
