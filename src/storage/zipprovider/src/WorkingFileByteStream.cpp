#include "WorkingFileByteStream.h"

#include "LocalFileReading.h"

#include <fl/filesystem/FsysExceptionBase.h>
#include <foundation/core/except/throwInternal.h>
#include <foundation/log/log.h>

#include <boost/iostreams/positioning.hpp>

#include <cerrno>
#include <exception>
#include <ios>
#include <system_error>

namespace storage::zipprovider {

using foundation::storage::provider::SeekOrigin;

WorkingFileByteStream::WorkingFileByteStream(std::shared_ptr<WorkingFileEntry> entry, int openMode)
    : m_entry(std::move(entry)), m_device(m_entry->doGetFileDevice(openMode)),
      m_logger("storage::zipprovider::WorkingFileByteStream") {
    KX_LOG_FUNCTION(m_logger);
    if ((openMode & std::ios_base::out) != 0) {
        m_writable = true;
        KX_LOG_DEBUG(m_logger) << "Does byte stream have open mode have append flag? "
                               << ((openMode & std::ios_base::app) != 0);
    }
}

WorkingFileByteStream::~WorkingFileByteStream() {
    if (m_closed.exchange(true)) {
        return;
    }
    try {
        m_device.close();
        if (m_writable && m_abandonListener) {
            m_abandonListener();
        }
    } catch (const std::exception& error) {
        KX_LOG(m_logger) << "Abandoning an unclosed stream failed: " << error.what();
    }
}

std::int64_t WorkingFileByteStream::doRead(char* buffer, std::int64_t count) {
    errno = 0;
    // The device keeps what it has read ahead; going to its own place makes it look at the file again, where
    // another stream may have written.
    const auto here = m_device.seek(0, std::ios_base::cur, std::ios_base::in);
    m_device.seek(boost::iostreams::position_to_offset(here), std::ios_base::beg, std::ios_base::in);
    const auto got = readingLocalFile(m_entry->checkoutPath(), [&] { return m_device.read(buffer, count); });
    if (got < count && readingFailed()) {
        fail("read", errno);
    }
    return got < 0 ? 0 : got;
}

std::int64_t WorkingFileByteStream::doWrite(const char* buffer, std::int64_t count) {
    KX_LOG_FUNCTION_AS(scope, m_logger);
    KX_LOG(m_logger) << " n=" << count;
    if (!m_writable) {
        // The device would take the bytes; nobody would write them into the archive.
        fail("write", EBADF);
    }
    KX_LOG_DEBUG(m_logger) << "Cached file size before write: " << m_entry->getCachedFileSize();
    errno = 0;
    const auto written = m_device.write(buffer, count);
    // Unflushed bytes would be invisible to the other streams, and the device's close forgets a failure.
    if (written != count || !m_device.flush()) {
        m_writeFailure = errno != 0 ? errno : EIO;
        fail("write", m_writeFailure);
    }
    KX_LOG_DEBUG(m_logger) << "Cached file size after write: " << m_entry->getCachedFileSize();
    scope.wrote(written);
    return written;
}

std::int64_t WorkingFileByteStream::doSeek(std::int64_t offset, SeekOrigin direction) {
    KX_LOG_FUNCTION_AS(scope, m_logger);
    KX_LOG(m_logger) << " off=" << offset << " way=" << static_cast<int>(direction);
    const auto way = direction == SeekOrigin::Begin     ? std::ios_base::beg
                     : direction == SeekOrigin::Current ? std::ios_base::cur
                                                        : std::ios_base::end;
    errno = 0;
    const auto position = boost::iostreams::position_to_offset(
        m_device.seek(offset, way, std::ios_base::in | std::ios_base::out));
    if (position < 0) {
        fail("seek in", errno != 0 ? errno : EINVAL);
    }
    scope.to(position);
    return position;
}

void WorkingFileByteStream::doClose() {
    KX_LOG_FUNCTION(m_logger);
    KX_LOG_DEBUG(m_logger) << "Will send closed signal to ZipFS if writable? " << m_writable;
    if (m_closed.exchange(true)) {
        return;
    }
    m_device.close();
    if (m_writeFailure != 0) {
        // The working file lacks bytes or has half of them: nothing to be saved in the entry's place.
        if (m_abandonListener) {
            m_abandonListener();
        }
        fail("write", m_writeFailure);
    }
    if (m_writable) {
        m_closeListener();
    }
}

void WorkingFileByteStream::fail(const char* operation, int cause) {
    foundation::core::except::throwInternal(fl::filesystem::FsysExceptionBase(
        operation, m_entry->checkoutPath(),
        std::error_code(cause != 0 ? cause : EIO, std::generic_category())));
}

} // namespace storage::zipprovider
