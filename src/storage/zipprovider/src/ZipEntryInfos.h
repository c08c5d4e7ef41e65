#pragma once

#include "MiniZipEntryEnumerator.h"
#include "ZipConstants.h"

#include <minizip/unzip.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace storage::zipprovider {

/// The entries of an archive in the order of its central directory, read in one walk over it.
template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
class ZipEntryInfos {
public:
    using ReadHandle = MiniZipReadHandle<StorageItem, ByteStreamDevice>;

    explicit ZipEntryInfos(std::vector<ZipEntryInfo> records)
        : m_records(std::move(records)), m_declaredCount(m_records.size()) {}

    /// Walks the central directory of `handle`. An entry without a name cannot be addressed: it is refused,
    /// which leaves the list incomplete. Errors: those of the enumerator.
    explicit ZipEntryInfos(std::shared_ptr<ReadHandle> handle) {
        unz_global_info64 global{};
        if (handle->isOpen() && unzGetGlobalInfo64(handle->get(), &global) == UNZ_OK) {
            m_declaredCount = global.number_entry;
        }
        const auto archive = handle;
        // The count is what the archive claims; room is made for a believable one.
        m_records.reserve(static_cast<std::size_t>(std::min<std::uint64_t>(m_declaredCount, 1'000'000)));
        MiniZipEntryEnumerator<StorageItem, ByteStreamDevice> enumerator(std::move(handle));
        while (auto info = enumerator.next()) {
            if (!info->stored.name.empty()) {
                m_records.push_back(std::move(*info));
            }
        }
        m_goesOn = entryFollows(*archive);
        m_directoryPlace = enumerator.directoryPlace();
    }

    auto begin() const { return m_records.begin(); }
    auto end() const { return m_records.end(); }
    /// The entries to be taken out of the list by moving them.
    std::vector<ZipEntryInfo> release() { return std::move(m_records); }
    std::size_t size() const { return m_records.size(); }

    /// The number of entries that the archive's end record declares.
    std::uint64_t declaredCount() const { return m_declaredCount; }
    /// Whether more entries follow than the end record declares. Its count has 16 bits; some writers let it
    /// wrap around.
    bool hasUndeclaredEntries() const { return m_goesOn; }
    /// Where the directory stands, if the archive has the plain form, or that with Zip64 records; else
    /// nothing.
    std::optional<DirectoryPlace> directoryPlace() const {
        return m_goesOn ? std::nullopt : m_directoryPlace;
    }
    /// Whether every entry of the archive is in the list.
    bool isComplete() const { return m_records.size() >= m_declaredCount && !m_goesOn; }

private:
    /// Whether a central-directory header stands behind the one at which minizip's walk has ended.
    static bool entryFollows(ReadHandle& handle) {
        unz_file_info64 last{};
        unz64_file_pos position{};
        if (unzGetFilePos64(handle.get(), &position) != UNZ_OK ||
            unzGetCurrentFileInfo64(handle.get(), &last, nullptr, 0, nullptr, 0, nullptr, 0) != UNZ_OK) {
            return false;
        }
        position.pos_in_zip_directory +=
            centralHeaderSize + last.size_filename + last.size_file_extra + last.size_file_comment;
        ++position.num_of_file;
        return unzGoToFilePos64(handle.get(), &position) == UNZ_OK;
    }

    std::vector<ZipEntryInfo> m_records;
    std::uint64_t m_declaredCount = 0;
    bool m_goesOn = false;
    std::optional<DirectoryPlace> m_directoryPlace;
};

} // namespace storage::zipprovider
