#pragma once

#include "EntryLocator.h"
#include "EntryName.h"
#include "IEntrySource.h"
#include "MiniZipReadHandle.h"
#include "OrdinaryEntry.h"
#include "Zip64EntryReader.h"
#include "ZipConstants.h"
#include "ZipEntryInfo.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace storage::zipprovider {

/// The uncompressed bytes of one entry of an open archive. A handle serves one source at a time.
template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
class ZipEntrySource final : public IEntrySource {
public:
    using ReadHandle = MiniZipReadHandle<StorageItem, ByteStreamDevice>;

    /// Opens the entry stored under the text of `path`, compared case-sensitively with the UTF-8 form.
    /// Errors: MiniZipException when there is none, or when it cannot be opened (encrypted, a compression
    /// method other than stored and deflated, a local header that contradicts the central directory).
    ZipEntrySource(std::shared_ptr<ReadHandle> handle, const ZipEntryPath& path)
        : m_handle(std::move(handle)) {
        doOpen(encodeEntryName(path.toString()), std::nullopt);
    }

    /// The same for a stored name whose place is remembered: the place is taken when the name stored there is
    /// the one looked for, so that opening does not walk over the other entries.
    ZipEntrySource(std::shared_ptr<ReadHandle> handle, const StoredEntryName& stored)
        : m_handle(std::move(handle)) {
        doOpen(encodeEntryName(stored.name), stored.position);
    }

    ~ZipEntrySource() override {
        if (!m_reader) {
            unzCloseCurrentFile(m_handle->get());
        }
    }

    std::int64_t read(char* buffer, std::int64_t count) override { return doRead(buffer, count); }

private:
    void doOpen(const std::string& name, std::optional<unz64_file_pos> position) {
        if (position && openPastMinizip(name, position->pos_in_zip_directory)) {
            return;
        }
        const auto entry = goToEntry(m_handle->get(), name, position);
        if (!entry) {
            foundation::core::except::throwInternal(
                MiniZipException(u"Error while calling unzLocateFile in MiniZipEntrySerializer::doOpen"));
        }
        if (!openData(*entry)) {
            foundation::core::except::throwInternal(MiniZipException(
                u"Error while calling unzOpenCurrentFile in MiniZipEntrySerializer::doOpen"));
        }
    }

    /// Opens an ordinary entry by its headers alone, which saves minizip's opening of the archive.
    bool openPastMinizip(const std::string& name, std::uint64_t position) {
        if (!m_handle->directory()) {
            return false;
        }
        const auto before = m_handle->directory()->before;
        const ReadArchiveUpTo readUpTo = [handle = m_handle.get(), before](std::uint64_t place, char* buffer,
                                                                           std::uint32_t count) {
            return handle->readUpTo(before + place, buffer, count);
        };
        const ReadArchiveAt readAt = [readUpTo](std::uint64_t place, char* buffer, std::uint32_t count) {
            return readUpTo(place, buffer, count) == count;
        };
        if (const auto entry = ordinaryEntryAt(readUpTo, position, name)) {
            m_reader = Zip64EntryReader::open(readAt, entry->extent, entry->method);
        }
        return m_reader != nullptr;
    }

    bool openData(const LocatedEntry& entry) {
        // minizip built without decryption, or without bzip2, would hand out the stored bytes as if they were
        // the contents.
        if ((entry.info.flag & encryptedFlag) != 0 ||
            (entry.info.compression_method != storedMethod && entry.info.compression_method != Z_DEFLATED)) {
            return false;
        }
        unz64_file_pos position{};
        if (unzGetFilePos64(m_handle->get(), &position) != UNZ_OK) {
            return false;
        }
        const ReadArchiveAt readAt = [handle = m_handle.get()](std::uint64_t place, char* buffer,
                                                               std::uint32_t count) {
            return handle->readAt(place, buffer, count);
        };
        if (const auto extent = zip64Extent(readAt, position.pos_in_zip_directory, entry.extraField)) {
            m_reader = Zip64EntryReader::open(readAt, *extent,
                                              static_cast<std::uint32_t>(entry.info.compression_method));
            return m_reader != nullptr;
        }
        return unzOpenCurrentFile(m_handle->get()) == UNZ_OK;
    }

    std::int64_t doRead(char* buffer, std::int64_t count) {
        const auto asked = std::min<std::int64_t>(count, std::numeric_limits<int>::max());
        const int got = m_reader ? m_reader->read(buffer, static_cast<int>(asked))
                                 : unzReadCurrentFile(m_handle->get(), buffer, static_cast<unsigned>(asked));
        if (got < 0) {
            foundation::core::except::throwInternal(
                MiniZipException(u"Error on return of unzReadCurrentFile in MiniZipEntrySerializer::doRead"));
        }
        return got;
    }

    std::shared_ptr<ReadHandle> m_handle;
    /// Reads an entry past minizip: an ordinary one, or one whose 64-bit fields minizip does not know. Null
    /// for all others.
    std::unique_ptr<Zip64EntryReader> m_reader;
};

} // namespace storage::zipprovider
