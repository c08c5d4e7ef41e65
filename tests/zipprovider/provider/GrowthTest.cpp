#include "ZipProviderTest.h"

#include <storage/zipprovider/src/ZipEntryPath.h>

#include <support/FaultInjectingProvider.h>
#include <support/archives/ArchiveShapes.h>

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <memory>
#include <string>

// Counts, not seconds: the same on every machine, and a walk over all entries for each of them shows at once.

namespace kx::test {
namespace {

using storage::zipprovider::ZipEntryPath;

struct Work {
    double comparisons;
    double reads;
    double seeks;
};

enum class Shape {
    ManyFolders,
    OneFolder,
};

class Growth : public ZipProviderTest, public testing::WithParamInterface<Shape> {
protected:
    unsigned perFolder = 0;

    /// What `operation` costs on an archive of that many entries, opening it not counted unless `cold`.
    Work costOf(unsigned entries, bool cold,
                const std::function<void(MountedZip&, unsigned folders)>& operation) {
        perFolder = GetParam() == Shape::OneFolder ? entries : 100;
        const auto folders = entries / perFolder;
        replaceContainer(wideArchive(folders, perFolder));
        const auto plan = std::make_shared<FaultPlan>();
        MountedZip counted(
            StorageItem(std::make_shared<FaultInjectingProvider>(memory, plan), container.getLocation()));
        if (!cold) {
            counted.list();
        }
        plan->countOnly();
        const auto comparisons = ZipEntryPath::comparisons();
        operation(counted, folders);
        return {static_cast<double>(ZipEntryPath::comparisons() - comparisons),
                static_cast<double>(plan->countOf(ProviderOperation::StreamRead)),
                static_cast<double>(plan->countOf(ProviderOperation::StreamSeek))};
    }

    void expectAtMostNLogN(bool cold, const std::function<void(MountedZip&, unsigned folders)>& operation) {
        const auto small = costOf(1'000, cold, operation);
        const auto large = costOf(10'000, cold, operation);
        const double limit = 10 * std::log(10'000) / std::log(1'000) * 1.1;
        // A fixed cost, such as looking for the end record, counts for little.
        constexpr double fixed = 50;
        EXPECT_LE(large.comparisons, (small.comparisons + fixed) * limit);
        EXPECT_LE(large.reads, (small.reads + fixed) * limit);
        EXPECT_LE(large.seeks, (small.seeks + fixed) * limit);
    }
};

TEST_P(Growth, OfOpeningIsAtMostThatOfSorting) {
    expectAtMostNLogN(true, [this](MountedZip& opened, unsigned) { opened.list(); });
}

TEST_P(Growth, OfListingIsAtMostThatOfSorting) {
    expectAtMostNLogN(false, [this](MountedZip& opened, unsigned folders) {
        EXPECT_EQ(opened.list().size(), folders);
        for (const auto& folder : opened.list()) {
            EXPECT_EQ(opened.list("/" + folder.substr(0, folder.size() - 1)).size(), perFolder);
        }
    });
}

TEST_P(Growth, OfReadingAllIsAtMostThatOfSorting) {
    expectAtMostNLogN(false, [this](MountedZip& opened, unsigned folders) {
        for (unsigned folder = 0; folder < folders; ++folder) {
            for (unsigned file = 0; file < perFolder; ++file) {
                const auto name = wideArchiveFile(folder, file);
                EXPECT_EQ(opened.read("/" + name), name);
            }
        }
    });
}

TEST_P(Growth, OfReadingOneEntryIsNone) {
    const auto readLast = [this](MountedZip& opened, unsigned folders) {
        opened.read("/" + wideArchiveFile(0, 0));
        opened.read("/" + wideArchiveFile(folders - 1, perFolder - 1));
    };
    const auto small = costOf(1'000, false, readLast);
    const auto large = costOf(10'000, false, readLast);
    EXPECT_LE(large.reads, small.reads * 1.2);
    EXPECT_LE(large.seeks, small.seeks * 1.2);
    EXPECT_LE(large.comparisons, small.comparisons * 2);
}

TEST_P(Growth, OfReadingManyEntriesIsTwoReadsForEach) {
    const auto work = costOf(1'000, false, [this](MountedZip& opened, unsigned) {
        for (unsigned file = 0; file < perFolder; ++file) {
            opened.read("/" + wideArchiveFile(0, file));
        }
    });
    // The header in the directory, and the local header with the data, which is looked at three times.
    EXPECT_LE(work.reads, 4 * perFolder);
}

TEST_P(Growth, OfAddingOneEntryIsAtMostThatOfSorting) {
    expectAtMostNLogN(false, [this](MountedZip& opened, unsigned) { opened.write("/added.txt", "added"); });
}

TEST_P(Growth, OfAddingOneEntryToWhatTheSystemWroteIsAtMostThatOfSorting) {
    expectAtMostNLogN(false, [this](MountedZip& opened, unsigned) {
        opened.write("/first.txt", "everything is written by the system now");
        opened.write("/added.txt", "added");
    });
}

TEST_P(Growth, OfRemovingAFolderIsAtMostThatOfSorting) {
    expectAtMostNLogN(false, [this](MountedZip& opened, unsigned) {
        const auto held = opened.writer("/held.txt");
        for (unsigned file = 0; file < perFolder; ++file) {
            opened.removeFile("/" + wideArchiveFile(0, file));
        }
        opened.removeFolder("/d0000");
        held->close();
        EXPECT_FALSE(opened.isFolder("/d0000"));
    });
}

TEST_P(Growth, OfMovingAFolderIsAtMostThatOfSorting) {
    expectAtMostNLogN(false, [this](MountedZip& opened, unsigned) {
        opened.moveFolder("/d0000", "/moved");
        EXPECT_EQ(opened.list("/moved").size(), perFolder);
    });
}

INSTANTIATE_TEST_SUITE_P(Of, Growth, testing::Values(Shape::ManyFolders, Shape::OneFolder),
                         [](const auto& tested) {
                             return tested.param == Shape::OneFolder ? "OneFolder" : "ManyFolders";
                         });

} // namespace
} // namespace kx::test
