#include <storage/fileprovider/FileNumber.h>

#include <foundation/storage/provider/Exception.h>
#include <storage/fileprovider/src/LocalPath.h>

#include <sys/stat.h>

namespace storage::fileprovider {

using foundation::storage::provider::Exception;
using foundation::storage::provider::StorageIRI;

std::optional<FileNumber> numberOfLinkedFile(const StorageIRI& location) {
    struct stat status {};
    try {
        if (::stat(toLocalPath(location).c_str(), &status) != 0 || !S_ISREG(status.st_mode) ||
            status.st_nlink < 2) {
            return std::nullopt;
        }
    } catch (const Exception&) {
        return std::nullopt;
    }
    return FileNumber{status.st_dev, status.st_ino};
}

} // namespace storage::fileprovider
