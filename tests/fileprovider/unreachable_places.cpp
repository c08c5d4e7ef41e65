#include "LocalFilesTest.h"
#include "OtherProcess.h"
#include "SimulatedCrash.h"

#include <cerrno>
#include <sys/mount.h>
#include <unistd.h>

namespace kx::test {

namespace fs = std::filesystem;
using storage::fileprovider::recoverFile;
using storage::fileprovider::SystemCalls;

namespace {

constexpr const char* markName = "user.kxvfs.save";

/// A folder on a medium that fails, or whose server is gone.
class BrokenFolder final : public SystemCalls {
public:
    explicit BrokenFolder(fs::path path) : m_folder(std::move(path)) {}

    /// Whether the folder itself is out of reach, or only what is looked for in it.
    bool wholly = true;

    int access(const char* path, int mode) override {
        return wholly && isIn(path) ? fail() : SystemCalls::access(path, mode);
    }
    int open(const char* path, int flags, mode_t mode) override {
        return isIn(path) ? fail() : SystemCalls::open(path, flags, mode);
    }

private:
    bool isIn(std::string_view path) const { return path.starts_with(m_folder.native()); }
    static int fail() {
        errno = EIO;
        return -1;
    }

    const fs::path m_folder;
};

/// A file system that allows names of this many bytes.
class ShortNames final : public SystemCalls {
public:
    explicit ShortNames(std::size_t longest) : m_longest(longest) {}

    int open(const char* path, int flags, mode_t mode) override {
        return fits(path) ? SystemCalls::open(path, flags, mode) : -1;
    }
    int unlink(const char* path) override { return fits(path) ? SystemCalls::unlink(path) : -1; }

private:
    bool fits(std::string_view path) const {
        errno = ENAMETOOLONG;
        return path.size() - path.rfind('/') - 1 <= m_longest;
    }

    const std::size_t m_longest;
};

} // namespace

/// The folder for the working files that cannot stand beside their file is of no use.
class BrokenStateFolder : public LocalFilesTest {
protected:
    BrokenStateFolder() { spit(file("a"), m_old); }

    LocalFileOptions broken(bool wholly = true) const {
        const auto calls = std::make_shared<BrokenFolder>(stateFolder());
        calls->wholly = wholly;
        return options(calls);
    }

    /// The process that saves stops when half of the file is overwritten; its journal is in the state folder.
    void stopWhileOverwriting(bool attributes) {
        const auto calls = std::make_shared<SimulatedCrash>(std::vector<fs::path>{folder(), stateFolder()});
        calls->denyCreationIn(folder());
        calls->crashBeforeFirst("copyRange");
        if (!attributes) {
            calls->withoutAttributes();
        }
        EXPECT_THROW(writeFile(*LocalFileProvider::create(options(calls)), iri("a"), m_new), Exception);
        m_half = slurp(file("a"));
        EXPECT_TRUE(m_half != m_old && m_half != m_new);
    }

