#pragma once

#include "ZipEntryInfo.h"

#include <minizip/unzip.h>

#include <optional>
#include <string>

namespace storage::zipprovider {

/// Makes minizip stand at the entry whose stored name is `name` (UTF-8, compared byte by byte): at `position`
/// when that is given and the entry there has the name, else at the first one found by walking over all.
/// Returns whether there is such an entry. `archive` may be null, where there is none.
bool goToEntry(unzFile archive, const std::string& name, const std::optional<unz64_file_pos>& position);

} // namespace storage::zipprovider
