#pragma once

#include "ZipEntryInfo.h"

#include <minizip/unzip.h>

#include <optional>
#include <string>

namespace storage::zipprovider {

/// What the central directory says of the entry at which minizip stands.
struct LocatedEntry {
    unz_file_info64 info;
    std::string extraField;
};

/// Makes minizip stand at the entry whose stored name is `name` (UTF-8, compared byte by byte): at `position`
/// when that is given and the entry there has the name, else at the first one found by walking over all.
/// Nothing when there is no such entry. `archive` may be null, where there is none.
std::optional<LocatedEntry> goToEntry(unzFile archive, const std::string& name,
                                      const std::optional<unz64_file_pos>& position);

} // namespace storage::zipprovider