    const std::string m_old = randomBytes(9000, 1);
    const std::string m_new = randomBytes(20'000, 2);
    std::string m_half;
};

TEST_F(BrokenStateFolder, KeepsNobodyFromFilesThatHaveNothingToDoWithIt) {
    for (const bool wholly : {true, false}) {
        EXPECT_EQ(readFile(*LocalFileProvider::create(broken(wholly)), iri("a")), m_old);
    }
    const auto provider = LocalFileProvider::create(broken());
    if (!setAttributeOf(file("a"), "user.any", "x")) {
        GTEST_SKIP() << "the file system has no extended attributes";
    }
    for (const bool linked : {false, true}) {
        if (linked) {
            fs::create_hard_link(file("a"), file("link"));
        }
        writeFile(*provider, iri("a"), m_new);
        EXPECT_EQ(slurp(file("a")), m_new);
        writeFile(*provider, iri("a"), "more", ByteStreamOpenOptions::append());
        EXPECT_EQ(slurp(file("a")), m_new + "more");
    }
    writeFile(*provider, iri("new"), m_new);
    provider->moveFile(iri("new"), iri("b"), foundation::storage::provider::MoveOption::FailIfExists);
    EXPECT_EQ(readFile(*provider, iri("b")), m_new);
    expectNothingLeft();
}

TEST_F(BrokenStateFolder, ThatIsNoFolderOrNotThereIsEmpty) {
    spit(file("no folder"), "x");
    fs::permissions(file("no folder"), fs::perms::all);
    fs::create_symlink("loop", file("loop"));
    for (const auto& where : {file("no folder"), file("no folder") / "kxvfs", file("loop"), file("missing"),
                              file(std::string(300, 'x'))}) {
        auto how = options();
        how.stateFolder = where.string();
        const auto provider = LocalFileProvider::create(how);
        writeFile(*provider, iri("a"), m_new);
        EXPECT_EQ(readFile(*provider, iri("a")), m_new) << where;
        EXPECT_EQ(recoverFile(iri("a"), how).outcome, RecoveryOutcome::Nothing) << where;
    }
}

TEST_F(BrokenStateFolder, IsReportedByARecoveryThatIsAskedFor) {
    for (const bool wholly : {true, false}) {
        const auto text =
            expectError(ErrorCode::LocalFileSystem, [&] { recoverFile(iri("a"), broken(wholly)); });
        EXPECT_NE(text.find(stateFolder().string()), std::string::npos) << text;
    }
}

TEST_F(BrokenStateFolder, IsReportedWhereTheFileIsMarkedAsHalfWritten) {
    stopWhileOverwriting(true);
    if (attributeOf(file("a"), markName).empty()) {
        GTEST_SKIP() << "the file system has no extended attributes";
    }
    for (const bool wholly : {true, false}) {
        const auto provider = LocalFileProvider::create(broken(wholly));
        for (const auto& operation : std::vector<std::function<void()>>{
                 [&] { readFile(*provider, iri("a")); }, [&] { writeFile(*provider, iri("a"), "x"); },
                 [&] { provider->removeFile(iri("a")); }}) {
            const auto text = expectError(ErrorCode::LocalFileSystem, operation);
            EXPECT_NE(text.find(stateFolder().string()), std::string::npos) << text;
        }
    }
    EXPECT_EQ(slurp(file("a")), m_half);
    EXPECT_EQ(read("a"), m_new);
    expectNothingLeft();
}

TEST_F(BrokenStateFolder, IsReportedWhereAJournalIsSeenInItThatCannotBeRead) {
    stopWhileOverwriting(false);
    const auto provider = LocalFileProvider::create(broken(false));
    expectError(ErrorCode::LocalFileSystem, [&] { readFile(*provider, iri("a")); });
    expectError(ErrorCode::LocalFileSystem, [&] { writeFile(*provider, iri("a"), "x"); });
    EXPECT_EQ(read("a"), m_new);
    expectNothingLeft();
}

TEST_F(BrokenStateFolder, IsLookedIntoAgainByTheNextOpening) {
    constexpr std::int64_t later = 10;
    class BrokenOnce final : public SystemCalls {
    public:
        bool broken = true;
        int access(const char* path, int mode) override {
            errno = EIO;
            return broken ? -1 : SystemCalls::access(path, mode);
        }
        timespec now() override {
            auto time = SystemCalls::now();
            time.tv_sec += later;
            return time;
        }
    };
    stopWhileOverwriting(false);
    const auto calls = std::make_shared<BrokenOnce>();
    const auto provider = LocalFileProvider::create(options(calls));
    EXPECT_EQ(readFile(*provider, iri("a")), m_half) << "nothing tells of the save";
    calls->broken = false;
    EXPECT_EQ(readFile(*provider, iri("a")), m_new);
    expectNothingLeft();
}

TEST_F(BrokenStateFolder, AllowsNoSaveWhereNothingElseTellsOfAHalfWrittenFile) {
    fs::create_directory(file("f"));
    if (::mount("ramfs", file("f").c_str(), "ramfs", 0, nullptr) != 0) {
        GTEST_SKIP() << "cannot mount a file system without extended attributes here";
    }
    const auto inside = iri("f").child(u"a");
    spit(file("f") / "a", m_old);
    const auto provider = LocalFileProvider::create(broken());
    EXPECT_EQ(readFile(*provider, inside), m_old);
    const auto text = expectError(ErrorCode::LocalFileSystem, [&] { writeFile(*provider, inside, m_new); });
    EXPECT_NE(text.find(stateFolder().string()), std::string::npos) << text;
    expectError(ErrorCode::LocalFileSystem, [&] {
        provider->moveFile(inside, iri("f").child(u"b"),
                           foundation::storage::provider::MoveOption::FailIfExists);
    });
    EXPECT_EQ(slurp(file("f") / "a"), m_old);
    EXPECT_NO_THROW(writeFile(*provider, iri("f").child(u"new"), m_new));
    EXPECT_EQ(slurp(file("f") / "new"), m_new);
    EXPECT_EQ(::umount2(file("f").c_str(), MNT_DETACH), 0);
}

/// Files beside which no working file can stand, since its name would be too long.
class LongNames : public LocalFilesTest {
protected:
    /// A folder whose path is so long that a file in it has a path, but a working file has none.
    fs::path makeDeepFolder() {
        constexpr std::size_t longestPath = 4095;
        auto deep = folder();
        while (longestPath - deep.native().size() > 250) {
            deep /= std::string(200, 'd');
        }
        deep /= std::string(longestPath - deep.native().size() - 8, 'e');
        fs::create_directories(deep);
        return deep;
    }

