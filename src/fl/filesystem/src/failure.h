#pragma once

#include <fl/filesystem/FsysExceptionBase.h>
#include <fl/filesystem/path.h>

#include <foundation/core/except/throwInternal.h>

#include <string_view>
#include <system_error>

namespace fl::filesystem::detail {

/// Throws what every operation of the library throws.
[[noreturn]] inline void
fail(std::string_view operation, const path& item, std::error_code code,
     const foundation::core::SourceLocation& location = foundation::core::SourceLocation::current()) {
    foundation::core::except::throwInternal(FsysExceptionBase(operation, item, code), location);
}

} // namespace fl::filesystem::detail
