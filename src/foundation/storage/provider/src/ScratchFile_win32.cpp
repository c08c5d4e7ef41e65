#include "ScratchFile.h"

#include <fl/filesystem/FsysExceptionBase.h>
#include <fl/filesystem/detail/path_forms.h>
#include <fl/filesystem/detail/windows_error.h>
#include <fl/i18n/utf8.h>
#include <foundation/storage/provider/Exception.h>

#include <windows.h>

#include <io.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

namespace foundation::storage::provider::detail {

namespace {

// What one call of the system takes.
constexpr std::int64_t largestPiece = 1 << 30;

ErrorCode codeOf(int error) {
    return error == ENOSPC || error == EFBIG ? ErrorCode::NoSpace : ErrorCode::LocalFileSystem;
}

fl::filesystem::TemporaryFile makeTemporaryFile(const StorageIRI& location) {
    try {
        return fl::filesystem::tmpfile(fl::filesystem::temp_directory_name(), u"kxstorage-", u".tmp");
    } catch (const fl::filesystem::FsysExceptionBase& failure) {
        throw Exception(codeOf(failure.getErrorCode().value()), location, failure.what());
    }
}

HANDLE handleOf(const fl::filesystem::TemporaryFile& file) {
    return reinterpret_cast<HANDLE>(::_get_osfhandle(::_fileno(file.file.get())));
}

OVERLAPPED at(std::uint64_t position) {
    OVERLAPPED place{};
    place.Offset = static_cast<DWORD>(position);
    place.OffsetHigh = static_cast<DWORD>(position >> 32U);
    return place;
}

int lastError() {
    return fl::filesystem::detail::lastWindowsError().value();
}

} // namespace

ScratchFile::ScratchFile(StorageIRI location)
    : m_location(std::move(location)), m_file(makeTemporaryFile(m_location)) {}

ScratchFile::~ScratchFile() {
    // Shared for deletion, the file goes when it is closed.
    using namespace fl::filesystem::detail;
    ::DeleteFileW(make_access_form(make_native_form(m_file.name, true)).c_str());
}

std::int64_t ScratchFile::readAt(std::uint64_t position, char* buffer, std::int64_t count) {
    OVERLAPPED place = at(position);
    DWORD got = 0;
    if (::ReadFile(handleOf(m_file), buffer, static_cast<DWORD>(std::min(count, largestPiece)), &got,
                   &place) == 0 &&
        ::GetLastError() != ERROR_HANDLE_EOF) {
        fail("read", lastError());
    }
    return got;
}

void ScratchFile::writeAt(std::uint64_t position, const char* buffer, std::int64_t count) {
    while (count > 0) {
        OVERLAPPED place = at(position);
        DWORD put = 0;
        if (::WriteFile(handleOf(m_file), buffer, static_cast<DWORD>(std::min(count, largestPiece)), &put,
                        &place) == 0) {
            fail("write", lastError());
        }
        buffer += put;
        count -= put;
        position += put;
    }
}

std::uint64_t ScratchFile::size() {
    LARGE_INTEGER size{};
    if (::GetFileSizeEx(handleOf(m_file), &size) == 0) {
        fail("tell the size of", lastError());
    }
    return static_cast<std::uint64_t>(size.QuadPart);
}

void ScratchFile::fail(const char* verb, int error) const {
    throw Exception(codeOf(error), m_location,
                    std::string("cannot ") + verb + " temporary file \"" + fl::i18n::toUtf8(m_file.name) +
                        "\": " + std::generic_category().message(error));
}

} // namespace foundation::storage::provider::detail
