#pragma once

#include <functional>
#include <string>

#include <sys/types.h>

namespace kx::test {

/// A copy of this process, made by fork, that runs one function and ends. The function must not use the test
/// framework; what it throws, or returns, is its result. The constructor returns when the process runs.
class OtherProcess {
public:
    using Work = std::function<std::string()>;

    /// As this user, or, with a number, as that one.
    explicit OtherProcess(const Work& work, uid_t user = static_cast<uid_t>(-1));
    /// Kills it when it still runs.
    ~OtherProcess();

    OtherProcess(const OtherProcess&) = delete;
    OtherProcess& operator=(const OtherProcess&) = delete;

    /// SIGKILL, and waits for the end.
    void kill();
    /// Waits for the end and returns what the function returned, or "thrown: " and the text of its exception.
    std::string result();

private:
    void wait();

    pid_t m_process = -1;
    int m_output = -1;
};

} // namespace kx::test
