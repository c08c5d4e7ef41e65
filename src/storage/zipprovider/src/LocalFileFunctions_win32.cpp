#include "LocalFileFunctions.h"

#include <fl/filesystem/detail/path_forms.h>

// clang-format off: minizip's header uses what the one before it declares.
#include <minizip/iowin32.h>
#include <windows.h>
// clang-format on

namespace storage::zipprovider::detail {

zipFile tryOpenLocalZip(const fl::filesystem::path& path, int mode) {
    zlib_filefunc64_def functions{};
    fill_win32_filefunc64W(&functions);
    const auto accessForm =
        fl::filesystem::detail::make_access_form(fl::filesystem::detail::to_filesystem(path));
    return zipOpen2_64(accessForm.c_str(), mode, nullptr, &functions);
}

} // namespace storage::zipprovider::detail
