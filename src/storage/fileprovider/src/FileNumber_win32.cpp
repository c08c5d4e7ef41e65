#include <storage/fileprovider/FileNumber.h>

#include <foundation/storage/provider/Exception.h>
#include <storage/fileprovider/src/WindowsFile.h>
#include <storage/fileprovider/src/WindowsPath.h>

namespace storage::fileprovider {

using foundation::storage::provider::Exception;
using foundation::storage::provider::StorageIRI;

std::optional<FileNumber> numberOfLinkedFile(const StorageIRI& location) {
    try {
        const auto path = findWindowsPath(location);
        const auto status = path ? statusOf(*path) : std::nullopt;
        if (!status || status->isFolder || status->links < 2) {
            return std::nullopt;
        }
        return FileNumber{status->volume, status->index};
    } catch (const Exception&) {
        return std::nullopt;
    }
}

} // namespace storage::fileprovider
