#pragma once

#include <foundation/storage/provider/ByteStream.h>
#include <zipprovider/provider/MountedZip.h>

#include <iosfwd>
#include <memory>
#include <vector>

namespace kx::test {

/// Where the archive of a scenario lives.
enum class Home {
    /// A file that a save replaces by renaming.
    Renamed,
    /// A file with a second hard link, which a save overwrites under a journal.
    Overwritten,
    /// An entry of another archive, which is a local file.
    Nested,
};

using Streams = std::vector<std::unique_ptr<MountedZip::ByteStream>>;

/// What is done to an archive before the faults begin.
struct Beginning {
    /// The streams that it leaves open are closed after the faults. One of them is writable, so nothing is
    /// saved before.
    Streams (*act)(MountedZip& zip) = nullptr;
    /// What the provider then shows.
    Contents shows;
    /// Whether instead it leaves none open, and no new archive can be put in place meanwhile.
    bool saveFails = false;
};

/// One thing that is done to an archive, and what it then holds.
struct Scenario {
    const char* name;
    void (*act)(MountedZip& zip);
    Contents after;
    Home home = Home::Renamed;
    /// Whether the archive was read before the faults begin.
    bool read = true;
    /// The function at whose first call, once its journal stood, a save of `interruptedSave` was interrupted,
    /// so that whoever opens the archive has to undo or finish it; null for none.
    const char* interruptedBy = nullptr;
    Contents interruptedSave = {};
    /// Whether the file system has extended attributes.
    bool attributes = true;
    Beginning beginning = {};
};

/// Opening, reading, every kind of change, and every way in which a save is brought into its container.
std::vector<Scenario> scenarios();

void PrintTo(const Scenario& scenario, std::ostream* out);

/// Whether the environment variable KX_LONG_FAULT_LOOPS asks for files that take several transfers each, and
/// for more than one cause of failure.
bool areLongLoops();

/// The archive that every scenario begins with.
Contents contentsBefore();

} // namespace kx::test
