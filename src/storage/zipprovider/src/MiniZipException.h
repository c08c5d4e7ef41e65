#pragma once

#include <fl/i18n/ustring.h>

#include <stdexcept>

namespace storage::zipprovider {

/// The ZIP library refused an operation, or what it delivered cannot be trusted. The message is passed on as
/// it stands. Thrown wrapped by foundation::core::except::throwInternal.
class MiniZipException : public std::runtime_error {
public:
    explicit MiniZipException(const fl::i18n::ustring& message);
};

} // namespace storage::zipprovider