    static StorageIRI iriOf(const fs::path& path) {
        const auto text = path.string();
        return StorageIRI::fromLocalPath(std::u16string(text.begin(), text.end()));
    }

    const std::string m_old = randomBytes(9000, 1);
    const std::string m_new = randomBytes(20'000, 2);
};

TEST_F(LongNames, OnAFileSystemOfShortOnesAreReadAndSaved) {
    const std::string name(130, 'n');
    spit(file(name), m_old);
    const auto how = options(std::make_shared<ShortNames>(143));
    const auto provider = LocalFileProvider::create(how);
    EXPECT_EQ(readFile(*provider, iri(name)), m_old);
    EXPECT_EQ(recoverFile(iri(name), how).outcome, RecoveryOutcome::Nothing);
    writeFile(*provider, iri(name), m_new);
    EXPECT_EQ(slurp(file(name)), m_new);
    provider->moveFile(iri(name), iri("b"), foundation::storage::provider::MoveOption::FailIfExists);
    EXPECT_EQ(slurp(file("b")), m_new);
    expectNothingLeft();
}

TEST_F(LongNames, OfTheLongestKindAreReadAndSaved) {
    const std::string name(255, 'n');
    spit(file(name), m_old);
    EXPECT_EQ(read(name), m_old);
    save(name, m_new);
    EXPECT_EQ(read(name), m_new);
    EXPECT_EQ(recover(name), RecoveryOutcome::Nothing);
    expectNothingLeft();
}

TEST_F(LongNames, OfFoldersLeaveTheStateFolderForTheSave) {
    const auto deep = makeDeepFolder();
    const auto path = deep / "a";
    spit(path, m_old);
    EXPECT_EQ(readFile(files(), iriOf(path)), m_old);
    writeFile(files(), iriOf(path), m_new);
    EXPECT_EQ(readFile(files(), iriOf(path)), m_new);
    EXPECT_EQ(namesIn(deep), std::vector<std::string>{"a"});
    EXPECT_EQ(namesIn(stateFolder()), std::vector<std::string>());
}

TEST_F(LongNames, OfFoldersKeepNothingThatADeadProcessLeft) {
    const auto path = makeDeepFolder() / "a";
    spit(path, m_old);
    OtherProcess dead([&]() -> std::string {
        const auto stream = files().openStream(iriOf(path), {});
        writeAll(*stream, "never saved");
        ::_exit(0);
    });
    dead.result();
    ASSERT_EQ(namesIn(stateFolder()).size(), 1U);
    EXPECT_EQ(readFile(files(), iriOf(path)), m_old);
    EXPECT_EQ(namesIn(stateFolder()), std::vector<std::string>());
}

} // namespace kx::test
