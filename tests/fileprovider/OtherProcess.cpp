#include "OtherProcess.h"

#include <cerrno>
#include <csignal>
#include <exception>
#include <grp.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace kx::test {

namespace {

std::string runAs(const OtherProcess::Work& work, uid_t user) {
    try {
        if (user != static_cast<uid_t>(-1) &&
            (::setgroups(0, nullptr) != 0 || ::setresgid(user, user, user) != 0 ||
             ::setresuid(user, user, user) != 0)) {
            throw std::runtime_error("cannot become another user");
        }
        return work();
    } catch (const std::exception& error) {
        return std::string("thrown: ") + error.what();
    }
}

} // namespace

OtherProcess::OtherProcess(const Work& work, uid_t user) {
    int ends[2] = {-1, -1};
    if (::pipe(ends) != 0 || (m_process = ::fork()) < 0) {
        throw std::runtime_error("cannot start a process");
    }
    if (m_process == 0) {
        ::close(ends[0]);
        const auto result = runAs(work, user);
        const auto written = ::write(ends[1], result.data(), result.size());
        // Nothing that belongs to the parent's process may be tidied up here.
        ::_exit(written == static_cast<ssize_t>(result.size()) ? 0 : 1);
    }
    ::close(ends[1]);
    m_output = ends[0];
}

OtherProcess::~OtherProcess() {
    kill();
    ::close(m_output);
}

void OtherProcess::kill() {
    if (m_process > 0) {
        ::kill(m_process, SIGKILL);
        wait();
    }
}

std::string OtherProcess::result() {
    std::string text;
    char buffer[4096];
    for (;;) {
        const auto got = ::read(m_output, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            break;
        }
        text.append(buffer, static_cast<std::size_t>(got));
    }
    wait();
    return text;
}

void OtherProcess::wait() {
    int status = 0;
    while (m_process > 0 && ::waitpid(m_process, &status, 0) < 0 && errno == EINTR) {
    }
    m_process = -1;
}

} // namespace kx::test
