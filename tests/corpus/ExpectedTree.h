#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "CorpusManifest.h"
#include <support/archives/ArchiveBuilder.h>

namespace kx::test {

/// What the provider must show at one path.
struct ExpectedEntry {
    bool folder = false;
    std::uint64_t size = 0;
    std::uint32_t crc32 = 0;
    std::string modified; ///< ISO 8601; of a folder that no entry names, that of the first entry below it
    bool readable = true; ///< false for a method, an encryption or a name that the system does not open
};

struct ExpectedTree {
    /// Path relative to the root, in UTF-8, to what stands there.
    std::map<std::string, ExpectedEntry> entries;
    /// Some entry is not shown: its path, or the path of a file above it, is another entry's.
    bool hiddenEntries = false;
};

/// Whether the stored name's bytes are what the provider looks it up by.
bool nameIsUtf8(const CorpusEntry& entry);
/// Whether the date is a day of the calendar and the time one of the day.
bool dateExists(const CorpusEntry& entry);

/// The tree of an archive: folders that only paths name are made up, empty path components are dropped, and
/// of two entries of one path the first counts.
ExpectedTree expectedTree(const CorpusArchive& archive);

} // namespace kx::test
