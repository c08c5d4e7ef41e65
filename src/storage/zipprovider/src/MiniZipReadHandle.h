#pragma once

#include "CentralDirectoryReader.h"
#include "HostTypes.h"
#include "MiniZipException.h"
#include "StreamFileFunctions.h"
#include "WatchedByteStream.h"
#include "ZipConstants.h"

#include <foundation/core/except/throwInternal.h>

#include <boost/iostreams/stream.hpp>
#include <minizip/unzip.h>

#include <array>
#include <cstdint>
#include <exception>
#include <limits>
#include <memory>
#include <optional>
#include <utility>

namespace storage::zipprovider {

/// Owns one archive opened for reading through the container's read-only byte stream. Shared by everyone who
/// reads from it; minizip keeps one current entry a handle, so its users take turns.
/// Threads: none at a time but one.
template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
class MiniZipReadHandle {
    struct Stream : boost::iostreams::stream<ByteStreamDevice> {
        /// Set while minizip opens an archive whose directory is known.
        std::optional<DirectoryPlace> directory;
        /// Where minizip went last, and from where on it last wanted more bytes than there are.
        std::uint64_t sought = 0;
        std::optional<std::uint64_t> cutRecord;
    };
    using Functions = StreamFileFunctions<Stream>;

public:
    /// Opens the container's stream and the archive in it. An archive that minizip cannot open leaves the
    /// handle null (see isOpen): the first minizip call on it then fails.
    /// Errors: those of opening the container's stream.
    explicit MiniZipReadHandle(const StorageItem& container)
        : MiniZipReadHandle(container.openReadOnlyStream()) {}

    /// The same for an archive behind any seekable stream. Precondition: `archive` is not null.
    explicit MiniZipReadHandle(std::unique_ptr<foundation::storage::provider::ByteStream> archive)
        : MiniZipReadHandle(std::move(archive), std::nullopt) {
        get();
    }

    /// The same for an archive whose directory is known: minizip, which looks for a Zip64 locator in the last
    /// 64 KB each time, opens it when it is first asked for, and looks no further back than the end record.
    MiniZipReadHandle(std::unique_ptr<foundation::storage::provider::ByteStream> archive,
                      const std::optional<DirectoryPlace>& directory)
        : m_directory(directory),
          m_device(std::make_unique<WatchedByteStream>(std::move(archive), m_failure)) {
        m_stream.open(m_device, -1, -1);
        m_functions = Functions::table();
        m_functions.zseek64_file = &seekWhereSearched;
        m_functions.zread_file = &readNotingTheEnd;
    }

    MiniZipReadHandle(const MiniZipReadHandle&) = delete;
    MiniZipReadHandle& operator=(const MiniZipReadHandle&) = delete;

    ~MiniZipReadHandle() {
        try {
            close();
        } catch (...) {
            // Nothing was written through the handle, so nothing is lost with its failure.
        }
        m_zip = nullptr;
    }

    /// Closes the archive; a null handle is left alone. Errors: MiniZipException; the handle stays as it is.
    void close() {
        if (m_zip == nullptr) {
            return;
        }
        if (unzClose(m_zip) != UNZ_OK) {
            foundation::core::except::throwInternal(
                MiniZipException(u"Error while calling unzClose in MiniZipReadHandle::close"));
        }
        m_zip = nullptr;
    }

    /// Whether minizip found an archive.
    bool isOpen() { return get() != nullptr; }
    /// minizip's handle, null when not open; owned by this object.
    unzFile get() {
        if (!std::exchange(m_asked, true)) {
            m_stream.directory = m_directory;
            m_stream.cutRecord.reset();
            m_zip = unzOpen2_64(&m_stream, &m_functions);
            m_stream.directory.reset();
            m_endRecordCut = m_zip != nullptr && m_stream.cutRecord && isCutEndRecord(*m_stream.cutRecord);
        }
        return m_zip;
    }
    /// Whether the archive ends within the end record, plain or Zip64, by which minizip has opened it:
    /// minizip takes what is missing, the number of entries too, for zeros.
    bool isEndRecordCut() {
        get();
        return m_endRecordCut;
    }
    /// Where the archive's directory is known to stand.
    const std::optional<DirectoryPlace>& directory() const { return m_directory; }

    /// Reads exactly `count` bytes of the archive from `position` on; false when they are not there.
    bool readAt(std::uint64_t position, char* buffer, std::uint32_t count) {
        return Functions::seek(nullptr, &m_stream, position, ZLIB_FILEFUNC_SEEK_SET) == 0 &&
               Functions::read(nullptr, &m_stream, buffer, count) == count;
    }

    /// Reads up to `count` bytes of the archive from `position` on and returns how many were there.
    std::uint32_t readUpTo(std::uint64_t position, char* buffer, std::uint32_t count) {
        std::uint32_t total = 0;
        if (Functions::seek(nullptr, &m_stream, position, ZLIB_FILEFUNC_SEEK_SET) != 0) {
            return 0;
        }
        while (total < count) {
            const auto got = Functions::read(nullptr, &m_stream, buffer + total, count - total);
            if (got > count - total) {
                break;
            }
            total += static_cast<std::uint32_t>(got);
        }
        return total;
    }

    /// Where in the archive's bytes minizip has stopped reading; nothing when the stream has failed.
    std::optional<std::uint64_t> position() {
        const auto place = Functions::tell(nullptr, &m_stream);
        return place == std::numeric_limits<ZPOS64_T>::max() ? std::nullopt
                                                             : std::optional<std::uint64_t>(place);
    }

    /// Throws what the container's stream threw first, if it did: what minizip has told since may be wrong.
    void rethrowFailure() const {
        if (m_failure) {
            std::rethrow_exception(m_failure);
        }
    }

private:
    static long ZCALLBACK seekWhereSearched(voidpf opaque, voidpf stream, ZPOS64_T offset, int origin) {
        const auto& directory = static_cast<Stream*>(stream)->directory;
        const bool refused = directory && origin == ZLIB_FILEFUNC_SEEK_SET && offset != directory->begin &&
                             offset + endSearchStep < directory->end;
        static_cast<Stream*>(stream)->sought = offset;
        return refused ? -1 : Functions::seek(opaque, stream, offset, origin);
    }

    static uLong ZCALLBACK readNotingTheEnd(voidpf opaque, voidpf stream, void* buffer, uLong size) {
        const auto count = Functions::read(opaque, stream, buffer, size);
        if (count != size) {
            auto& self = *static_cast<Stream*>(stream);
            self.cutRecord = self.sought;
        }
        return count;
    }

    bool isCutEndRecord(std::uint64_t position) {
        std::array<char, zip64EndRecordSize> bytes{};
        const auto size = readUpTo(position, bytes.data(), static_cast<std::uint32_t>(bytes.size()));
        const auto signature = littleEndian({bytes.data(), 4});
        return (signature == endRecordSignature && size < endRecordSize) ||
               (signature == zip64EndRecordSignature && size < zip64EndRecordSize);
    }

    const std::optional<DirectoryPlace> m_directory;
    /// Set by the device's stream.
    std::exception_ptr m_failure;
    ByteStreamDevice m_device;
    Stream m_stream;
    zlib_filefunc64_def m_functions{};
    unzFile m_zip = nullptr;
    /// Whether minizip was asked to open the archive.
    bool m_asked = false;
    bool m_endRecordCut = false;
};

} // namespace storage::zipprovider
