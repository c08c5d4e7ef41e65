#include "ZipProviderTest.h"

#include <storage/zipprovider/src/RebuildMode.h>
#include <support/archives/ArchiveBuilder.h>
#include <support/contents.h>

#include <gtest/gtest.h>

#include <ctime>
#include <random>
#include <string>

namespace kx::test {
namespace {

using storage::zipprovider::RebuildMode;
using storage::zipprovider::setRebuildMode;

/// Rebuilds in one mode for a while.
class ScopedMode {
public:
    explicit ScopedMode(RebuildMode mode) { setRebuildMode(mode); }
    ~ScopedMode() { setRebuildMode(RebuildMode::Fast); }
    ScopedMode(const ScopedMode&) = delete;
    ScopedMode& operator=(const ScopedMode&) = delete;
};

/// A rebuild carries over what the system wrote as it is stored; the result has to be the archive that
/// inflating and deflating everything again gives.
class ZipRebuild : public ZipProviderTest {
protected:
    /// The archive after `change` was made to `before`.
    template <typename Change>
    std::string after(RebuildMode mode, const std::string& before, Change change) {
        const ScopedMode scoped(mode);
        mount(before);
        change();
        return archive();
    }

    template <typename Change>
    void expectSameArchives(const std::string& before, Change change) {
        const auto plain = after(RebuildMode::Plain, before, change);
        const auto fast = after(RebuildMode::Fast, before, change);
        EXPECT_NE(before, plain);
        EXPECT_TRUE(plain == fast) << "archives of " << plain.size() << " and " << fast.size() << " bytes";
    }

    std::string archiveOfTheSystem(unsigned seed) {
        std::mt19937 generator(seed);
        mount(std::string());
        for (unsigned number = 0; number < 30; ++number) {
            const auto size = generator() % 40000;
            const auto bytes = number % 2 == 0 ? randomBytes(size, static_cast<unsigned>(generator()))
                                               : std::string(size, static_cast<char>('a' + number % 26));
            zip.write("/file" + std::to_string(number), bytes);
        }
        zip.write("/empty", "");
        zip.createFolder("/folder");
        return archive();
    }

    const ScopedTime m_time;
};

TEST_F(ZipRebuild, GivesTheSameArchiveFastAndPlainForWhatTheSystemWrote) {
    for (const unsigned seed : {1U, 2U, 3U}) {
        expectSameArchives(archiveOfTheSystem(seed), [this] { zip.write("/added.txt", "added"); });
    }
}

TEST_F(ZipRebuild, GivesTheSameArchiveFastAndPlainForMovedEntries) {
    expectSameArchives(archiveOfTheSystem(4), [this] {
        zip.moveFile("/file1", "/folder/moved");
        zip.moveFolder("/folder", "/renamed");
    });
}

TEST_F(ZipRebuild, GivesTheSameArchiveFastAndPlainForArchivesOfOthers) {
    ArchiveBuilder builder;
    builder.add("stored.txt", "as it is");
    builder.last().method = Method::Stored;
    builder.add("commented.txt", std::string(5000, 'c'));
    builder.last().comment = "a comment";
    builder.add("streamed.txt", std::string(5000, 's'));
    builder.last().descriptor = DataDescriptor::WithSignature;
    builder.add("quick.txt", std::string(50000, 'q') + randomBytes(5000, 7));
    builder.last().level = 1;
    builder.add("docs/");
    expectSameArchives(builder.build(), [this] { zip.write("/added.txt", "added"); });
}

TEST_F(ZipRebuild, GivesTheSameArchiveFastAndPlainWhereEntriesOfOthersStandBetweenThoseOfTheSystem) {
    for (const auto* const foreign : {"empty", "file15", "folder/"}) {
        auto before = archiveOfTheSystem(5);
        // The name in the directory is the last one in the archive; the byte behind the signature tells the
        // writer.
        const auto header = before.rfind(foreign) - 46;
        ASSERT_EQ(before.substr(header, 4), "PK\x01\x02");
        before[header + 4] = 20;
        expectSameArchives(before, [this] { zip.removeFile("/file3"); });
    }
}

TEST_F(ZipRebuild, GivesTheSameArchiveFastAndPlainInEveryTimeZone) {
    const auto before = archiveOfTheSystem(6);
    for (const auto* const zone : {"UTC", "Asia/Kolkata", "America/New_York"}) {
        const ScopedVariable scoped("TZ", zone);
        tzset();
        expectSameArchives(before, [this] { zip.write("/added.txt", "added"); });
    }
    tzset();
}

TEST_F(ZipRebuild, GivesTheSameArchiveFastAndPlainForAnyChange) {
    std::mt19937 random(8);
    for (unsigned round = 0; round < 20; ++round) {
        const auto before = archiveOfTheSystem(100 + round);
        const auto seed = static_cast<unsigned>(random());
        expectSameArchives(before, [this, seed] {
            std::mt19937 choice(seed);
            const auto held = zip.writer("/held");
            for (int change = 0; change < 6; ++change) {
                const auto name = "/file" + std::to_string(choice() % 30);
                if (!zip.isFile(name)) {
                    continue;
                }
                switch (choice() % 4) {
                case 0:
                    zip.removeFile(name);
                    break;
                case 1:
                    zip.moveFile(name, "/folder" + name + ".moved");
                    break;
                case 2:
                    zip.write(name, randomBytes(choice() % 9000, static_cast<unsigned>(choice())));
                    break;
                default:
                    zip.append(name, "more");
                }
            }
            held->close();
        });
    }
}

TEST_F(ZipRebuild, KeepsAnEntryWithTheWritersMarksAsItIsStored) {
    ArchiveBuilder builder;
    builder.add("quick.txt", std::string(50000, 'q') + randomBytes(5000, 7) + std::string(50000, 'r'));
    builder.last().versionMadeBy = 0;
    builder.last().level = 1;
    const auto before = builder.build();
    const auto change = [this] { zip.write("/added.txt", "added"); };
    const auto fast = after(RebuildMode::Fast, before, change);
    const auto plain = after(RebuildMode::Plain, before, change);
    // Deflated at the fastest level, it would have come out smaller.
    EXPECT_GT(fast.size(), plain.size());
}

TEST_F(ZipRebuild, GoesThePlainWayWhereTheLocalHeaderSaysSomethingElse) {
    ArchiveBuilder builder;
    builder.add("a.txt", "contents");
    builder.last().versionMadeBy = 0;
    builder.last().local.crc32 = 1;
    mount(builder.build());
    const auto before = archive();
    EXPECT_ANY_THROW(zip.write("/added.txt", "added"));
    EXPECT_TRUE(before == archive());
}

TEST_F(ZipRebuild, GivesNoEntryAnotherNameThanItHas) {
    ArchiveBuilder builder;
    builder.add("gr\xFC\xDF", "contents");
    builder.last().versionMadeBy = 0;
    mount(builder.build());
    const auto before = archive();
    EXPECT_ANY_THROW(zip.write("/added.txt", "added"));
    EXPECT_TRUE(before == archive());
}

} // namespace
} // namespace kx::test
