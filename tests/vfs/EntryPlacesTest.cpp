#include "Fixture.h"

#include <storage/vfs/EntryPlaces.h>
#include <support/InMemoryProvider.h>

using namespace kx::test;
using foundation::storage::provider::StorageItem;
using storage::vfs::EntryPlaces;

namespace {

EntryPlaces placesIn(const std::string& bytes) {
    const auto memory = std::make_shared<InMemoryProvider>();
    const auto file = memory->at(u"/a.zip");
    writeFile(*memory, file, bytes);
    return EntryPlaces(StorageItem(memory, file));
}

} // namespace

TEST(EntryPlaces, AreTheOffsetsOfTheLocalHeaders) {
    ArchiveBuilder builder;
    builder.add("docs/a.txt", "text").add("docs//b.txt", "more").add("c", "");
    ArchiveLayout layout;
    const auto places = placesIn(builder.build(&layout)).of({u"/c", u"/docs/a.txt", u"/docs/b.txt"});
    EXPECT_EQ(places, (std::vector<std::uint64_t>{layout.localHeaders[2], layout.localHeaders[0],
                                                  layout.localHeaders[1]}));
}

TEST(EntryPlaces, OfEntriesWithOneNameTheFirstIsMeant) {
    ArchiveBuilder builder;
    builder.add("first", "1").add("twice", "2").add("twice", "3");
    ArchiveLayout layout;
    auto bytes = builder.build(&layout);
    EXPECT_EQ(placesIn(bytes).of({u"/twice"}), (std::vector<std::uint64_t>{layout.localHeaders[1]}));
}

TEST(EntryPlaces, WhatTheArchiveDoesNotHoldIsUnknown) {
    ArchiveBuilder builder;
    builder.add("a", "1");
    EXPECT_EQ(placesIn(builder.build()).of({u"/b", u"/a"}),
              (std::vector<std::uint64_t>{EntryPlaces::unknown, 0}));
    EXPECT_TRUE(placesIn(builder.build()).of({}).empty());
}

TEST(EntryPlaces, WhatCannotBeReadIsUnknown) {
    EXPECT_EQ(placesIn("no archive").of({u"/a"}), (std::vector<std::uint64_t>{EntryPlaces::unknown}));
    const auto memory = std::make_shared<InMemoryProvider>();
    const EntryPlaces missing(StorageItem(memory, memory->at(u"/missing.zip")));
    EXPECT_EQ(missing.of({u"/a"}), (std::vector<std::uint64_t>{EntryPlaces::unknown}));
}
