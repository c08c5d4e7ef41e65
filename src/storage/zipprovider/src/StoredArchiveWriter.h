#pragma once

#include "CentralDirectoryReader.h"
#include "LocalArchiveFile.h"
#include "ZipEntryInfo.h"
#include "ZipEntrySink.h"

#include <fl/filesystem/path.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace storage::zipprovider {

/// Begins a new archive with entries of an old one that this system wrote, taken over as they are stored: the
/// bytes pass from file to file in large pieces, and minizip, which copies them one by one and sums them up
/// twice, is not asked. The result is the archive that minizip would have made of the same entries; it is
/// then opened for adding the others. Threads: one at a time.
class StoredArchiveWriter {
public:
    /// `old` reads the old archive. The file at `path` is made with the first entry.
    StoredArchiveWriter(ReadArchiveUpTo old, fl::filesystem::path path);

    /// Takes the entry stored as `stored` over under the conditions of copyStoredEntry. Returns false when it
    /// does not meet them, cannot be read whole, or would need Zip64 records; it is not in the new archive
    /// then. Errors: MiniZipException when writing fails.
    bool add(const StoredEntryName& stored, const EntryDescription& description);
    /// Completes the archive, if it has entries. Errors: MiniZipException.
    void finish();

private:
    bool copyEntry(const CentralHeader& header, const std::string& localHeader);
    bool localHeaderAgrees(const CentralHeader& header);
    void write(const char* data, std::size_t count);

    ReadArchiveUpTo m_old;
    fl::filesystem::path m_path;
    CentralDirectoryReader m_oldDirectory;
    std::unique_ptr<LocalArchiveFile> m_file;
    std::string m_directory;
    std::uint64_t m_count = 0;
    std::vector<char> m_buffer;
};

} // namespace storage::zipprovider
