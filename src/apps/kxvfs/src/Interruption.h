#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace apps::kxvfs {

/// What a run leaves behind that is ended in its middle.
struct Remains {
    /// TemporarySpace::folder.
    std::filesystem::path temporaryFolder;
    /// The locations of the files whose saves had begun.
    std::vector<std::string> unfinishedSaves;
    /// A progress line stands on the terminal.
    bool progressLine = false;
};

/// First of all in main: in what endOnSignals has started, removes the remains, ends the process and does not
/// return. Otherwise does nothing.
void finishInterruptedRun(int count, char** arguments);

/// Lets the signals that ask for the end (Ctrl-C, hang-up, termination) wait for endOnSignals. Call it once,
/// before any thread is started and before there is anything to remove.
void holdSignals();

/// Ends the process when one of these signals asks for it. Nothing of the work under way is waited for, and
/// nothing can be made any more once its threads have ended: on POSIX the process replaces its image by a
/// fresh one, on Windows it starts another process and ends at once, and that one removes `remains()`. What
/// was not saved by then is dropped and the old archive stands. The process ends by the signal, on Windows
/// with the status of Ctrl-C. A second signal ends it at once, and the next run removes what is left then;
/// one within a quarter of a second counts as the same request on POSIX, as some senders signal a process and
/// its group. `remains` runs on a thread of its own, while all others go on; whatever they make must be known
/// to it before it is made. Call it once.
void endOnSignals(std::function<Remains()> remains);

/// For a command that ends in its own way: waits for one of these signals, which no endOnSignals may be there
/// to receive.
void waitForSignal();

/// Writing to a pipe that nobody reads gives an error instead of ending the process.
void ignoreBrokenPipes();

/// Ends the process as the system does for a pipe that nobody reads.
[[noreturn]] void endByBrokenPipe();

} // namespace apps::kxvfs
