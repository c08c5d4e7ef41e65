#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kx::test {

struct ProcessOptions {
    std::string input;                                            ///< given on standard input
    std::vector<std::pair<std::string, std::string>> environment; ///< added to the caller's
    std::string directory;                                        ///< working directory; empty: the caller's
    std::chrono::seconds timeout{60};                             ///< then the process is killed
    std::optional<std::uint64_t> addressSpace;                    ///< limit in bytes
};

struct ProcessResult {
    int exitCode =
        -1; ///< 128 + signal number for a process that a signal ended; 127 when there is no such program
    bool timedOut = false;
    std::string output;
    std::string errors;

    bool ok() const { return exitCode == 0 && !timedOut; }
};

/// Runs a program found through PATH and waits for its end.
/// Throws std::system_error when no process can be made. Any thread may call it at any time.
ProcessResult runProcess(const std::vector<std::string>& command, const ProcessOptions& options = {});

/// Whether PATH leads to an executable of this name.
bool programExists(const std::string& name);

} // namespace kx::test
