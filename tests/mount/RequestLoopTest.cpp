#include <storage/mount/src/FuseOperations.h>
#include <storage/mount/src/RequestLoop.h>
#include <support/TemporaryFolder.h>
#include <support/archives/Process.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <sstream>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

using kx::test::ProcessOptions;
using kx::test::programExists;
using kx::test::runProcess;
using kx::test::TemporaryFolder;
using storage::mount::RequestLoop;

namespace {

/// Where requests wait until it is opened, for good.
class Gate {
public:
    void pass() {
        std::unique_lock lock(m_mutex);
        ++m_arrived;
        m_changed.notify_all();
        m_changed.wait(lock, [this] { return m_open; });
    }
    void open() {
        const std::lock_guard lock(m_mutex);
        m_open = true;
        m_changed.notify_all();
    }
    /// How many have come once there are `count`, or after a minute.
    int arrived(int count) {
        std::unique_lock lock(m_mutex);
        m_changed.wait_for(lock, std::chrono::minutes(1), [&] { return m_arrived >= count; });
        return m_arrived;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_open = false;
    int m_arrived = 0;
};

/// An empty folder whose file system tells of itself once the gate is opened.
class RequestLoopTest : public testing::Test {
protected:
    void SetUp() override {
        if (access("/dev/fuse", R_OK | W_OK) != 0)
            GTEST_SKIP() << "/dev/fuse cannot be used here: " << std::strerror(errno);
        std::vector<std::string> words{"test", "-ofsname=nothing"};
        std::vector<char*> pointers;
        for (auto& word : words)
            pointers.push_back(word.data());
        fuse_args arguments FUSE_ARGS_INIT(static_cast<int>(pointers.size()), pointers.data());
        fuse_lowlevel_ops operations{};
        operations.getattr = [](fuse_req_t request, fuse_ino_t, fuse_file_info*) {
            struct stat attributes {};
            attributes.st_ino = FUSE_ROOT_ID;
            attributes.st_mode = S_IFDIR | 0755;
            attributes.st_nlink = 1;
            fuse_reply_attr(request, &attributes, 3600);
        };
        operations.lookup = [](fuse_req_t request, fuse_ino_t, const char*) {
            fuse_reply_err(request, EREMOTEIO);
        };
        operations.statfs = [](fuse_req_t request, fuse_ino_t) {
            static_cast<RequestLoopTest*>(fuse_req_userdata(request))->m_gate.pass();
            struct statvfs nothing {};
            fuse_reply_statfs(request, &nothing);
        };
        m_session = fuse_session_new(&arguments, &operations, sizeof operations, this);
        fuse_opt_free_args(&arguments);
        ASSERT_NE(m_session, nullptr);
        m_mounted = fuse_session_mount(m_session, m_folder.path().c_str()) == 0;
        if (!m_mounted && geteuid() != 0 && !programExists("fusermount3"))
            GTEST_SKIP() << "only root can mount here";
        ASSERT_TRUE(m_mounted) << "see standard error";
    }

    void TearDown() override {
        m_gate.open();
        unmount();
        if (m_session)
            fuse_session_destroy(m_session);
    }

    void unmount() {
        if (std::exchange(m_mounted, false))
            fuse_session_unmount(m_session);
    }

    // Other processes ask: one that waits for itself could not be ended.

    static ProcessOptions inEnglish() {
        ProcessOptions options;
        options.environment = {{"LC_ALL", "C"}};
        options.timeout = std::chrono::seconds(110);
        return options;
    }

    bool isAnswered(const std::string& name) const {
        const auto asked = runProcess({"stat", m_folder.file(name).string()}, inEnglish());
        return asked.errors.find("Remote I/O error") != std::string::npos;
    }

    TemporaryFolder m_folder;
    Gate m_gate;
    fuse_session* m_session = nullptr;
    bool m_mounted = false;
};

/// Programs that ask for what takes until the gate is opened; opens it at the end and waits for them.
class Waiting {
public:
    Waiting(Gate& gate, const std::string& folder, const ProcessOptions& options, int count) : m_gate(gate) {
        for (int i = 0; i < count; ++i)
            m_threads.emplace_back([this, folder, options] {
                m_answered += runProcess({"stat", "-f", folder}, options).ok() ? 1 : 0;
            });
    }
    ~Waiting() {
        m_gate.open();
        join();
    }
    Waiting(const Waiting&) = delete;
    Waiting& operator=(const Waiting&) = delete;

