#pragma once

namespace apps::kxvfs {

/// Going on in the background: the process that was started waits until the one that works is ready, and
/// ends.
class Background {
public:
    /// Splits off a process of its own session in which the call returns. The one that was started waits for
    /// it and ends: with status 0 once it is ready, with its exit status if it ends before. Call it before
    /// any thread is started. Errors: std::system_error.
    Background();
    ~Background();

    Background(const Background&) = delete;
    Background& operator=(const Background&) = delete;

    /// Lets the process that was started end. Standard input, output and error lead nowhere from here on.
    void ready();

private:
    int m_pipe = -1;
};

/// Messages for whoever looks after the system.
void logToSystem(const char* message);

} // namespace apps::kxvfs
