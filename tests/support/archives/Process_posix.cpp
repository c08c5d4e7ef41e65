#include "Process.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <system_error>

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace kx::test {

namespace {

class Pipe {
public:
    Pipe() {
        if (pipe2(m_ends, O_CLOEXEC) != 0)
            throw std::system_error(errno, std::generic_category(), "cannot make a pipe");
    }
    ~Pipe() {
        closeRead();
        closeWrite();
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    int readEnd() const { return m_ends[0]; }
    int writeEnd() const { return m_ends[1]; }
    void closeRead() { closeEnd(0); }
    void closeWrite() { closeEnd(1); }

private:
    void closeEnd(int which) {
        if (m_ends[which] >= 0)
            close(m_ends[which]);
        m_ends[which] = -1;
    }

    int m_ends[2] = {-1, -1};
};

std::vector<std::string> environmentWith(const std::vector<std::pair<std::string, std::string>>& added) {
    std::vector<std::string> result;
    for (char** variable = environ; *variable; ++variable) {
        const std::string text = *variable;
        const std::string name = text.substr(0, text.find('='));
        bool replaced = false;
        for (const auto& pair : added)
            replaced = replaced || pair.first == name;
        if (!replaced)
            result.push_back(text);
    }
    for (const auto& pair : added)
        result.push_back(pair.first + "=" + pair.second);
    return result;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> result;
    for (std::string& text : texts)
        result.push_back(text.data());
    result.push_back(nullptr);
    return result;
}

/// Moves input and output until the process closes both of its outputs or the time is over.
bool exchange(const std::string& input, Pipe& in, Pipe& out, Pipe& err, ProcessResult& result,
              std::chrono::steady_clock::time_point end) {
    std::size_t written = 0;
    if (input.empty())
        in.closeWrite();
    fcntl(in.writeEnd(), F_SETFL, O_NONBLOCK);
    while (out.readEnd() >= 0 || err.readEnd() >= 0) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        if (left.count() <= 0)
            return false;
        pollfd waits[3] = {
            {out.readEnd(), POLLIN, 0}, {err.readEnd(), POLLIN, 0}, {in.writeEnd(), POLLOUT, 0}};
        if (poll(waits, 3, static_cast<int>(left.count())) < 0 && errno != EINTR)
            return false;
        char buffer[65536];
        if (waits[0].revents != 0) {
            const ssize_t count = read(out.readEnd(), buffer, sizeof buffer);
            if (count > 0)
                result.output.append(buffer, static_cast<std::size_t>(count));
            else
                out.closeRead();
        }
        if (waits[1].revents != 0) {
            const ssize_t count = read(err.readEnd(), buffer, sizeof buffer);
            if (count > 0)
                result.errors.append(buffer, static_cast<std::size_t>(count));
            else
                err.closeRead();
        }
        if (waits[2].revents != 0) {
            const ssize_t count = write(in.writeEnd(), input.data() + written, input.size() - written);
            if (count > 0)
                written += static_cast<std::size_t>(count);
            if (written == input.size() || (count < 0 && errno != EAGAIN))
                in.closeWrite();
        }
    }
    return true;
}

int waitFor(pid_t child) {
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR)
            return -1;
    }
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

} // namespace

ProcessResult runProcess(const std::vector<std::string>& command, const ProcessOptions& options) {
    // A child that ends before it has read its input must not end this process.
    static const bool ignored = (std::signal(SIGPIPE, SIG_IGN), true);
    static_cast<void>(ignored);

    std::vector<std::string> arguments = command;
    std::vector<std::string> variables = environmentWith(options.environment);
    const std::vector<char*> argv = pointersTo(arguments);
    const std::vector<char*> envp = pointersTo(variables);
    Pipe in, out, err;
    const auto end = std::chrono::steady_clock::now() + options.timeout;

    const pid_t child = fork();
    if (child < 0)
        throw std::system_error(errno, std::generic_category(), "cannot start " + command.front());
    if (child == 0) {
        dup2(in.readEnd(), STDIN_FILENO);
        dup2(out.writeEnd(), STDOUT_FILENO);
        dup2(err.writeEnd(), STDERR_FILENO);
        signal(SIGPIPE, SIG_DFL);
        if (!options.directory.empty() && chdir(options.directory.c_str()) != 0)
            _exit(126);
        if (options.addressSpace) {
            const rlimit limit{*options.addressSpace, *options.addressSpace};
            setrlimit(RLIMIT_AS, &limit);
        }
        execvpe(argv.front(), argv.data(), envp.data());
        _exit(127);
    }
    in.closeRead();
    out.closeWrite();
    err.closeWrite();

    ProcessResult result;
    result.timedOut = !exchange(options.input, in, out, err, result, end);
    if (result.timedOut)
        kill(child, SIGKILL);
    result.exitCode = waitFor(child);
    return result;
}

bool programExists(const std::string& name) {
    const char* path = std::getenv("PATH");
    std::istringstream folders(path ? path : "/usr/local/bin:/usr/bin:/bin");
    for (std::string folder; std::getline(folders, folder, ':');) {
        if (access((folder + "/" + name).c_str(), X_OK) == 0)
            return true;
    }
    return false;
}

} // namespace kx::test
