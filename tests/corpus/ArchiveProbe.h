#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <foundation/storage/provider/IProvider.h>

namespace kx::test {

/// One entry as a provider shows it.
struct ProbedEntry {
    std::string path; ///< relative to the root, in UTF-8
    bool folder = false;
    std::uint64_t size = 0;
    std::string modified;    ///< ISO 8601, to the second
    std::uint32_t crc32 = 0; ///< of the bytes read, files only
    std::string error;       ///< why it could not be read to its end; empty when it could
};

/// Everything that a provider shows of one container.
struct ProbedArchive {
    std::string error; ///< why the listing failed; empty when it did not
    std::vector<ProbedEntry> entries;

    const ProbedEntry* find(const std::string& path) const;
};

/// Lists everything below `root`, asks for the attributes and reads each file of up to `readLimit` bytes;
/// larger ones get an error that says so. Never throws what the provider throws.
ProbedArchive probeArchive(foundation::storage::provider::IProvider& provider,
                           const foundation::storage::provider::StorageIRI& root, std::uint64_t readLimit);

/// A text form for a pipe; `fromText(toText(x))` equals x.
std::string toText(const ProbedArchive& archive);
ProbedArchive fromText(const std::string& text);

} // namespace kx::test
