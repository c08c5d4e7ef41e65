#pragma once

#include "ZipEntryPath.h"

#include <stdexcept>

namespace storage::zipprovider {

/// What is to be created, or the destination of a move, exists already.
/// Thrown wrapped by foundation::core::except::throwInternal.
class EntryExistsException : public std::runtime_error {
public:
    explicit EntryExistsException(const ZipEntryPath& path);
};

} // namespace storage::zipprovider
