#include "ZipEntryAppender.h"

#include "LocalFileReading.h"
#include "MiniZipException.h"
#include "ZipConstants.h"
#include "ZipEntrySink.h"

#include <fl/filesystem/FsysExceptionBase.h>
#include <fl/filesystem/operations.h>
#include <foundation/core/except/throwInternal.h>

#include <boost/iostreams/copy.hpp>

#include <ios>
#include <utility>

namespace storage::zipprovider {

ZipEntryAppender::ZipEntryAppender(MiniZipWriteHandle& target, fl::filesystem::path archive,
                                   std::uint64_t entries)
    : m_target(target), m_archive(std::move(archive)), m_entries(entries) {}

void ZipEntryAppender::appendFile(const ZipEntryPath& path, WorkingFileEntry& contents) {
    append(path, ZipEntryType::File, contents, contents.getCachedFileLastModified());
}

void ZipEntryAppender::appendFolder(const ZipEntryPath& path, const boost::posix_time::ptime& lastModified) {
    WorkingFileEntry empty(path);
    append(path, ZipEntryType::Folder, empty, lastModified);
}

void ZipEntryAppender::append(const ZipEntryPath& path, ZipEntryType type, WorkingFileEntry& contents,
                              const boost::posix_time::ptime& lastModified) {
    requireArchive();
    const auto size = contents.getCachedFileSize();
    const auto device = contents.doGetFileDevice(std::ios_base::in | std::ios_base::binary);
    const ZipEntrySink sink(m_target,
                            {type, ZipEntryPath(path.toString(false)), size, lastModified, m_entries++});
    const auto copied = readingLocalFile(
        contents.checkoutPath(), [&] { return boost::iostreams::copy(device, sink, fileCopyBufferSize); });
    // The device reports a read error as the end of the file. More bytes are no error: a stream that is open
    // while its provider goes may be writing.
    if (static_cast<std::uint64_t>(copied) < size) {
        foundation::core::except::throwInternal(
            MiniZipException(u"its working file could not be read to the end"));
    }
}

void ZipEntryAppender::requireArchive() const {
    try {
        if (!fl::filesystem::status(m_archive).lastModified.is_special()) {
            return;
        }
    } catch (const fl::filesystem::FsysExceptionBase&) {
        // What kept the time from being read makes no difference.
    }
    foundation::core::except::throwInternal(
        MiniZipException(u"ZipEntryAppender: Problem getting last write time of zip file"));
}

} // namespace storage::zipprovider
