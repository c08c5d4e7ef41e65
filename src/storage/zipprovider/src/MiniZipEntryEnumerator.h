#pragma once

#include "CentralDirectoryReader.h"
#include "DosTime.h"
#include "EntryName.h"
#include "MiniZipReadHandle.h"
#include "Zip64Extent.h"
#include "ZipConstants.h"
#include "ZipEntryInfo.h"

#include <foundation/core/Mutex.h>
#include <foundation/core/ThreadAnnotations.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
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
            ++m_index;
            m_directory = readerAtCurrentEntry();
            auto first = currentEntry();
            m_offset = m_place.pos_in_zip_directory;
            return first;
        }
        if (auto info = nextOrdinaryEntry()) {
            return info;
        }
        if (!rejoin() || unzGoToNextFile(m_handle->get()) != UNZ_OK) {
            m_directoryPlace = placeOfDirectory();
            m_directory.reset();
            return std::nullopt;
        }
        ++m_index;
        return currentEntry();
    }

    /// Where the directory stands, once the walk has ended: the end record is right behind the last entry and
    /// says of the directory what the walk has shown. Nothing for an archive of another form.
    std::optional<DirectoryPlace> directoryPlace() const { return m_directoryPlace; }

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
        std::string name(info.size_filename, '\0');
        std::string extra(info.size_file_extra, '\0');
        check(unzGetCurrentFileInfo64(m_handle->get(), &info, name.data(), static_cast<uLong>(name.size()),
                                      extra.data(), static_cast<uLong>(extra.size()), nullptr, 0),
              message);
        unz64_file_pos position{};
        check(unzGetFilePos64(m_handle->get(), &position), message);

        Zip64Extent extent{info.uncompressed_size, info.compressed_size, 0};
        resolveSizes(extent, extra);
        return entryInfo(name, toPtime(info.tmu_date), static_cast<std::uint32_t>(info.flag), extent,
                         static_cast<std::uint32_t>(info.crc), position);
    }

