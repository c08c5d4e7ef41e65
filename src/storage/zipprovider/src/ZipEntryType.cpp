#include "ZipEntryType.h"

#include <ostream>

namespace storage::zipprovider {

std::ostream& operator<<(std::ostream& out, ZipEntryType type) {
    return out << (type == ZipEntryType::File ? "ZipEntryType::File" : "ZipEntryType::Folder");
}

} // namespace storage::zipprovider
