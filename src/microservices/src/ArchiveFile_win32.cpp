#include "ArchiveFile.h"

// clang-format off: minizip's header uses what the one before it declares.
#include <minizip/iowin32.h>
#include <windows.h>
// clang-format on

#include <filesystem>

namespace cppmicroservices {

unzFile openArchiveFile(const std::string& path) {
    const std::filesystem::path wide(std::u8string(path.begin(), path.end()));
    zlib_filefunc64_def functions{};
    fill_win32_filefunc64W(&functions);
    return unzOpen2_64(wide.c_str(), &functions);
}

} // namespace cppmicroservices
