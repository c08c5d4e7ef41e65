#include "StoredEntryCopy.h"

#include "EntryLocator.h"
#include "EntryName.h"
#include "MiniZipException.h"
#include "RebuildMode.h"
#include "ZipConstants.h"

#include <foundation/core/except/throwInternal.h>

#include <minizip/zip.h>

#include <atomic>
#include <vector>

namespace storage::zipprovider {

namespace {

std::atomic<RebuildMode> currentMode = RebuildMode::Fast;

bool carriesTheWritersMarks(const unz_file_info64& info, const EntryDescription& description) {
    return info.compression_method == Z_DEFLATED && info.flag == 0 && info.version == writerMadeBy &&
           info.version_needed == writerNeeded && info.internal_fa <= textAttribute &&
           info.external_fa == 0 && info.size_file_extra == 0 && info.size_file_comment == 0 &&
           info.disk_num_start == 0 && info.compressed_size < zip64Limit &&
           info.uncompressed_size < zip64Limit && info.uncompressed_size == description.size;
}

/// Ends the reading of minizip's current entry.
class OpenStoredEntry {
public:
    explicit OpenStoredEntry(unzFile archive) : m_archive(archive) {
        int method = 0;
        int level = 0;
        constexpr int raw = 1;
        // minizip compares the local header with the central directory's here.
        m_open = unzOpenCurrentFile2(archive, &method, &level, raw) == UNZ_OK &&
                 unzGetLocalExtrafield(archive, nullptr, 0) == 0;
    }
    ~OpenStoredEntry() { unzCloseCurrentFile(m_archive); }

    OpenStoredEntry(const OpenStoredEntry&) = delete;
    OpenStoredEntry& operator=(const OpenStoredEntry&) = delete;

    bool isOpen() const { return m_open; }

private:
    unzFile m_archive;
    bool m_open;
};

[[noreturn]] void fail(const char16_t* message) {
    foundation::core::except::throwInternal(MiniZipException(message));
}

void copyData(unzFile archive, MiniZipWriteHandle& target, const unz_file_info64& info) {
    std::vector<char> buffer(storedCopyBufferSize);
    std::uint64_t copied = 0;
    for (;;) {
        const int got = unzReadCurrentFile(archive, buffer.data(), storedCopyBufferSize);
        if (got < 0) {
            fail(u"Error on return of unzReadCurrentFile in MiniZipEntrySerializer::doRead");
        }
        if (got == 0) {
            break;
        }
        if (zipWriteInFileInZip(target.get(), buffer.data(), static_cast<unsigned>(got)) != ZIP_OK) {
            fail(u"ZipEntrySink: Problem writing entry data");
        }
        copied += static_cast<std::uint64_t>(got);
    }
    if (copied != info.compressed_size) {
        fail(u"Error on return of unzReadCurrentFile in MiniZipEntrySerializer::doRead");
    }
    if (zipCloseFileInZipRaw64(target.get(), info.uncompressed_size, info.crc) != ZIP_OK) {
        fail(u"ZipEntrySink: Problem writing entry data");
    }
}

} // namespace

RebuildMode rebuildMode() noexcept {
    return currentMode.load(std::memory_order_relaxed);
}

void setRebuildMode(RebuildMode mode) noexcept {
    currentMode.store(mode, std::memory_order_relaxed);
}

bool copyStoredEntry(unzFile archive, const StoredEntryName& stored, MiniZipWriteHandle& target,
                     const EntryDescription& description) {
    if (rebuildMode() == RebuildMode::Plain) {
        return false;
    }
    const auto located = goToEntry(archive, encodeEntryName(stored.name), stored.position);
    if (!located || !carriesTheWritersMarks(located->info, description)) {
        return false;
    }
    const auto& info = located->info;
    const OpenStoredEntry entry(archive);
    if (!entry.isOpen()) {
        return false;
    }
    openZipEntry(target, description, EntryData::AlreadyDeflated,
                 static_cast<std::uint32_t>(info.internal_fa));
    copyData(archive, target, info);
    return true;
}

} // namespace storage::zipprovider