private:
    static constexpr std::uint64_t beforeFirst = std::numeric_limits<std::uint64_t>::max();

    ZipEntryInfo entryInfo(std::string_view name, const boost::posix_time::ptime& lastModified,
                           std::uint32_t flags, const Zip64Extent& extent, std::uint32_t crc32,
                           const unz64_file_pos& position) const {
        auto decoded = decodeEntryName(name, (flags & utf8Flag) != 0);
        const bool isFolder = !name.empty() && name.back() == '/';
        return {ZipEntryPath(decoded),
                extent.uncompressedSize,
                lastModified,
                m_index,
                isFolder ? ZipEntryType::Folder : ZipEntryType::File,
                {std::move(decoded), position},
                crc32,
                extent.compressedSize,
                (flags & encryptedFlag) != 0};
    }

    /// The entry at which minizip stands, as the one from which the walk goes on.
    ZipEntryInfo currentEntry() {
        unz_file_info64 info{};
        if (unzGetFilePos64(m_handle->get(), &m_place) != UNZ_OK ||
            unzGetCurrentFileInfo64(m_handle->get(), &info, nullptr, 0, nullptr, 0, nullptr, 0) != UNZ_OK) {
            m_directory.reset();
        }
        m_length = static_cast<std::uint32_t>(centralHeaderSize + info.size_filename + info.size_file_extra +
                                              info.size_file_comment);
        return getCurrentEntryInfo();
    }

    /// A reader at the header of the entry at which minizip stands; nothing where that place cannot be told.
    /// minizip knows it from the end of the directory, in case something stands before the archive, and does
    /// not tell; but it leaves the stream behind what it has read of the header.
    std::optional<CentralDirectoryReader> readerAtCurrentEntry() {
        unz_global_info64 global{};
        unz_file_info64 info{};
        if (unzGetGlobalInfo64(m_handle->get(), &global) != UNZ_OK || global.number_entry == openEntryCount ||
            unzGetCurrentFileInfo64(m_handle->get(), &info, nullptr, 0, nullptr, 0, nullptr, 0) != UNZ_OK) {
            return std::nullopt;
        }
        m_declared = global.number_entry;
        const auto behind = m_handle->position();
        const std::uint64_t read =
            centralHeaderSize +
            (info.size_file_extra == 0 ? 0 : std::uint64_t{info.size_filename} + info.size_file_extra);
        std::string name(info.size_filename, '\0');
        if (!behind || *behind < read ||
            unzGetCurrentFileInfo64(m_handle->get(), &info, name.data(), static_cast<uLong>(name.size()),
                                    nullptr, 0, nullptr, 0) != UNZ_OK) {
            return std::nullopt;
        }
        CentralDirectoryReader reader(
            [handle = m_handle.get()](std::uint64_t place, char* buffer, std::uint32_t count) {
                return handle->readUpTo(place, buffer, count);
            },
            *behind - read);
        const auto header = reader.header();
        const bool same = header && header->name == name && header->crc32 == info.crc &&
                          header->compressedSize == info.compressed_size &&
                          header->uncompressedSize == info.uncompressed_size;
        m_begin = reader.position();
        return same ? std::optional(std::move(reader)) : std::nullopt;
    }

    std::optional<DirectoryPlace> placeOfDirectory() const {
        if (!m_directory || m_index + 1 != m_declared) {
            return std::nullopt;
        }
        const auto end = m_directory->position() + m_length;
        std::array<char, zip64EndRecordSize + zip64LocatorSize + endRecordSize> bytes{};
        const std::string_view records(
            bytes.data(), m_handle->readUpTo(end, bytes.data(), static_cast<std::uint32_t>(bytes.size())));
        const auto offset = statedOffset(records, end);
        // minizip takes the last locator in sight, also one in a comment.
        return offset == m_offset && m_offset <= m_begin
                   ? std::optional(DirectoryPlace{m_begin, end, m_begin - m_offset})
                   : std::nullopt;
    }

    /// Where the records behind the directory, which begin at `end`, say that the directory begins; nothing
    /// unless they are of the plain form, or of the plain Zip64 form, and describe it as it is.
    std::optional<std::uint64_t> statedOffset(std::string_view records, std::uint64_t end) const {
        const auto field = [&](std::size_t place, std::size_t size) {
            return littleEndian(records.substr(place, size));
        };
        if (records.size() >= endRecordSize && field(0, 4) == endRecordSignature) {
            const bool same = field(4, 4) == 0 && field(8, 2) == m_declared && field(10, 2) == m_declared &&
                              field(12, 4) == end - m_begin;
            return same ? std::optional(field(16, 4)) : std::nullopt;
        }
        constexpr auto locator = zip64EndRecordSize;
        constexpr auto last = locator + zip64LocatorSize;
        if (records.size() < last + endRecordSize || field(0, 4) != zip64EndRecordSignature ||
            field(locator, 4) != zip64LocatorSignature || field(last, 4) != endRecordSignature) {
            return std::nullopt;
        }
        const auto offset = field(48, 8);
        const bool same = field(4, 8) == zip64EndRecordSize - 12 && field(16, 8) == 0 &&
                          field(24, 8) == m_declared && field(32, 8) == m_declared &&
                          field(40, 8) == end - m_begin && field(locator + 4, 4) == 0 &&
                          field(locator + 8, 8) == offset + (end - m_begin) && field(locator + 16, 4) == 1;
        return same ? std::optional(offset) : std::nullopt;
    }

    /// Steps to the next entry without minizip; nothing when there is none or minizip has to read it.
    std::optional<ZipEntryInfo> nextOrdinaryEntry() {
        if (!m_directory || m_index + 1 >= m_declared) {
            return std::nullopt;
        }
        m_directory->goTo(m_directory->position() + m_length);
        const auto header = m_directory->header();
        if (!header) {
            return std::nullopt;
        }
        ++m_index;
        m_place.pos_in_zip_directory += m_length;
        m_place.num_of_file = m_index;
        m_length = header->length;
        m_ahead = true;
        return entryInfo(header->name, toPtime(dosTimeFields(header->dosTime)), header->flags,
                         {header->uncompressedSize, header->compressedSize, 0}, header->crc32, m_place);
    }

    /// Has minizip stand at the entry that was reached without it.
    bool rejoin() {
        return !std::exchange(m_ahead, false) || unzGoToFilePos64(m_handle->get(), &m_place) == UNZ_OK;
    }

    static void check(int result, const char16_t* message) {
        if (result != UNZ_OK) {
            foundation::core::except::throwInternal(MiniZipException(message));
        }
    }

    std::shared_ptr<ReadHandle> m_handle;
    std::uint64_t m_index = beforeFirst;
    /// Reads the directory past minizip, where that gives the same.
    std::optional<CentralDirectoryReader> m_directory;
    std::uint64_t m_begin = 0;
    /// The same as minizip counts it.
    std::uint64_t m_offset = 0;
    std::uint64_t m_declared = 0;
    std::optional<DirectoryPlace> m_directoryPlace;
    /// The place of the entry that was reached and the length of its header, and whether minizip stands
    /// before it.
    unz64_file_pos m_place{};
    std::uint32_t m_length = 0;
    bool m_ahead = false;
    foundation::core::Mutex m_mutex;
};

} // namespace storage::zipprovider
