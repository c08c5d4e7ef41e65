#include "ReadArchive.h"

#include <storage/zipprovider/src/DosTime.h>
#include <storage/zipprovider/src/EntryName.h>
#include <storage/zipprovider/src/MiniZipException.h>
#include <storage/zipprovider/src/Zip64Extent.h>
#include <storage/zipprovider/src/ZipConstants.h>

#include <support/archives/ArchiveBuilder.h>
#include <support/archives/ArchiveShapes.h>
#include <support/contents.h>

#include <boost/date_time/posix_time/posix_time.hpp>
#include <gtest/gtest.h>

#include <minizip/unzip.h>

#include <random>
#include <sstream>
#include <string>
#include <vector>

// The walk over a central directory reads ordinary headers itself. Whatever the archive, it has to show what
// minizip shows, which is asked here entry by entry.

namespace kx::test {
namespace {

using namespace storage::zipprovider;

std::string toText(const ZipEntryInfo& info) {
    std::ostringstream text;
    text << info.path << ' ' << encodeEntryName(info.stored.name) << ' ' << info.size << ' '
         << info.lastModified << ' ' << info.index << ' ' << info.type << ' '
         << info.stored.position.pos_in_zip_directory << ' ' << info.stored.position.num_of_file << ' '
         << info.crc32 << ' ' << info.compressedSize << ' ' << info.encrypted;
    return std::move(text).str();
}

/// The steps of a walk: each entry, or what the step failed with. A walk goes on behind an entry that fails.
template <typename Step>
std::vector<std::string> walk(Step step) {
    std::vector<std::string> steps;
    for (int more = 5000; more > 0; --more) {
        try {
            const auto info = step();
            if (!info) {
                return steps;
            }
            steps.push_back(toText(*info));
        } catch (const std::exception& error) {
            steps.emplace_back(error.what());
        }
    }
    return steps;
}

std::vector<std::string> walked(const std::string& bytes) {
    Enumerator enumerator(openArchive(bytes));
    auto steps = walk([&] { return enumerator.next(); });
    steps.push_back(enumerator.next() ? "goes on behind its end" : "ended");
    return steps;
}

/// The same by minizip's own steps.
std::vector<std::string> walkedPlainly(const std::string& bytes) {
    const auto archive = openArchive(bytes);
    Enumerator describing(archive);
    bool first = true;
    std::uint64_t index = 0;
    auto steps = walk([&]() -> std::optional<ZipEntryInfo> {
        const int result = first ? unzGoToFirstFile(archive->get()) : unzGoToNextFile(archive->get());
        if (result != UNZ_OK) {
            return std::nullopt;
        }
        index += first ? 0 : 1;
        first = false;
        auto info = describing.getCurrentEntryInfo();
        info.index = index;
        return info;
    });
    steps.emplace_back("ended");
    return steps;
}

void expectSameWalk(const std::string& bytes, const std::string& what) {
    EXPECT_EQ(walked(bytes), walkedPlainly(bytes)) << what;
}

ArchiveBuilder manyKinds() {
    ArchiveBuilder builder;
    builder.add("docs/", "");
    builder.add("docs/a.txt", "text");
    builder.last().comment = "a comment";
    builder.add("caf\xC3\xA9", "utf-8");
    builder.last().flags = flag::utf8Name;
    builder.add("with an extra field", "x");
    builder.last().centralExtra = std::string("\x55\x54\x05\x00\x03\x01\x02\x03\x04", 9);
    builder.add("big", "y");
    builder.last().zip64 = true;
    builder.add("encrypted", "z");
    builder.last().flags = flag::encrypted;
    builder.add("last", "w");
    return builder;
}

TEST(DirectoryWalk, ShowsWhatMinizipShows) {
    expectSameWalk(ArchiveBuilder().build(), "no entries");
    expectSameWalk(manyKinds().build(), "many kinds");
    expectSameWalk(std::string(1000, 's') + manyKinds().build(), "behind a stub");
    expectSameWalk(wideArchive(10, 100, true), "a thousand entries");
    expectSameWalk("", "nothing");
    expectSameWalk(randomBytes(5000, 1), "no archive");
}

TEST(DirectoryWalk, ShowsWhatMinizipShowsOfExtraFieldsThatDoNotAddUp) {
    for (const auto& extra :
         {std::string("\x55\x54\x50\x00\x03", 5), std::string("\x01", 1), std::string(3, '\0'),
          std::string("\x01\x00\x00\x00", 4), std::string("\x01\x00\x08\x00\x01", 5)}) {
        for (const std::size_t at : {0U, 1U, 2U}) {
            ArchiveBuilder builder;
            for (std::size_t i = 0; i < 3; ++i) {
                builder.add("entry" + std::to_string(i), "bytes");
                if (i == at) {
                    builder.last().centralExtra = extra;
                }
            }
            expectSameWalk(builder.build(), "extra field of " + std::to_string(extra.size()));
        }
    }
}

TEST(DirectoryWalk, ShowsWhatMinizipShowsWhereTheEndRecordCountsWrong) {
    for (const int declared : {0, 1, 6, 8, 100, 0xFFFF}) {
        auto builder = manyKinds();
        builder.end().entries = static_cast<std::uint16_t>(declared);
        expectSameWalk(builder.build(), "declared " + std::to_string(declared));
    }
}

TEST(DirectoryWalk, ShowsWhatMinizipShowsOfEveryArchiveWithABrokenByte) {
    const auto whole = manyKinds().build();
    const auto directory = whole.find("PK\x01\x02");
    ASSERT_NE(directory, std::string::npos);
    std::mt19937 random(5);
    for (auto at = directory; at < whole.size(); ++at) {
        auto broken = whole;
        broken[at] = static_cast<char>(random());
        expectSameWalk(broken, "byte " + std::to_string(at));
    }
}

TEST(DirectoryWalk, ShowsWhatMinizipShowsOfArchivesThatAreCutShort) {
    const auto whole = manyKinds().build();
    for (std::size_t size = 0; size < whole.size(); size += 7) {
        expectSameWalk(whole.substr(0, size), std::to_string(size) + " bytes");
    }
}

} // namespace
} // namespace kx::test