    void join() {
        for (auto& thread : m_threads)
            if (thread.joinable())
                thread.join();
    }
    int answered() const { return m_answered; }

private:
    Gate& m_gate;
    std::vector<std::thread> m_threads;
    std::atomic<int> m_answered = 0;
};

} // namespace

TEST_F(RequestLoopTest, AnswersUntilItIsEnded) {
    RequestLoop loop(m_session);
    loop.start();
    const auto asked =
        runProcess({"bash", "-c", "cd \"$0\" && stat {1..1000}", m_folder.path().string()}, inEnglish());
    std::istringstream lines(asked.errors);
    int answers = 0;
    for (std::string line; std::getline(lines, line);)
        answers += line.ends_with(": Remote I/O error") ? 1 : 0;
    EXPECT_EQ(answers, 1000);
    loop.end();
    EXPECT_NO_THROW(loop.run());
}

TEST_F(RequestLoopTest, CanBeEndedBeforeItStarts) {
    RequestLoop loop(m_session);
    loop.end();
    loop.start();
    EXPECT_NO_THROW(loop.run());
}

TEST_F(RequestLoopTest, CanBeDestroyedWithoutHavingBeenStartedOrRun) {
    { const RequestLoop loop(m_session); }
    RequestLoop loop(m_session);
    loop.start();
    EXPECT_TRUE(isAnswered("quick"));
}

TEST_F(RequestLoopTest, AnswersOthersWhileManyWait) {
    // Two of its threads do not wait for the gate: who receives, and who watches that one.
    constexpr int many = 62;
    RequestLoop loop(m_session);
    loop.start();
    Waiting waiting(m_gate, m_folder.path().string(), inEnglish(), many);
    ASSERT_GE(m_gate.arrived(many), many);
    for (int i = 0; i < 10; ++i)
        ASSERT_TRUE(isAnswered("quick-" + std::to_string(i)));
    m_gate.open();
    waiting.join();
    EXPECT_EQ(waiting.answered(), many);
    loop.end();
    EXPECT_NO_THROW(loop.run());
}

TEST_F(RequestLoopTest, AnswersAllOnceMoreThanItHasThreadsHaveWaited) {
    constexpr int all = 64;
    RequestLoop loop(m_session);
    loop.start();
    Waiting waiting(m_gate, m_folder.path().string(), inEnglish(), all + 40);
    ASSERT_GE(m_gate.arrived(all - 1), all - 1);
    m_gate.open();
    waiting.join();
    EXPECT_EQ(waiting.answered(), all + 40);
    EXPECT_TRUE(isAnswered("quick"));
    loop.end();
    EXPECT_NO_THROW(loop.run());
}

TEST_F(RequestLoopTest, RequestsInHandAreAnsweredBeforeItReturns) {
    RequestLoop loop(m_session);
    loop.start();
    Waiting waiting(m_gate, m_folder.path().string(), inEnglish(), 5);
    ASSERT_GE(m_gate.arrived(5), 5);
    loop.end();
    std::atomic<bool> returned = false;
    std::thread runs([&] {
        loop.run();
        returned = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(returned);
    m_gate.open();
    runs.join();
    waiting.join();
    EXPECT_EQ(waiting.answered(), 5);
}

TEST_F(RequestLoopTest, ReturnsWhenTheFolderIsUnmounted) {
    RequestLoop loop(m_session);
    loop.start();
    EXPECT_TRUE(isAnswered("quick"));
    ASSERT_TRUE(runProcess({"fusermount3", "-u", m_folder.path().string()}).ok());
    EXPECT_NO_THROW(loop.run());
}

TEST_F(RequestLoopTest, ReturnsWhenTheSystemGivesTheConnectionUp) {
    RequestLoop loop(m_session);
    loop.start();
    EXPECT_TRUE(isAnswered("quick"));
    if (umount2(m_folder.path().c_str(), MNT_FORCE | MNT_DETACH) != 0)
        GTEST_SKIP() << "the connection cannot be given up here: " << std::strerror(errno);
    EXPECT_NO_THROW(loop.run());
}

TEST_F(RequestLoopTest, TellsThatTheConnectionBroke) {
    RequestLoop loop(m_session);
    loop.start();
    EXPECT_TRUE(isAnswered("quick"));
    // Nothing can be read from what stands in its place.
    const int unreadable = open("/dev/null", O_WRONLY | O_CLOEXEC);
    ASSERT_GE(dup2(unreadable, fuse_session_fd(m_session)), 0) << std::strerror(errno);
    close(unreadable);
    // Whoever waits for a request of the old connection is woken.
    EXPECT_FALSE(isAnswered("another"));
    try {
        loop.run();
        ADD_FAILURE() << "it returned";
    } catch (const std::system_error& failure) {
        EXPECT_EQ(failure.code().value(), EBADF);
        EXPECT_NE(std::string(failure.what()).find("the connection to the system broke"), std::string::npos)
            << failure.what();
    }
}
