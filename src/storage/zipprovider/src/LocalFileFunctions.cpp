#include "LocalFileFunctions.h"

#include <fl/filesystem/operations.h>

namespace storage::zipprovider {

zipFile openLocalZipForWriting(const fl::filesystem::path& path) {
    return detail::openForWriting(path, fl::filesystem::exists(path), &detail::tryOpenLocalZip);
}

} // namespace storage::zipprovider
