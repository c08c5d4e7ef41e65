#include "WorkingFileDevice.h"

#include <fl/filesystem/detail/path_forms.h>

namespace storage::zipprovider {

WorkingFileDevice openWorkingFile(const fl::filesystem::path& path, std::ios_base::openmode mode) {
    return WorkingFileDevice(fl::filesystem::detail::make_access_form(path),
                             mode | std::ios_base::in | std::ios_base::out);
}

} // namespace storage::zipprovider
