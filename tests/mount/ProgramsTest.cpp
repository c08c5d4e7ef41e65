#include "Mounted.h"

using namespace kx::test;
namespace fs = std::filesystem;

/// Programs that know nothing of archives, inside one that another program has made.
class MountProgramsTest : public Mounted {
protected:
    void SetUp() override {
        Mounted::SetUp();
        if (IsSkipped())
            return;
        const auto made = local("cp -r '" + sources() + "/docs' before && zip -qr plans.zip before");
        ASSERT_EQ(made.exitCode, 0) << made.errors;
        mount();
    }

    /// Runs a shell script beside the archive.
    ProcessResult local(const std::string& script) const {
        return runProcess({"bash", "-ec", script}, options());
    }

    /// Unmounts; the archive must be sound, and hold what it held before. Returns the names of the rest.
    Names unmountAndCheck() {
        unmount();
        auto added = names("plans.zip");
        std::erase_if(added, [](const std::string& name) { return name.starts_with("before/"); });
        const auto compared = local("rm -rf kept && unzip -q plans.zip 'before/*' -d kept\n"
                                    "diff -r before kept/before");
        EXPECT_EQ(compared.exitCode, 0) << compared.output << compared.errors;
        return added;
    }

    void remount() {
        unmountAndCheck();
        mount();
    }

    static std::string sources() { return KX_SOURCE_DIR; }
};

TEST_F(MountProgramsTest, GitKeepsARepositoryInIt) {
    shell("git init -q -b main repository && cd repository\n"
          "git config user.name Someone && git config user.email someone@example.org\n"
          "cp -r '" +
          sources() +
          "/docs' . && git add . && git commit -q -m 'Add the documents'\n"
          "echo more >> docs/errors.md && git commit -q -am 'Say more'\n"
          "git gc -q && git fsck --strict");
    remount();
    EXPECT_EQ(shell("cd repository && git fsck --strict && git status --porcelain && git log --format=%s"),
              "Say more\nAdd the documents\n");
    unmountAndCheck();
}

TEST_F(MountProgramsTest, TarUnpacksASourceTreeThatComparesEqual) {
    const auto packed = local("mkdir tree && cp -r '" + sources() + "'/{src,tests,docs} tree\n" +
                              "tar -C tree -cf tree.tar src tests docs");
    ASSERT_EQ(packed.exitCode, 0) << packed.errors;
    const auto compare = "diff -r '" + folder.file("tree").string() + "' . -x before";
    shell("tar -xf ../tree.tar\n" + compare);
    const auto saves = listing()[0]["saves"].get<int>();
    EXPECT_LE(saves, 5) << "changes are gathered";
    remount();
    shell(compare);
    unmountAndCheck();
}

TEST_F(MountProgramsTest, CMakeConfiguresAndBuildsAProject) {
    shell("mkdir project && cd project\n"
          "printf 'cmake_minimum_required(VERSION 3.25)\\nproject(p CXX)\\nadd_library(l STATIC l.cpp)\\n"
          "add_executable(e e.cpp)\\ntarget_link_libraries(e l)\\nenable_testing()\\nadd_test(NAME t COMMAND "
          "e)\\n' "
          "> CMakeLists.txt\n"
          "echo 'int answer() { return 42; }' > l.cpp\n"
          "printf 'int answer();\\nint main() { return answer() == 42 ? 0 : 1; }\\n' > e.cpp\n"
          "cmake -G Ninja -S . -B build > log 2>&1 && cmake --build build >> log 2>&1 && build/e\n"
          "cd build && ctest > log 2>&1\n"
          "touch ../l.cpp && ninja >> log && ninja | grep -q 'no work to do'");
    remount();
    EXPECT_TRUE(fs::exists(in("project/build/libl.a")));
}

TEST_F(MountProgramsTest, SqliteFillsAndChecksADatabase) {
    shell("sqlite3 data.db 'create table t(id integer primary key, text); create index i on t(text);'\n"
          "sqlite3 data.db \"with recursive n(i) as (select 1 union all select i+1 from n where i<20000) "
          "insert into t select i, 'row ' || (i * 7919 % 20011) from n;\"\n"
          "sqlite3 data.db 'begin; delete from t where id % 3 = 0; rollback; update t set text = upper(text) "
          "where id % 5 = 0; vacuum;'\n"
          "sqlite3 data.db 'pragma journal_mode=wal; insert into t values (50000, null); "
          "pragma wal_checkpoint(truncate); pragma journal_mode=delete;' > /dev/null");
    EXPECT_EQ(shell("sqlite3 data.db 'pragma integrity_check; select count(*) from t;'"), "ok\n20001\n");
    remount();
    EXPECT_EQ(shell("sqlite3 data.db 'pragma integrity_check; select count(*) from t;'"), "ok\n20001\n");
    EXPECT_FALSE(fs::exists(in("data.db-journal")));
}

