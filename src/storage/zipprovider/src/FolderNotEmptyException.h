#pragma once

#include "ZipEntryPath.h"

#include <stdexcept>

namespace storage::zipprovider {

/// A folder to be removed still holds entries.
/// Thrown wrapped by foundation::core::except::throwInternal.
class FolderNotEmptyException : public std::runtime_error {
public:
    explicit FolderNotEmptyException(const ZipEntryPath& path);
};

} // namespace storage::zipprovider
