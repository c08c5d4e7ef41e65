#include <storage/vfs/StorableName.h>

#include <gtest/gtest.h>

#include <string>

using foundation::storage::provider::StorageIRI;
using storage::vfs::unstorable;

namespace {

StorageIRI inPlans(const std::u16string& path) {
    return StorageIRI::parse("zip:file:///plans.zip!/").withPath(u"/" + path);
}

} // namespace

TEST(StorableName, HasAtMost65535BytesOfUtf8WithTheSlashOfAFolder) {
    EXPECT_EQ(unstorable(inPlans(std::u16string(65'535, u'n')), false), std::nullopt);
    EXPECT_EQ(unstorable(inPlans(std::u16string(65'536, u'n')), false),
              "its path in the archive is 65536 bytes long, an archive can store 65535");
    EXPECT_EQ(unstorable(inPlans(std::u16string(65'534, u'n')), true), std::nullopt);
    EXPECT_EQ(unstorable(inPlans(std::u16string(65'535, u'n')), true),
              "its path in the archive is 65536 bytes long, an archive can store 65535");
    EXPECT_EQ(unstorable(inPlans(std::u16string(21'845, u'\u3042')), false), std::nullopt);
    EXPECT_EQ(unstorable(inPlans(std::u16string(21'846, u'\u3042')), false),
              "its path in the archive is 65538 bytes long, an archive can store 65535");
}

TEST(StorableName, HoldsNoNul) {
    EXPECT_EQ(unstorable(inPlans(std::u16string(u"a\0b", 3)), false),
              "its name holds a NUL, which an archive cannot store");
}

TEST(StorableName, OfALocalFileIsTheSystemsOwnMatter) {
    const auto local = StorageIRI::parse("file:///").withPath(u"/" + std::u16string(65'536, u'n'));
    EXPECT_EQ(unstorable(local, false), std::nullopt);
}
