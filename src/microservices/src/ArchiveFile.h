#pragma once

#include <minizip/unzip.h>

#include <string>

namespace cppmicroservices {

/// minizip's handle on the ZIP archive at the end of the file at `path` (UTF-8), null if there is none. The
/// caller closes it. One file per system implements it.
unzFile openArchiveFile(const std::string& path);

} // namespace cppmicroservices
