#pragma once

#include <storage/vfs/TreeCopier.h>

#include <chrono>
#include <string>
#include <string_view>

namespace apps::kxvfs {

/// The last line of a terminal at standard error, written over and over. Does nothing where standard error is
/// no terminal.
class ProgressLine {
public:
    static void show(std::string_view text);
    /// Takes the line away, before anything else is printed.
    static void clear();
    /// Whether there is a line to take away. Callable from any thread.
    static bool isShown();
    /// Takes away a line that another process has left.
    static void erase();
};

/// Shows how far a copy has come: the file, a bar, the total. Quick copies show nothing.
class CopyProgressBar {
public:
    explicit CopyProgressBar(bool wanted);
    ~CopyProgressBar();

    void update(const storage::vfs::CopyProgress& progress);
    void finish();

private:
    using Clock = std::chrono::steady_clock;

    const bool m_wanted;
    Clock::time_point m_next;
};

} // namespace apps::kxvfs
