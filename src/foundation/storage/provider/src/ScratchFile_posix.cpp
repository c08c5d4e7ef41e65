#include "ScratchFile.h"

#include <fl/filesystem/FsysExceptionBase.h>
#include <fl/i18n/utf8.h>
#include <foundation/storage/provider/Exception.h>

#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

namespace foundation::storage::provider::detail {

namespace {

ErrorCode codeOf(int error) {
    return error == ENOSPC || error == EDQUOT || error == EFBIG ? ErrorCode::NoSpace
                                                                : ErrorCode::LocalFileSystem;
}

fl::filesystem::TemporaryFile makeTemporaryFile(const StorageIRI& location) {
    try {
        return fl::filesystem::tmpfile(fl::filesystem::temp_directory_name(), u"kxstorage-", u".tmp");
    } catch (const fl::filesystem::FsysExceptionBase& failure) {
        throw Exception(codeOf(failure.getErrorCode().value()), location, failure.what());
    }
}

} // namespace

ScratchFile::ScratchFile(StorageIRI location)
    : m_location(std::move(location)), m_file(makeTemporaryFile(m_location)) {}

ScratchFile::~ScratchFile() {
    ::unlink(fl::i18n::toUtf8(m_file.name).c_str());
}

std::int64_t ScratchFile::readAt(std::uint64_t position, char* buffer, std::int64_t count) {
    for (;;) {
        const auto got = ::pread(::fileno(m_file.file.get()), buffer, static_cast<std::size_t>(count),
                                 static_cast<off_t>(position));
        if (got >= 0) {
            return got;
        }
        if (errno != EINTR) {
            fail("read", errno);
        }
    }
}

void ScratchFile::writeAt(std::uint64_t position, const char* buffer, std::int64_t count) {
    while (count > 0) {
        const auto put = ::pwrite(::fileno(m_file.file.get()), buffer, static_cast<std::size_t>(count),
                                  static_cast<off_t>(position));
        if (put >= 0) {
            buffer += put;
            count -= put;
            position += static_cast<std::uint64_t>(put);
        } else if (errno != EINTR) {
            fail("write", errno);
        }
    }
}

std::uint64_t ScratchFile::size() {
    struct stat status {};
    if (::fstat(::fileno(m_file.file.get()), &status) != 0) {
        fail("tell the size of", errno);
    }
    return static_cast<std::uint64_t>(status.st_size);
}

void ScratchFile::fail(const char* verb, int error) const {
    throw Exception(codeOf(error), m_location,
                    std::string("cannot ") + verb + " temporary file \"" + fl::i18n::toUtf8(m_file.name) +
                        "\": " + std::generic_category().message(error));
}

} // namespace foundation::storage::provider::detail
