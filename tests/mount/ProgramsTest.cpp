#include "Mounted.h"

using namespace kx::test;
namespace fs = std::filesystem;

/// Programs that know nothing of archives, inside one.
class MountProgramsTest : public Mounted {
protected:
    void SetUp() override {
        Mounted::SetUp();
        if (!IsSkipped())
            mountEmpty();
    }

    /// Unmounts, has the independent readers look, mounts again.
    void remount() {
        unmount();
        const auto verdict = verifyArchive(folder.file("plans.zip"));
        ASSERT_EQ(verdict.problems(), "");
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
    remount();
}

TEST_F(MountProgramsTest, TarUnpacksASourceTreeThatComparesEqual) {
    shell("tar -C '" + sources() + "' -cf - src tests docs | tar --no-same-owner -xf -");
    shell("tar -C '" + sources() + "' -cf - src tests docs > '" + folder.file("tree.tar").string() +
          "'\n"
          "diff -r '" +
          sources() + "/src' src && diff -r '" + sources() + "/docs' docs");
    const auto saves = listing()[0]["saves"].get<int>();
    EXPECT_LE(saves, 5) << "changes are gathered";
    remount();
    shell("diff -r '" + sources() + "/src' src && diff -r '" + sources() +
          "/tests' tests && "
          "diff -r '" +
          sources() + "/docs' docs");
    remount();
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
    const auto from = "'" + sources() + "/docs/' copy/";
    shell("mkdir copy && touch copy/superfluous\n"
          "rsync -rlptgoD --delete --no-owner --no-group " +
          from);
    EXPECT_FALSE(fs::exists(in("copy/superfluous")));
    EXPECT_EQ(shell("rsync -a --no-owner --no-group --delete --itemize-changes " + from), "")
        << "times hold while it is mounted";
    remount();
    EXPECT_EQ(shell("rsync -a --no-owner --no-group --no-times --checksum --delete --itemize-changes "
                    "--omit-dir-times "
                    "--no-perms " +
                    from),
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
    unmount();
    EXPECT_EQ(names("plans.zip"), (Names{"notes.md"}));
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
    unmount();
    EXPECT_EQ(names("plans.zip"), (Names{"notes.md", "notes.md~"}));
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
    unmount();
    EXPECT_EQ(verifyArchive(folder.file("plans.zip")).problems(), "");
    EXPECT_EQ(stored("alive"), "yes");
}
