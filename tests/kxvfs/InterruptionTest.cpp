#include "Tool.h"

#include <cstdlib>
#include <sys/mount.h>
#include <thread>

using namespace kx::test;
namespace fs = std::filesystem;

namespace {

constexpr std::size_t entries = 4;

/// A file system of three megabytes while it lives.
class SmallDisk {
public:
    explicit SmallDisk(fs::path folder) : m_folder(std::move(folder)) {
        fs::create_directories(m_folder);
        m_mounted = ::mount("tmpfs", m_folder.c_str(), "tmpfs", 0, "size=3m") == 0;
    }
    ~SmallDisk() {
        if (m_mounted)
            ::umount2(m_folder.c_str(), MNT_DETACH);
    }
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;
    bool isMounted() const { return m_mounted; }

private:
    const fs::path m_folder;
    bool m_mounted = false;
};

/// An archive whose rewriting takes a while.
class InterruptionTest : public Tool {
protected:
    void SetUp() override {
        Tool::SetUp();
        ArchiveBuilder builder;
        for (std::size_t i = 0; i < entries; ++i) {
            std::string content;
            unsigned state = 1U + static_cast<unsigned>(i);
            for (int k = 0; k < 1'000'000; ++k)
                content += static_cast<char>("abcdefgh"[(state = state * 1103515245u + 12345u) >> 29]);
            builder.add("f" + std::to_string(i), content);
        }
        save("big.zip", builder.build());
        save("new.txt", "new");
    }

    /// Signals a change of big.zip after `delay` milliseconds and returns how it ended.
    int signalled(const std::string& signal, int delay) const {
        auto with = options();
        with.environment.emplace_back("KXVFS", binary());
        return runProcess({"bash", "-c",
                           "\"$KXVFS\" cp new.txt big.zip/new.txt & sleep " + std::to_string(delay / 1000.0) +
                               "; kill -" + signal + " $! 2>/dev/null; wait $!"},
                          with)
            .exitCode;
    }

    /// Starts the cleaning up after SIGTERM with the signals pending that `pending`, in Python, sends to its
    /// own process. Prints whether it has ended after a while, then how it ends by SIGINT.
    ProcessResult signalTheCleaningUp(const std::string& pending) const {
        // A terminal whose output is stopped holds up the last step of the cleaning up.
        save("second.py", R"(
import os, pty, signal, subprocess, termios, time
master, slave = pty.openpty()
termios.tcflow(slave, termios.TCOOFF)
def prepare():
    signal.pthread_sigmask(signal.SIG_BLOCK, {signal.SIGINT, signal.SIGTERM})
    )" + pending + R"(
tool = subprocess.Popen([os.environ['KXVFS'], '--finish-interrupted-run', '15', 'line', ''],
                        stderr=slave, preexec_fn=prepare)
time.sleep(0.6)
print(tool.poll())
for attempt in range(40):
    tool.send_signal(signal.SIGINT)
    try:
        print(tool.wait(0.5))
        break
    except subprocess.TimeoutExpired:
        pass
)");
        auto with = options();
        with.environment.emplace_back("KXVFS", binary());
        return runProcess({"python3", "second.py"}, with);
    }

    /// The archive is whole, with or without the new file, and nothing but it and new.txt is in the folder.
    void expectWhole(const std::string& when) const {
        const auto found = names("big.zip");
        EXPECT_GE(found.size(), entries) << when;
        EXPECT_LE(found.size(), entries + 1) << when;
        std::size_t files = 0;
        for (const auto& entry : fs::directory_iterator(folder.path())) {
            ++files;
            EXPECT_TRUE(entry.path().filename() == "big.zip" || entry.path().filename() == "new.txt")
                << when << ": " << entry.path();
        }
        EXPECT_EQ(files, 2U) << when;
    }
};

TEST_F(InterruptionTest, WhatARunLeftThatWasKilledAsItBeganIsRemovedByTheNext) {
    const auto left = temporary.path() / "kxvfs-AbCdEf";
    std::filesystem::create_directory(left);
    std::ofstream(left / ".lock-").close();
    output({"ls", folder.path().string()});
    EXPECT_FALSE(std::filesystem::exists(left));
}

} // namespace

TEST_F(InterruptionTest, ATerminatedChangeLeavesAWholeArchiveAndNothingElse) {
    bool interrupted = false;
    for (const int delay : {5, 20, 60, 120, 250, 500}) {
        const int status = signalled("TERM", delay);
        EXPECT_TRUE(status == 0 || status == 128 + 15) << status;
        interrupted = interrupted || status == 128 + 15;
        const auto when = "after " + std::to_string(delay) + " ms";
        EXPECT_EQ(leftovers(), 0U) << when;
        output({"ls", "big.zip"});
        // Opening the archive for a change takes away what an interrupted save left beside it.
        output({"rm", "-f", "big.zip/new.txt"});
        output({"touch", "big.zip/f0"});
        expectWhole(when);
    }
    EXPECT_TRUE(interrupted);
}

