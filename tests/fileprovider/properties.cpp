#include "LocalFilesTest.h"

#include <boost/date_time/posix_time/posix_time.hpp>

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace kx::test {

namespace fs = std::filesystem;
using boost::posix_time::ptime;
using boost::posix_time::time_from_string;

class LocalFileProperties : public LocalFilesTest {
protected:
    LocalFileProperties() { spit(file("a"), "contents"); }
};

TEST_F(LocalFileProperties, TimesAreKeptToTheMicrosecond) {
    for (const auto* text :
         {"2024-02-29 12:34:56.789012", "1969-12-31 23:59:59.999999", "1970-01-01 00:00:00.000000",
          "2242-03-16 12:56:31.000001", "1901-12-14 00:00:00.500000"}) {
        const auto time = time_from_string(text);
        files().setLastModified(iri("a"), time);
        EXPECT_EQ(files().getFileAttributes(iri("a")).getLastModified(), time) << text;
    }
    expectError(ErrorCode::InvalidArgument, [&] { files().setLastModified(iri("a"), ptime()); });
}

TEST_F(LocalFileProperties, AFileWithoutWriteBitsIsReadOnlyForEveryone) {
    ASSERT_EQ(::chmod(file("a").c_str(), 0444), 0);
    EXPECT_FALSE(files().getFileAttributes(iri("a")).isWritable());
    files().setWritable(iri("a"), true);
    EXPECT_TRUE(files().getFileAttributes(iri("a")).isWritable());
    EXPECT_EQ(statusOf(file("a")).st_mode & 07777, 0644U);
    files().setWritable(iri("a"), false);
    EXPECT_EQ(statusOf(file("a")).st_mode & 07777, 0444U);
}

TEST_F(LocalFileProperties, ExtendedAttributesTellWhatTheSystemKnows) {
    ASSERT_EQ(::chmod(file("a").c_str(), 04754), 0);
    fs::create_hard_link(file("a"), file("b"));
    fs::create_symlink("a", file("link"));
    const auto attributes = files().getExtendedAttributes(iri("link"));
    EXPECT_EQ(attributes.size, 8U);
    EXPECT_EQ(attributes.properties.at("permissions"), "rwsr-xr--");
    EXPECT_EQ(attributes.properties.at("links"), "2");
    EXPECT_EQ(attributes.properties.at("linkTarget"), "a");
    EXPECT_FALSE(attributes.properties.at("owner").empty());
    EXPECT_FALSE(attributes.properties.at("group").empty());
    EXPECT_EQ(files().getExtendedAttributes(iri("a")).properties.count("linkTarget"), 0U);
    if (isSuperuser()) {
        EXPECT_EQ(attributes.properties.at("owner"), "root");
        ASSERT_EQ(::chown(file("a").c_str(), 65123, 65123), 0);
        EXPECT_EQ(files().getExtendedAttributes(iri("a")).properties.at("owner"), "65123");
    }
}

TEST_F(LocalFileProperties, TheStorageInfoIsThatOfTheRootFileSystem) {
    struct statvfs expected {};
    ASSERT_EQ(::statvfs("/", &expected), 0);
    const auto info = files().getProviderStorageInfo();
    EXPECT_EQ(info.totalBytes, expected.f_blocks * expected.f_frsize);
    ASSERT_TRUE(info.freeBytes);
    EXPECT_LE(*info.freeBytes, *info.totalBytes);
}

TEST_F(LocalFileProperties, ACopyHasThePermissionsOfItsSource) {
    ASSERT_EQ(::chmod(file("a").c_str(), 0750), 0);
    files().copyFile(iri("a"), iri("b"), foundation::storage::provider::MoveOption::FailIfExists);
    EXPECT_EQ(statusOf(file("b")).st_mode & 07777, 0750U);
    EXPECT_EQ(slurp(file("b")), "contents");
}

} // namespace kx::test
