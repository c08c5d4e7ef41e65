#include "ArchiveFile.h"

namespace cppmicroservices {

unzFile openArchiveFile(const std::string& path) {
    return unzOpen64(path.c_str());
}

} // namespace cppmicroservices
