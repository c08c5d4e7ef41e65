#include "ProviderConformance.h"

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <algorithm>

namespace kx::test {

using provider::EntryKind;
using provider::Feature;

namespace {

/// Far from now, and exact in formats that count in two seconds.
boost::posix_time::ptime someTime() {
    return {boost::gregorian::date(2001, 2, 3), boost::posix_time::time_duration(4, 5, 6)};
}

} // namespace

TEST_P(PropertyConformance, AFileHasASizeATimeAndIsWritable) {
    write(u"a", "12345");
    const auto attributes = storage().getFileAttributes(at(u"a"));

    EXPECT_EQ(attributes.getSize(), 5U);
    EXPECT_FALSE(attributes.getLastModified().is_special());
    EXPECT_TRUE(attributes.isWritable());
    tested().reopen();
    EXPECT_EQ(storage().getFileAttributes(at(u"a")).getSize(), 5U);
}

TEST_P(PropertyConformance, AFolderHasATimeAndIsWritable) {
    makeFolder(u"f");
    const auto attributes = storage().getFolderAttributes(at(u"f"));

    EXPECT_FALSE(attributes.getLastModified().is_special());
    EXPECT_TRUE(attributes.isWritable());
}

TEST_P(PropertyConformance, AttributesOfWhatIsNotThereOrOfTheOtherKindFail) {
    write(u"file", "x");
    makeFolder(u"folder");
    for (const auto* path : {u"no", u"no/a", u"folder"}) {
        expectError(
            ErrorCode::NotFound, [&] { storage().getFileAttributes(at(path)); }, at(path));
    }
    for (const auto* path : {u"no", u"no/a", u"file"}) {
        expectError(
            ErrorCode::NotFound, [&] { storage().getFolderAttributes(at(path)); }, at(path));
    }
}

TEST_P(PropertyConformance, ExtendedAttributesAgreeWithThePlainOnes) {
    write(u"file", "12345");
    makeFolder(u"folder");
    const auto plainFile = storage().getFileAttributes(at(u"file"));
    const auto plainFolder = storage().getFolderAttributes(at(u"folder"));
    const auto file = storage().getExtendedAttributes(at(u"file"));
    const auto folder = storage().getExtendedAttributes(at(u"folder"));

    EXPECT_EQ(file.kind, EntryKind::File);
    EXPECT_EQ(file.size, 5U);
    EXPECT_EQ(file.lastModified, plainFile.getLastModified());
    EXPECT_EQ(file.writable, plainFile.isWritable());
    EXPECT_EQ(folder.kind, EntryKind::Folder);
    EXPECT_EQ(folder.size, std::nullopt);
    EXPECT_EQ(folder.lastModified, plainFolder.getLastModified());
    EXPECT_EQ(folder.writable, plainFolder.isWritable());
    for (const auto* path : {u"no", u"no/a"}) {
        expectError(
            ErrorCode::NotFound, [&] { storage().getExtendedAttributes(at(path)); }, at(path));
    }
}

TEST_P(PropertyConformance, TheTimeCanBeSetWhereTheProviderSaysSo) {
    write(u"a", "x");
    if (!storage().hasFeature(Feature::SetLastModified)) {
        expectError(
            ErrorCode::NotSupported, [&] { storage().setLastModified(at(u"a"), someTime()); }, at(u"a"));
        return;
    }
    const auto time = storage().hasFeature(Feature::PreciseTimes)
                          ? someTime() + boost::posix_time::microseconds(123'456)
                          : someTime();
    storage().setLastModified(at(u"a"), time);
    tested().reopen();
    EXPECT_EQ(storage().getFileAttributes(at(u"a")).getLastModified(), time);
    expectError(
        ErrorCode::NotFound, [&] { storage().setLastModified(at(u"no"), time); }, at(u"no"));
}

TEST_P(PropertyConformance, WritabilityCanBeSetWhereTheProviderSaysSo) {
    write(u"a", "x");
    if (!storage().hasFeature(Feature::SetWritable)) {
        expectError(
            ErrorCode::NotSupported, [&] { storage().setWritable(at(u"a"), false); }, at(u"a"));
        EXPECT_TRUE(storage().getFileAttributes(at(u"a")).isWritable());
        return;
    }
    storage().setWritable(at(u"a"), false);
    EXPECT_FALSE(storage().getFileAttributes(at(u"a")).isWritable());
    expectError(
        ErrorCode::NotWritable, [&] { storage().openStream(at(u"a"), Options::overwrite()); }, at(u"a"));
    EXPECT_EQ(read(u"a"), "x");
    storage().setWritable(at(u"a"), true);
    EXPECT_TRUE(storage().getFileAttributes(at(u"a")).isWritable());
    expectError(
        ErrorCode::NotFound, [&] { storage().setWritable(at(u"no"), true); }, at(u"no"));
}

TEST_P(PropertyConformance, AFeatureThatNobodyKnowsIsNotThere) {
    EXPECT_FALSE(storage().hasFeature(static_cast<Feature>(1'000'000)));
}

TEST_P(PropertyConformance, ThePathComparatorOrdersPaths) {
    const auto compare = storage().getPathComparator();
    const Names ordered{u"/", u"/a", u"/a/b", u"/b", u"/ä", u"/日本"};
    for (std::size_t i = 0; i < ordered.size(); ++i) {
        EXPECT_EQ(compare(ordered[i], ordered[i]), 0);
        for (std::size_t k = i + 1; k < ordered.size(); ++k) {
            EXPECT_LT(compare(ordered[i], ordered[k]), 0);
            EXPECT_GT(compare(ordered[k], ordered[i]), 0);
        }
    }
    const bool caseCounts =
        storage().getFilenameSensitivity() == provider::FilenameSensitivity::CaseSensitive;
    EXPECT_EQ(compare(u"/a", u"/A") != 0, caseCounts);
}

TEST_P(PropertyConformance, EverySpellingOfALocationHasOneCanonicalOne) {
    makeFolder(u"f");
    write(u"f/a", "x");
    for (const auto* path : {u"f/a", u"f", u"no/such"}) {
        const auto canonical = storage().getCanonicalLocation(at(path));
        EXPECT_EQ(storage().getCanonicalLocation(canonical), canonical);
        EXPECT_EQ(storage().getCanonicalLocation(at(ustring(path) + u"/")), canonical);
        EXPECT_EQ(storage().getCanonicalLocation(at(u"/" + ustring(path) + u"//")), canonical);
        EXPECT_EQ(storage().existsExtended(canonical), storage().existsExtended(at(path)));
    }
    EXPECT_NE(storage().getCanonicalLocation(at(u"f")), storage().getCanonicalLocation(at(u"g")));
}

TEST_P(PropertyConformance, SpaceIsKnownWhereTheProviderSaysSo) {
    const auto info = storage().getProviderStorageInfo();
    EXPECT_EQ(info.totalBytes.has_value(), storage().hasFeature(Feature::StorageInfo));
    EXPECT_EQ(info.freeBytes.has_value(), storage().hasFeature(Feature::StorageInfo));
    EXPECT_LE(info.freeBytes.value_or(0), info.totalBytes.value_or(0));
}

TEST_P(PropertyConformance, CacheUsageCountsBytesOnlyWithFiles) {
    const auto usage = storage().getProviderCacheUsage();
    EXPECT_TRUE(usage.files > 0 || usage.bytes == 0);
}

TEST_P(PropertyConformance, AProviderCanBeUsedOnAfterShutdown) {
    write(u"a", "x");
    storage().shutdown();
    storage().shutdown();
    EXPECT_EQ(read(u"a"), "x");
    write(u"b", "y");
    EXPECT_EQ(names(), (Names{u"a", u"b"}));
}

} // namespace kx::test
