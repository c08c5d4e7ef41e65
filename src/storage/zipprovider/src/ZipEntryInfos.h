#pragma once

#include "MiniZipEntryEnumerator.h"

#include <minizip/unzip.h>

#include <cstddef>
#include <memory>
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
        MiniZipEntryEnumerator<StorageItem, ByteStreamDevice> enumerator(std::move(handle));
        while (auto info = enumerator.next()) {
            if (!info->stored.name.empty()) {
                m_records.push_back(std::move(*info));
            }
        }
    }

    auto begin() const { return m_records.begin(); }
    auto end() const { return m_records.end(); }
    std::size_t size() const { return m_records.size(); }

    /// The number of entries that the archive's end record declares.
    std::uint64_t declaredCount() const { return m_declaredCount; }
    /// Whether every declared entry is in the list.
    bool isComplete() const { return m_records.size() >= m_declaredCount; }

private:
    std::vector<ZipEntryInfo> m_records;
    std::uint64_t m_declaredCount = 0;
};

} // namespace storage::zipprovider
