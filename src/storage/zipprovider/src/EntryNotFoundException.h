#pragma once

#include "ZipEntryPath.h"

#include <stdexcept>

namespace storage::zipprovider {

/// An entry, or the folder that it should stand in, is not in the archive. The path is that of what is
/// missing. Thrown wrapped by foundation::core::except::throwInternal.
class EntryNotFoundException : public std::runtime_error {
public:
    explicit EntryNotFoundException(const ZipEntryPath& path);
};

} // namespace storage::zipprovider
