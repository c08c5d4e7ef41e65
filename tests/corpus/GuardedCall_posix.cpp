#include "GuardedCall.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <system_error>

#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kx::test {

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool sanitized = true;
#elif defined(__has_feature)
constexpr bool sanitized = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
constexpr bool sanitized = false;
#endif

/// Instrumented code is slower by about this factor.
constexpr rlim_t slowness = sanitized ? 10 : 1;

void limit(__rlimit_resource resource, rlim_t value) {
    const rlimit both{value, value};
    setrlimit(resource, &both);
}

[[noreturn]] void runChild(const std::function<std::string()>& call, const Guard& guard, int out) {
    limit(RLIMIT_CPU, static_cast<rlim_t>(guard.processorTime.count()) * slowness);
    limit(RLIMIT_FSIZE, guard.fileSize);
    limit(RLIMIT_CORE, 0);
    if (!sanitized)
        limit(RLIMIT_DATA, guard.memory);
    std::signal(SIGXFSZ, SIG_IGN);
    std::string text;
    int status = 0;
    try {
        text = call();
    } catch (const std::exception& error) {
        text = error.what();
        status = 1;
    }
    for (std::size_t written = 0; written < text.size();) {
        const ssize_t count = write(out, text.data() + written, text.size() - written);
        if (count <= 0)
            _exit(2);
        written += static_cast<std::size_t>(count);
    }
    // The exit functions belong to the process that was copied.
    _exit(status);
}

/// False when the time is over before the other side has closed the pipe.
bool readAll(int in, std::string& text, std::chrono::steady_clock::time_point end) {
    for (;;) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        pollfd wait{in, POLLIN, 0};
        if (left.count() <= 0 || poll(&wait, 1, static_cast<int>(left.count())) == 0)
            return false;
        char buffer[65536];
        const ssize_t count = read(in, buffer, sizeof buffer);
        if (count == 0)
            return true;
        if (count > 0)
            text.append(buffer, static_cast<std::size_t>(count));
        else if (errno != EINTR)
            return false;
    }
}

} // namespace

GuardedResult guardedCall(const std::function<std::string()>& call, const Guard& guard) {
    int ends[2];
    if (pipe(ends) != 0)
        throw std::system_error(errno, std::generic_category(), "cannot make a pipe");
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child < 0)
        throw std::system_error(errno, std::generic_category(), "cannot make a process");
    if (child == 0) {
        close(ends[0]);
        runChild(call, guard, ends[1]);
    }
    close(ends[1]);

    GuardedResult result;
    const bool inTime =
        readAll(ends[0], result.text, std::chrono::steady_clock::now() + guard.wallTime * slowness);
    close(ends[0]);
    if (!inTime)
        kill(child, SIGKILL);
    int status = 0;
    rusage usage{};
    while (wait4(child, &status, 0, &usage) < 0 && errno == EINTR) {
    }
    result.peakMemory = static_cast<std::uint64_t>(usage.ru_maxrss) * 1024;
    if (!inTime || (WIFSIGNALED(status) && WTERMSIG(status) == SIGXCPU))
        result.problem = "took too long";
    else if (WIFSIGNALED(status))
        result.problem = "ended by signal " + std::to_string(WTERMSIG(status));
    else if (WEXITSTATUS(status) != 0)
        result.problem = "ended with status " + std::to_string(WEXITSTATUS(status)) + ": " + result.text;
    return result;
}

} // namespace kx::test
