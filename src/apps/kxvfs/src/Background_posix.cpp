#include <apps/kxvfs/src/Background.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/wait.h>
#include <syslog.h>
#include <system_error>
#include <unistd.h>

namespace apps::kxvfs {

namespace {

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

/// No clean-up: everything that was made so far belongs to the other process.
[[noreturn]] void waitUntilReady(int pipe, pid_t process) {
    char word = 0;
    ssize_t got = 0;
    do
        got = read(pipe, &word, 1);
    while (got < 0 && errno == EINTR);
    if (got == 1)
        _exit(EXIT_SUCCESS);
    int status = 0;
    while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    _exit(WIFEXITED(status) ? WEXITSTATUS(status) : EXIT_FAILURE);
}

} // namespace

Background::Background() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
        fail("cannot make a pipe");
    std::fflush(nullptr);
    const auto process = fork();
    if (process < 0)
        fail("cannot start a process");
    if (process > 0) {
        close(ends[1]);
        waitUntilReady(ends[0], process);
    }
    close(ends[0]);
    m_pipe = ends[1];
    setsid();
}

Background::~Background() {
    if (m_pipe >= 0)
        close(m_pipe);
}

void Background::ready() {
    std::fflush(nullptr);
    const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
    if (nowhere < 0)
        fail("cannot open /dev/null");
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        dup2(nowhere, standard);
    close(nowhere);
    if (chdir("/") != 0 || write(m_pipe, "r", 1) != 1)
        fail("cannot go on in the background");
    close(m_pipe);
    m_pipe = -1;
}

void logToSystem(const char* message) {
    syslog(LOG_DAEMON | LOG_WARNING, "kxvfs: mount: %s", message);
}

} // namespace apps::kxvfs
