#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace kx::test {

/// One entry of an archive as the manifest's author's readers saw it.
struct CorpusEntry {
    std::string storedName; ///< the bytes in the archive
    bool utf8Flag = false;
    std::uint64_t size = 0;
    std::uint32_t crc32 = 0;
    std::array<int, 6> modified = {}; ///< year, month, day, hour, minute, second
    int method = 0;
    bool encrypted = false;
};

enum class Consensus {
    Clean,      ///< every reader accepts it
    Unreadable, ///< none does
    Mixed,
};

struct CorpusArchive {
    std::string file;
    Consensus consensus = Consensus::Mixed;
    std::vector<CorpusEntry> entries; ///< of clean ones
};

/// The collection of archives made by other programs, in the folder that KX_SHARED_CORPUS names.
struct Corpus {
    std::filesystem::path folder;
    std::vector<CorpusArchive> archives;

    /// Nothing when the collection is not there. Throws std::runtime_error for a manifest that cannot be
    /// read.
    static std::optional<Corpus> find();
};

} // namespace kx::test
