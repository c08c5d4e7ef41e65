#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace kx::test {

/// One entry as an independent reader sees it, its data read to the end.
struct SeenEntry {
    std::string name; ///< as it is stored, in UTF-8; a folder ends in '/'
    std::uint64_t size = 0;
    std::uint32_t crc32 = 0;          ///< of the bytes that were read
    std::array<int, 6> modified = {}; ///< year, month, day, hour, minute, second
    int method = 0;
    int flags = 0;

    bool folder() const { return name.ends_with('/'); }
};

struct ReaderVerdict {
    bool present = false; ///< the program is installed
    bool accepted = false;
    std::string output; ///< what it printed where it did not accept the archive
    std::vector<std::string> names;
};

/// What `unzip -t`, Python's zipfile and bsdtar say of one archive.
struct ArchiveVerdict {
    ReaderVerdict unzip;
    ReaderVerdict python;
    ReaderVerdict bsdtar;
    /// As Python reads them, in the order of the central directory.
    std::vector<SeenEntry> entries;
    /// What they say of the entries that are archives themselves, by name.
    std::map<std::string, ArchiveVerdict> inside;
    /// One a line, see problems().
    std::vector<std::string> complaints;

    /// Empty when all three are present, read everything without complaint and see the same entries, also in
    /// the archives inside; else what is wrong, for `EXPECT_EQ(verdict.problems(), "")`.
    std::string problems() const;
    /// Null when there is no entry of this name.
    const SeenEntry* find(const std::string& name) const;
    std::vector<std::string> names() const;
};

/// Runs the three readers over each of the files; so many files cost hardly more than one. An archive without
/// entries counts as accepted. Any thread may call it at any time.
std::vector<ArchiveVerdict> verifyArchives(const std::vector<std::filesystem::path>& archives);
ArchiveVerdict verifyArchive(const std::filesystem::path& archive);

} // namespace kx::test
