#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kx::test {

/// Faults put under everything that the process is made of, by standing in for functions of the C library:
/// for the system's file functions as the components, minizip, Boost and the C++ library call them, and for
/// what allocates memory for C++. What is counted, and fails, are the calls of the thread that started the
/// faults, between start() and stop().
class InjectedFaults {
public:
    enum class Subject {
        /// Everything that is asked of the system for files and folders.
        Files,
        /// Every `operator new`.
        Memory,
    };

    enum class Manner {
        /// The call of the given number fails, all others work.
        Once,
        /// From the given number on every call fails.
        FromThenOn,
        /// The transfer of the given number moves half of the bytes, if there are two.
        ShortOnce,
        /// From the given number on every transfer moves one byte less than half of what it was asked for, if
        /// there are four.
        AlwaysShort,
        /// The interruptible call of the given number is interrupted by a signal before it has done anything.
        Interrupted,
    };

    struct Plan {
        Subject subject = Subject::Files;
        Manner manner = Manner::Once;
        /// From 1; 0 for none, so that the calls are only counted.
        std::uint64_t number = 0;
        /// The `errno` of a call that fails.
        int error = 0;
    };

    /// Null, or why this build cannot inject faults.
    static const char* unavailable() noexcept;

    static void start(const Plan& plan) noexcept;
    /// Ends the faults; the counts stay until the next start.
    static void stop() noexcept;

    /// Calls counted: all, those that transfer bytes, or those that can be interrupted, as the manner counts.
    static std::uint64_t count() noexcept;
    /// Calls that were made to fail, cut short or interrupted.
    static std::uint64_t failures() noexcept;
    /// The function whose call failed first; empty when none did.
    static const char* firstFailure() noexcept;
    /// Whether a file may be left over because the call that was to remove it failed.
    static bool failedToRemove(const std::string& path);

    InjectedFaults() = delete;
};

} // namespace kx::test
