#pragma once

#include "DosTime.h"
#include "EntryName.h"
#include "MiniZipReadHandle.h"
#include "Zip64Extent.h"
#include "ZipConstants.h"
#include "ZipEntryInfo.h"

#include <foundation/core/Mutex.h>
#include <foundation/core/ThreadAnnotations.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace storage::zipprovider {

/// Walks the central directory of one open archive.
/// Threads: steps from several threads are serialised; nobody else may use the handle meanwhile.
template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
class MiniZipEntryEnumerator {
public:
    using ReadHandle = MiniZipReadHandle<StorageItem, ByteStreamDevice>;

    explicit MiniZipEntryEnumerator(std::shared_ptr<ReadHandle> handle) : m_handle(std::move(handle)) {}

    /// Steps to the next entry (the first one at the first call) and describes it; nothing at the end of the
    /// list, also when the list ends in an error or there is no first entry.
    /// Errors: those of getCurrentEntryInfo.
    std::optional<ZipEntryInfo> next() KX_EXCLUDES(m_mutex) {
        const foundation::core::MutexLock lock(m_mutex);
        if (m_index == beforeFirst) {
            try {
                goToFirstFileEntry();
            } catch (const MiniZipException&) {
                return std::nullopt;
            }
        } else if (unzGoToNextFile(m_handle->get()) != UNZ_OK) {
            return std::nullopt;
        }
        ++m_index;
        return getCurrentEntryInfo();
    }

    /// Errors: MiniZipException, for an archive without entries too.
    void goToFirstFileEntry() {
        check(unzGoToFirstFile(m_handle->get()),
              u"Error while calling unzGoToFirstFile in MiniZipEntryEnumerator::goToFirstFileEntry");
    }

    /// Describes the entry at which minizip stands.
    /// Errors: MiniZipException; Boost's calendar errors for a stored date that does not exist.
    ZipEntryInfo getCurrentEntryInfo() {
        constexpr auto message =
            u"Error while calling unzGetCurrentFileInfo64 in MiniZipEntryEnumerator::getCurrentEntryInfo";
        unz_file_info64 info{};
        check(unzGetCurrentFileInfo64(m_handle->get(), &info, nullptr, 0, nullptr, 0, nullptr, 0), message);
        const bool isUtf8 = (info.flag & utf8Flag) != 0;
        std::string name(info.size_filename, '\0');
        std::string extra(info.size_file_extra, '\0');
        check(unzGetCurrentFileInfo64(m_handle->get(), &info, name.data(), static_cast<uLong>(name.size()),
                                      extra.data(), static_cast<uLong>(extra.size()), nullptr, 0),
              message);
        unz64_file_pos position{};
        check(unzGetFilePos64(m_handle->get(), &position), message);

        Zip64Extent extent{info.uncompressed_size, info.compressed_size, 0};
        resolveSizes(extent, extra);
        const auto lastModified = toPtime(info.tmu_date);
        auto decoded = decodeEntryName(name, isUtf8);
        const bool isFolder = !name.empty() && name.back() == '/';
        return {ZipEntryPath(decoded),
                extent.uncompressedSize,
                lastModified,
                m_index,
                isFolder ? ZipEntryType::Folder : ZipEntryType::File,
                {std::move(decoded), position},
                static_cast<std::uint32_t>(info.crc),
                extent.compressedSize,
                (info.flag & encryptedFlag) != 0};
    }

private:
    static constexpr std::uint64_t beforeFirst = std::numeric_limits<std::uint64_t>::max();

    static void check(int result, const char16_t* message) {
        if (result != UNZ_OK) {
            foundation::core::except::throwInternal(MiniZipException(message));
        }
    }

    std::shared_ptr<ReadHandle> m_handle;
    std::uint64_t m_index = beforeFirst;
    foundation::core::Mutex m_mutex;
};

} // namespace storage::zipprovider
