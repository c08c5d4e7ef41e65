#pragma once

#include <string>
#include <vector>

namespace kx::test {

/// An archive with exactly one fault.
struct HostileArchive {
    /// What is wrong with it, in a few words.
    std::string fault;
    std::string bytes;
    /// The entry that the fault is about, for reading; as it is typed.
    std::string entry = "docs/a.txt";
    /// Whether everything is listed, else the root alone: of very deep folders, the paths alone would fill a
    /// gigabyte.
    bool listedWhole = true;
    /// What independent readers find wrong also after a change, which keeps all that is in the archive.
    std::string remains = {};
};

/// A group of them, under one heading.
struct HostileGroup {
    std::string heading;
    std::vector<HostileArchive> archives;
};

/// All of them, made in code; the same at each call.
std::vector<HostileGroup> hostileArchives();

/// The valid archive that most of them are made from: `docs/`, `docs/a.txt`, `b`.
std::string plainArchive();

} // namespace kx::test
