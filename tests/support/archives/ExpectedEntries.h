#pragma once

#include <support/archives/IndependentReaders.h>

#include <array>
#include <map>
#include <optional>
#include <string>

namespace kx::test {

struct ExpectedEntry {
    std::string bytes = {};
    /// Year, month, day, hour, minute and second of the stored stamp, where the test knows it.
    std::optional<std::array<int, 6>> modified = {};
};

/// Entries by name; a folder's name ends in '/'.
using ExpectedEntries = std::map<std::string, ExpectedEntry>;

/// In what an archive, as independent readers see it, differs from exactly these entries with their kinds,
/// sizes, bytes and times; one difference a line, together with whatever else the readers complain of. Empty
/// when nothing is wrong.
std::string differences(const ArchiveVerdict& verdict, const ExpectedEntries& expected);

} // namespace kx::test
