#pragma once

#include <storage/vfs/TreeCopier.h>

#include <chrono>
#include <string>
#include <string_view>

namespace apps::kxvfs {

/// The last line of a terminal at standard error, written over and over. Does nothing where standard error is
/// no terminal. Threads: one at a time but where said.
class ProgressLine {
public:
    /// How long something takes before it is shown, and then between two showings.
    static constexpr std::chrono::milliseconds patience{500};
    static constexpr std::chrono::milliseconds interval{100};

    /// `name`, escaped and cut at its begin, with `rest` behind it in one line of the terminal.
    static std::string fitted(std::string_view name, const std::string& rest);

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
