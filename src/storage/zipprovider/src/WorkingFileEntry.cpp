#include "WorkingFileEntry.h"

#include "LocalArchiveStream.h"
#include "TimeSource.h"
#include "WorkingEntryOpenException.h"
#include "WorkingFileTime.h"

#include <fl/filesystem/FsysExceptionBase.h>
#include <fl/filesystem/detail/path_forms.h>
#include <fl/filesystem/operations.h>
#include <fl/filesystem/temporary.h>
#include <foundation/core/except/throwInternal.h>
#include <foundation/log/log.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <ios>
#include <ostream>
#include <streambuf>
#include <system_error>
#include <utility>
#include <vector>

namespace storage::zipprovider {

using foundation::core::MutexLock;

namespace {

constexpr auto loggerChannel = "storage::zipprovider::WorkingFileEntry";

/// The bytes of a local file.
class FileSource final : public IEntrySource {
public:
    explicit FileSource(const fl::filesystem::path& path) : m_file(path) {}

    std::int64_t read(char* buffer, std::int64_t count) override { return m_file.read(buffer, count); }

private:
    LocalArchiveStream m_file;
};

/// Writes to a file that is open already, whose buffer is enough.
class OpenFileBuffer final : public std::streambuf {
public:
    explicit OpenFileBuffer(std::FILE* file) : m_file(file) {}

protected:
    std::streamsize xsputn(const char* data, std::streamsize count) override {
        return static_cast<std::streamsize>(std::fwrite(data, 1, static_cast<std::size_t>(count), m_file));
    }
    int_type overflow(int_type c) override {
        return traits_type::eq_int_type(c, traits_type::eof()) ? traits_type::not_eof(c)
                                                               : std::fputc(c, m_file);
    }
    int sync() override { return std::fflush(m_file); }

private:
    std::FILE* m_file;
};

// Most entries are brought to their working file by one system call.
constexpr std::size_t fillBufferSize = std::size_t{64} * 1024;

} // namespace

WorkingFileEntry::WorkingFileEntry(ZipEntryPath path) : m_path(std::move(path)), m_logger(loggerChannel) {}

WorkingFileEntry::WorkingFileEntry(ZipEntryPath path, IEntrySource& source)
    : m_path(std::move(path)), m_logger(loggerChannel) {
    KX_LOG_FUNCTION(m_logger);
    try {
        fill(source);
    } catch (...) {
        // What kept the entry from being filled matters more than a failure of this.
        removeQuietly();
        throw;
    }
}

WorkingFileEntry::~WorkingFileEntry() {
    removeQuietly();
}

/// A file left in the temporary directory harms nobody, but want of memory is no reason to leave one.
void WorkingFileEntry::removeQuietly() noexcept {
    try {
        doRemove();
    } catch (...) {
        const MutexLock lock(m_mutex);
        std::error_code failure;
        std::filesystem::remove(m_checkoutPath, failure);
    }
}

WorkingFileDevice WorkingFileEntry::doGetFileDevice(int mode) {
    KX_LOG_FUNCTION(m_logger);
    const MutexLock lock(m_mutex);
    ensureWorkingFile();
    KX_LOG_DEBUG(m_logger) << " m_checkoutPath.string()=" << m_checkoutPath.string();
    auto openMode = static_cast<std::ios_base::openmode>(mode);
    if (m_untouched && (openMode & std::ios_base::app) == 0) {
        // Some file systems write a file that was truncated to the medium when it is closed, in case it
        // replaces another. This one has nothing to truncate and will not be kept.
        openMode &= ~std::ios_base::trunc;
    }
    m_untouched = m_untouched && (openMode & std::ios_base::out) == 0;
    WorkingFileDevice device = openWorkingFile(m_checkoutPath, openMode);
    if (!device.is_open()) {
        foundation::core::except::throwInternal(WorkingEntryOpenException(m_path.toString()));
    }
    return device;
}

std::uint64_t WorkingFileEntry::getCachedFileSize() {
    const MutexLock lock(m_mutex);
    ensureWorkingFile();
    return fl::filesystem::status(m_checkoutPath).size;
}

boost::posix_time::ptime WorkingFileEntry::getCachedFileLastModified() {
    const MutexLock lock(m_mutex);
    ensureWorkingFile();
    return TimeSource::current()->lastModified(m_checkoutPath);
}

std::shared_ptr<WorkingFileEntry> WorkingFileEntry::copy() {
    KX_LOG_FUNCTION(m_logger);
    const auto path = checkoutPath();
    FileSource source(path);
    auto copy = std::make_shared<WorkingFileEntry>(m_path, source);
    // A copy that does not take the time is one that was made just now.
    copyLastModified(path, copy->checkoutPath());
    return copy;
}

void WorkingFileEntry::doRemove() {
    KX_LOG_FUNCTION(m_logger);
    KX_LOG_DEBUG(m_logger) << "Removing " << [this] {
        const MutexLock lock(m_mutex);
        return m_checkoutPath.string();
    }();
    KX_LOG_DEBUG(m_logger) << "Size before removal: " << getCachedFileSize();
    const MutexLock lock(m_mutex);
    if (!m_checkoutPath.empty()) {
        fl::filesystem::remove(m_checkoutPath);
        m_checkoutPath.clear();
    }
}

fl::filesystem::path WorkingFileEntry::checkoutPath() {
    const MutexLock lock(m_mutex);
    ensureWorkingFile();
    return m_checkoutPath;
}

void WorkingFileEntry::ensureWorkingFile() {
    if (m_checkoutPath.empty()) {
        makeWorkingFile();
        m_untouched = true;
    }
}

fl::filesystem::FileOwner WorkingFileEntry::makeWorkingFile() {
    auto created = fl::filesystem::tmpfile(fl::filesystem::temp_directory_name(), u"zipProvider-", u".cache");
    m_checkoutPath = std::move(created.item);
    return std::move(created.file);
}

void WorkingFileEntry::fill(IEntrySource& source) {
    // Outlives the file, which writes out what is in it when it is closed.
    std::vector<char> buffer(fillBufferSize);
    fl::filesystem::FileOwner file;
    {
        const MutexLock lock(m_mutex);
        file = makeWorkingFile();
    }
    std::setvbuf(file.get(), buffer.data(), _IOFBF, buffer.size());
    OpenFileBuffer opened(file.get());
    std::ostream out(&opened);
    errno = 0;
    source.doWrite(out);
    int cause = errno;
    if (std::fclose(file.release()) != 0 && out) {
        cause = errno;
        out.setstate(std::ios_base::failbit);
    }
    // The stream tells of a full disk by its state alone, which nobody looks at after the last write: a
    // working file that lacks bytes would be taken for the entry's contents and be written back as such.
    if (!out) {
        foundation::core::except::throwInternal(fl::filesystem::FsysExceptionBase(
            "write", checkoutPath(), std::error_code(cause != 0 ? cause : EIO, std::generic_category())));
    }
}

} // namespace storage::zipprovider
