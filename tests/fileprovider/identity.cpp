#include "LocalFilesTest.h"
#include "OtherProcess.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <unistd.h>

namespace kx::test {

namespace fs = std::filesystem;

namespace {

constexpr uid_t stranger = 65123;
constexpr uid_t otherStranger = 65124;

mode_t modeOf(const fs::path& path) {
    return statusOf(path).st_mode & 07777;
}

void setMode(const fs::path& path, mode_t mode) {
    ASSERT_EQ(::chmod(path.c_str(), mode), 0);
}

void setOwner(const fs::path& path, uid_t owner) {
    ASSERT_EQ(::chown(path.c_str(), owner, owner), 0);
}

} // namespace

/// A saved file stays the file that it was.
class SavedFileIdentity : public LocalFilesTest {
protected:
    SavedFileIdentity() { spit(file("a"), "old"); }

    /// Another user must be able to get to the files.
    void openFoldersToAll(mode_t mode) {
        setMode(folder(), mode);
        setMode(stateFolder(), 0777);
    }

    /// Saves as another user, whose state folder is one of his own below this test's. Returns "" or the
    /// error.
    std::string saveAs(uid_t user, std::string_view bytes) {
        const auto state = (stateFolder() / ("of" + std::to_string(user))).string();
        OtherProcess process(
            [&]() -> std::string {
                auto how = options();
                how.stateFolder = state;
                writeFile(*LocalFileProvider::create(how), iri("a"), bytes);
                return {};
            },
            user);
        return process.result();
    }
};

TEST_F(SavedFileIdentity, KeepsPermissions) {
    for (const mode_t mode : {0600U, 0640U, 0755U, 04755U, 0666U, 0200U}) {
        setMode(file("a"), mode);
        save("a", "new");
        EXPECT_EQ(modeOf(file("a")), mode);
    }
    expectNothingLeft();
}

TEST_F(SavedFileIdentity, KeepsHardLinks) {
    fs::create_hard_link(file("a"), file("link"));
    const auto inode = statusOf(file("a")).st_ino;
    for (const std::size_t size : {20'000U, 100U, 0U, 50'000U}) {
        const auto bytes = randomBytes(size, 1);
        save("a", bytes);
        EXPECT_EQ(slurp(file("link")), bytes);
        EXPECT_EQ(statusOf(file("a")).st_ino, inode);
    }
    EXPECT_EQ(statusOf(file("a")).st_nlink, 2U);
    expectNothingLeft();
}

TEST_F(SavedFileIdentity, KeepsSymbolicLinksThatLeadToIt) {
    fs::create_directory(file("f"));
    fs::rename(file("a"), file("f") / "a");
    fs::create_symlink("f/a", file("near"));
    fs::create_symlink(file("near"), file("far"));
    save("far", "through two links");
    EXPECT_EQ(fs::read_symlink(file("near")), "f/a");
    EXPECT_EQ(fs::read_symlink(file("far")), file("near"));
    EXPECT_EQ(slurp(file("f") / "a"), "through two links");
    EXPECT_EQ(workingFilesIn(file("f")), std::vector<std::string>());
    expectNothingLeft();
}

TEST_F(SavedFileIdentity, MakesTheFileThatASymbolicLinkMissesWhereItLeads) {
    fs::create_directory(file("f"));
    fs::create_symlink("f/new", file("link"));
    save("link", "x");
    EXPECT_TRUE(fs::is_symlink(file("link")));
    EXPECT_EQ(slurp(file("f") / "new"), "x");
}

TEST_F(SavedFileIdentity, KeepsExtendedAttributes) {
    if (!setAttributeOf(file("a"), "user.colour", "blue")) {
        GTEST_SKIP() << "the file system has no extended attributes";
    }
    ASSERT_TRUE(setAttributeOf(file("a"), "user.empty", ""));
    ASSERT_TRUE(setAttributeOf(file("a"), "user.binary", std::string("\0\1\xff", 3)));
    for (const bool linked : {false, true}) {
        if (linked) {
            fs::create_hard_link(file("a"), file("link"));
        }
        save("a", linked ? "overwritten" : "renamed");
        EXPECT_EQ(attributeOf(file("a"), "user.colour"), "blue");
        EXPECT_EQ(attributeOf(file("a"), "user.binary"), std::string("\0\1\xff", 3));
        EXPECT_EQ(attributeOf(file("a"), "user.kxvfs.save"), "");
    }
}

TEST_F(SavedFileIdentity, KeepsTheAccessControlList) {
    const auto list = accessControlListFor(stranger);
    if (!setAttributeOf(file("a"), "system.posix_acl_access", list)) {
        GTEST_SKIP() << "the file system has no access control lists";
    }
    save("a", "new");
    EXPECT_EQ(attributeOf(file("a"), "system.posix_acl_access"), list);
    EXPECT_EQ(modeOf(file("a")), 0640U);
}

TEST_F(SavedFileIdentity, TakesNoAccessControlListFromTheFolder) {
    if (!setAttributeOf(folder(), "system.posix_acl_default", accessControlListFor(stranger))) {
        GTEST_SKIP() << "the file system has no access control lists";
    }
    save("a", "new");
    EXPECT_EQ(attributeOf(file("a"), "system.posix_acl_access"), "");
    save("fresh", "x");
    EXPECT_NE(attributeOf(file("fresh"), "system.posix_acl_access"), "");
}

TEST_F(SavedFileIdentity, KeepsTheOwner) {
    if (!isSuperuser()) {
        GTEST_SKIP() << "only the superuser may give files away";
    }
    setOwner(file("a"), stranger);
    setMode(file("a"), 0640);
    save("a", "new");
    EXPECT_EQ(statusOf(file("a")).st_uid, stranger);
    EXPECT_EQ(statusOf(file("a")).st_gid, stranger);
    EXPECT_EQ(modeOf(file("a")), 0640U);
}

TEST_F(SavedFileIdentity, KeepsTheOwnerWhoIsNotTheOneWhoSaves) {
    if (!isSuperuser()) {
        GTEST_SKIP() << "only the superuser may act as another user";
    }
    openFoldersToAll(0777);
    setOwner(file("a"), stranger);
    setMode(file("a"), 0666);
    const auto inode = statusOf(file("a")).st_ino;
    EXPECT_EQ(saveAs(otherStranger, "by another"), "");
    EXPECT_EQ(slurp(file("a")), "by another");
    EXPECT_EQ(statusOf(file("a")).st_uid, stranger);
    EXPECT_EQ(statusOf(file("a")).st_ino, inode);
    EXPECT_EQ(workingFilesIn(folder()), std::vector<std::string>());
}

TEST_F(SavedFileIdentity, KeepsAFileInAFolderWhereOnlyOwnersMayReplaceTheirs) {
    if (!isSuperuser()) {
        GTEST_SKIP() << "only the superuser may act as another user";
    }
    openFoldersToAll(01777);
    setMode(file("a"), 0666);
    const auto inode = statusOf(file("a")).st_ino;
    EXPECT_EQ(saveAs(stranger, "by another"), "");
    EXPECT_EQ(slurp(file("a")), "by another");
    EXPECT_EQ(statusOf(file("a")).st_ino, inode);
    EXPECT_EQ(workingFilesIn(folder()), std::vector<std::string>());
}

TEST_F(SavedFileIdentity, AFolderThatCannotBeWrittenIsNoObstacle) {
    if (!isSuperuser()) {
        GTEST_SKIP() << "only the superuser may act as another user";
    }
    openFoldersToAll(0755);
    setMode(file("a"), 0666);
    const auto bytes = randomBytes(30'000, 1);
    EXPECT_EQ(saveAs(stranger, bytes), "");
    EXPECT_EQ(slurp(file("a")), bytes);
    EXPECT_EQ(namesIn(folder()), std::vector<std::string>{"a"});
    EXPECT_EQ(namesIn(stateFolder() / "of65123"), std::vector<std::string>());
}

TEST_F(SavedFileIdentity, WithoutAnyPlaceForTheNewContentsNothingIsSaved) {
    if (!isSuperuser()) {
        GTEST_SKIP() << "only the superuser may act as another user";
    }
    setMode(folder(), 0755);
    setMode(file("a"), 0666);
    const auto error = saveAs(stranger, "new");
    EXPECT_NE(error.find("access denied"), std::string::npos) << error;
    EXPECT_NE(error.find("nor in the state folder"), std::string::npos) << error;
    EXPECT_EQ(slurp(file("a")), "old");
}

TEST_F(SavedFileIdentity, WhoMayNotWriteTheFileIsToldSoAtOpening) {
    if (!isSuperuser()) {
        GTEST_SKIP() << "only the superuser may act as another user";
    }
    openFoldersToAll(0777);
    setMode(file("a"), 0644);
    const auto error = saveAs(stranger, "new");
    EXPECT_EQ(error.find("thrown: access denied: file://"), 0U) << error;
    EXPECT_EQ(slurp(file("a")), "old");
    EXPECT_EQ(namesIn(folder()), std::vector<std::string>{"a"});
}

TEST_F(SavedFileIdentity, AStateFolderThatOthersCanWriteIsNotUsed) {
    if (!isSuperuser()) {
        GTEST_SKIP() << "only the superuser may act as another user";
    }
    openFoldersToAll(0755);
    setMode(file("a"), 0666);
    const auto state = stateFolder() / "of65123";
    fs::create_directory(state);
    setOwner(state, stranger);
    setMode(state, 0777);
    EXPECT_NE(saveAs(stranger, "new").find("nor in the state folder"), std::string::npos);
    EXPECT_EQ(slurp(file("a")), "old");
}

TEST_F(SavedFileIdentity, AnImmutableFileIsRefusedAtOpening) {
    const int descriptor = ::open(file("a").c_str(), O_RDONLY | O_CLOEXEC);
    int flags = 0;
    ASSERT_EQ(::ioctl(descriptor, FS_IOC_GETFLAGS, &flags), 0);
    int immutable = flags | FS_IMMUTABLE_FL;
    if (::ioctl(descriptor, FS_IOC_SETFLAGS, &immutable) != 0) {
        ::close(descriptor);
        GTEST_SKIP() << "cannot make a file immutable here";
    }
    expectError(ErrorCode::AccessDenied, [&] { files().openStream(iri("a"), {}); });
    EXPECT_FALSE(files().getFileAttributes(iri("a")).isWritable());
    EXPECT_EQ(::ioctl(descriptor, FS_IOC_SETFLAGS, &flags), 0);
    ::close(descriptor);
    EXPECT_EQ(slurp(file("a")), "old");
    expectNothingLeft();
}

TEST_F(SavedFileIdentity, AFileThatIsMountedIsOverwritten) {
    spit(stateFolder() / "mounted", "old");
    if (::mount((stateFolder() / "mounted").c_str(), file("a").c_str(), nullptr, MS_BIND, nullptr) != 0) {
        GTEST_SKIP() << "cannot mount a file here";
    }
    EXPECT_NO_THROW(save("a", "new"));
    EXPECT_EQ(read("a"), "new");
    ::umount2(file("a").c_str(), MNT_DETACH);
    EXPECT_EQ(slurp(stateFolder() / "mounted"), "new");
    EXPECT_EQ(slurp(file("a")), "old");
    EXPECT_EQ(workingFilesIn(folder()), std::vector<std::string>());
}

} // namespace kx::test
