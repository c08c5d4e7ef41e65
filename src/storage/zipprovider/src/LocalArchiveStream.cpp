#include "LocalArchiveStream.h"

#include "LocalFileReading.h"
#include "ZipConstants.h"

#include <fl/filesystem/FsysExceptionBase.h>
#include <foundation/core/except/throwInternal.h>

#include <cerrno>
#include <ios>
#include <system_error>

namespace storage::zipprovider {

using foundation::storage::provider::SeekOrigin;

LocalArchiveStream::LocalArchiveStream(const fl::filesystem::path& path)
    : m_path(path), m_buffer(localReadBufferSize) {
    m_file.pubsetbuf(m_buffer.data(), static_cast<std::streamsize>(m_buffer.size()));
    errno = 0;
    if (!m_file.open(path, std::ios_base::in | std::ios_base::binary)) {
        fail("open", errno);
    }
}

std::int64_t LocalArchiveStream::doRead(char* buffer, std::int64_t count) {
    errno = 0;
    const auto got = readingLocalFile(m_path, [&] { return m_file.sgetn(buffer, count); });
    if (got < count && readingFailed()) {
        fail("read", errno);
    }
    return got < 0 ? 0 : got;
}

std::int64_t LocalArchiveStream::doWrite(const char*, std::int64_t) {
    fail("write", EBADF);
}

std::int64_t LocalArchiveStream::doSeek(std::int64_t offset, SeekOrigin origin) {
    const auto way = origin == SeekOrigin::Begin     ? std::ios_base::beg
                     : origin == SeekOrigin::Current ? std::ios_base::cur
                                                     : std::ios_base::end;
    errno = 0;
    const std::int64_t position = m_file.pubseekoff(offset, way, std::ios_base::in);
    if (position < 0) {
        fail("seek in", errno != 0 ? errno : EINVAL);
    }
    return position;
}

void LocalArchiveStream::doClose() {
    m_file.close();
}

void LocalArchiveStream::fail(const char* operation, int cause) const {
    foundation::core::except::throwInternal(fl::filesystem::FsysExceptionBase(
        operation, m_path, std::error_code(cause != 0 ? cause : EIO, std::generic_category())));
}

} // namespace storage::zipprovider
