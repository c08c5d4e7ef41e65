#include "WorkingFileDevice.h"

namespace storage::zipprovider {

WorkingFileDevice openWorkingFile(const fl::filesystem::path& path, std::ios_base::openmode mode) {
    return WorkingFileDevice(path.string(), mode, std::ios_base::in | std::ios_base::out);
}

} // namespace storage::zipprovider