TEST_F(MountProgramsTest, RsyncFindsNothingToDoTheSecondTime) {
    shell("mkdir copy && touch copy/superfluous && rsync -a --delete ../before/ copy/");
    EXPECT_FALSE(fs::exists(in("copy/superfluous")));
    EXPECT_EQ(shell("rsync -a --delete --itemize-changes ../before/ copy/"), "")
        << "times hold while it is mounted";
    remount();
    EXPECT_EQ(shell("diff -r ../before copy\n"
                    "rsync -a --delete --itemize-changes --no-times --no-perms --checksum ../before/ copy/"),
              "")
        << "times are those of the last save";
}

TEST_F(MountProgramsTest, AnEditorSavesByRenamingOver) {
    for (int round = 0; round < 20; ++round) {
        const auto text = "round " + std::to_string(round) + "\n";
        put(in("notes.md"), "before " + text);
        ASSERT_EQ(rename(in("notes.md").c_str(), in("notes.md~").c_str()), 0);
        {
            Descriptor file(in(".notes.md.swp"), O_WRONLY | O_CREAT | O_EXCL);
            ASSERT_TRUE(file.write(text));
            ASSERT_EQ(fsync(file.get()), 0);
            ASSERT_EQ(file.close(), 0);
        }
        ASSERT_EQ(rename(in(".notes.md.swp").c_str(), in("notes.md").c_str()), 0);
        ASSERT_EQ(unlink(in("notes.md~").c_str()), 0);
        ASSERT_EQ(get(in("notes.md")), text);
    }
    EXPECT_EQ(unmountAndCheck(), (Names{"notes.md"}));
    EXPECT_EQ(stored("notes.md"), "round 19\n");
}

TEST_F(MountProgramsTest, VimEditsAFile) {
    const auto vim =
        runProcess({"bash", "-c", "printf %s \"$(command -v vim || command -v vim.tiny)\""}).output;
    if (vim.empty())
        GTEST_SKIP() << "vim is not installed";
    shell(
        "printf 'one\\ntwo\\n' > notes.md\n"
        "for round in 1 2 3; do " +
        vim +
        " -Nu NONE -i NONE -es +'%s/two/two two/' +'set backup backupskip=' +wq notes.md < /dev/null; done");
    EXPECT_EQ(get(in("notes.md")), "one\ntwo two two two\n");
    EXPECT_EQ(unmountAndCheck(), (Names{"notes.md", "notes.md~"}));
    EXPECT_EQ(stored("notes.md"), "one\ntwo two two two\n");
    EXPECT_EQ(stored("notes.md~"), "one\ntwo two two\n");
}

TEST_F(MountProgramsTest, FioVerifiesRandomReadsAndWrites) {
    shell(
        "fio --name=verify --rw=randrw --bs=512-64k --size=16m --nrfiles=4 --verify=crc32c --verify_fatal=1 "
        "--ioengine=psync --fsync=200 --randseed=1 --output='" +
        folder.file("fio").string() +
        "'\n"
        "fio --name=mapped --rw=randwrite --bs=4k --size=8m --verify=md5 --verify_fatal=1 --ioengine=mmap "
        "--randseed=2 --output='" +
        folder.file("fio").string() + "'");
    remount();
    shell("fio --name=mapped --rw=randwrite --bs=4k --size=8m --verify=md5 --verify_fatal=1 --verify_only "
          "--ioengine=mmap --randseed=2 --output='" +
          folder.file("fio").string() + "'");
}

TEST_F(MountProgramsTest, StressedFromManySidesItStaysAliveAndSound) {
    shell("mkdir stress && stress-ng --temp-path stress --timeout 8s --quiet "
          "--hdd 1 --hdd-bytes 4m --dir 1 --dir-dirs 64 --rename 1 --fallocate 1 --fallocate-bytes 1m "
          "--seek 1 --seek-size 1m --dentry 1 --dentries 64 --open 1 --mmap 1 --mmap-bytes 1m --mmap-file "
          "> ../stress.log 2>&1");
    EXPECT_TRUE(isMounted());
    put(in("alive"), "yes");
    EXPECT_EQ(get(in("alive")), "yes");
    unmountAndCheck();
    EXPECT_EQ(stored("alive"), "yes");
}
