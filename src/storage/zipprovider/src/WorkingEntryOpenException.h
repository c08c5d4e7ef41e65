#pragma once

#include <fl/i18n/ustring.h>

#include <stdexcept>

namespace storage::zipprovider {

/// The working file of an entry could not be opened as a device.
/// Thrown wrapped by foundation::core::except::throwInternal.
class WorkingEntryOpenException : public std::runtime_error {
public:
    explicit WorkingEntryOpenException(const fl::i18n::ustring& workingFile);
};

} // namespace storage::zipprovider
