#pragma once

#include "HostTypes.h"
#include "MiniZipException.h"
#include "StreamFileFunctions.h"
#include "WatchedByteStream.h"

#include <foundation/core/except/throwInternal.h>

#include <boost/iostreams/stream.hpp>
#include <minizip/unzip.h>

#include <cstdint>
#include <exception>
#include <memory>
#include <utility>

namespace storage::zipprovider {

/// Owns one archive opened for reading through the container's read-only byte stream. Shared by everyone who
/// reads from it; minizip keeps one current entry a handle, so its users take turns.
/// Threads: none at a time but one.
template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
class MiniZipReadHandle {
    using Stream = boost::iostreams::stream<ByteStreamDevice>;

public:
    /// Opens the container's stream and the archive in it. An archive that minizip cannot open leaves the
    /// handle null (see isOpen): the first minizip call on it then fails.
    /// Errors: those of opening the container's stream.
    explicit MiniZipReadHandle(const StorageItem& container)
        : MiniZipReadHandle(container.openReadOnlyStream()) {}

    /// The same for an archive behind any seekable stream. Precondition: `archive` is not null.
    explicit MiniZipReadHandle(std::unique_ptr<foundation::storage::provider::ByteStream> archive)
        : m_device(std::make_unique<WatchedByteStream>(std::move(archive), m_failure)) {
        m_stream.open(m_device, -1, -1);
        m_functions = StreamFileFunctions<Stream>::table();
        m_zip = unzOpen2_64(&m_stream, &m_functions);
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
    bool isOpen() const { return m_zip != nullptr; }
    /// minizip's handle, null when not open; owned by this object.
    unzFile get() const { return m_zip; }

    /// Reads exactly `count` bytes of the archive from `position` on; false when they are not there.
    bool readAt(std::uint64_t position, char* buffer, std::uint32_t count) {
        using Functions = StreamFileFunctions<Stream>;
        return Functions::seek(nullptr, &m_stream, position, ZLIB_FILEFUNC_SEEK_SET) == 0 &&
               Functions::read(nullptr, &m_stream, buffer, count) == count;
    }

    /// Throws what the container's stream threw first, if it did: what minizip has told since may be wrong.
    void rethrowFailure() const {
        if (m_failure) {
            std::rethrow_exception(m_failure);
        }
    }

private:
    /// Set by the device's stream.
    std::exception_ptr m_failure;
    ByteStreamDevice m_device;
    Stream m_stream;
    zlib_filefunc64_def m_functions{};
    unzFile m_zip = nullptr;
};

} // namespace storage::zipprovider
