#pragma once

#include <functional>

namespace apps::kxvfs {

/// Ends the process when a signal asks for it (Ctrl-C, hang-up, termination), after `cleanUp` ran. Storage is
/// safe at any instant, so nothing is waited for: what was not saved by then is dropped and the old archive
/// stands. Call it once, before any thread is started; the signals are handled on a thread of their own.
void endOnSignals(std::function<void()> cleanUp);

/// Writing to a pipe that nobody reads gives an error instead of ending the process.
void ignoreBrokenPipes();

/// Ends the process as the system does for a pipe that nobody reads.
[[noreturn]] void endByBrokenPipe();

} // namespace apps::kxvfs