TEST_F(InterruptionTest, WhatAKilledProcessLeftIsRemovedByTheNextRun) {
    for (const int delay : {30, 100, 250}) {
        signalled("KILL", delay);
        output({"touch", "big.zip/f0"});
        EXPECT_EQ(leftovers(), 0U) << "after " << delay << " ms";
        expectWhole("after " + std::to_string(delay) + " ms");
    }
}

TEST_F(InterruptionTest, ASecondSignalDoesNotWaitForTheCleaningUp) {
    if (!programExists("python3"))
        GTEST_SKIP() << "python3 is not installed";
    const auto result = signalTheCleaningUp("");
    EXPECT_EQ(result.output, "None\n-2\n") << result.errors;
}

TEST_F(InterruptionTest, ASignalThatComesTwiceAtOnceIsOneRequest) {
    if (!programExists("python3"))
        GTEST_SKIP() << "python3 is not installed";
    const auto result = signalTheCleaningUp("os.kill(os.getpid(), signal.SIGINT)\n"
                                            "    os.kill(os.getpid(), signal.SIGTERM)");
    EXPECT_EQ(result.output, "None\n-2\n") << result.errors;
}

TEST_F(InterruptionTest, ARunThatIsEndedLeavesTheArchiveThatItCouldNotPutInPlace) {
    if (!programExists("python3"))
        GTEST_SKIP() << "python3 is not installed";
    const SmallDisk disk(folder.file("disk"));
    if (!disk.isMounted())
        GTEST_SKIP() << "cannot mount a small file system here";
    fs::copy_file(folder.file("big.zip"), folder.file("disk/big.zip"));
    const auto before = load("disk/big.zip");
    // A pipe that is full holds the run up where it tells of the failure.
    save("end.py", R"(
import os, pathlib, signal, subprocess, time
unread, pipe = os.pipe()
os.set_blocking(pipe, False)
try:
    while True:
        os.write(pipe, b'x' * 4096)
except BlockingIOError:
    os.set_blocking(pipe, True)
def marked():
    return bool(list(pathlib.Path(os.environ['TMPDIR']).glob('*/kept-*')))
tool = subprocess.Popen([os.environ['KXVFS'], 'cp', 'new.txt', 'disk/big.zip/new.txt'], stderr=pipe)
for attempt in range(400):
    if marked() or tool.poll() is not None:
        break
    time.sleep(0.05)
tool.send_signal(signal.SIGTERM)
print(tool.wait(20), marked())
)");
    auto with = options();
    with.environment.emplace_back("KXVFS", binary());
    const auto result = runProcess({"python3", "end.py"}, with);
    EXPECT_EQ(result.output, "-15 True\n") << result.errors;
    EXPECT_TRUE(load("disk/big.zip") == before);
    output({"ls", "big.zip"});
    std::size_t kept = 0;
    for (const auto& entry : fs::recursive_directory_iterator(temporary.path())) {
        if (entry.path().extension() != ".zip")
            continue;
        ++kept;
        const auto verdict = verifyArchive(entry.path());
        EXPECT_EQ(verdict.problems(), "");
        EXPECT_EQ(verdict.names().size(), entries + 1);
    }
    EXPECT_EQ(kept, 1U);
}

TEST_F(InterruptionTest, FoldersOfRunningProcessesAreLeftAlone) {
    auto with = options();
    with.environment.emplace_back("KXVFS", binary());
    const auto result = runProcess({"bash", "-c",
                                    "(sleep 1; echo text) | \"$KXVFS\" write big.zip/slow & sleep 0.3; "
                                    "\"$KXVFS\" ls big.zip > /dev/null; wait %1"},
                                   with);
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_EQ(output({"cat", "big.zip/slow"}), "text\n");
}

TEST_F(InterruptionTest, ProcessesThatChangeOneArchiveQueue) {
    constexpr int processes = 8;
    std::vector<ProcessResult> results(processes);
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < processes; ++i)
            threads.emplace_back([&, i] {
                results[static_cast<std::size_t>(i)] =
                    run({"cp", "new.txt", "big.zip/n" + std::to_string(i)});
            });
    }
    bool waited = false;
    for (const auto& result : results) {
        EXPECT_EQ(result.exitCode, 0) << result.errors;
        waited =
            waited || result.errors.find("waiting for another program that changes ") != std::string::npos;
    }
    EXPECT_TRUE(waited);
    EXPECT_EQ(names("big.zip").size(), entries + processes);
}
