#pragma once

#include <fl/filesystem/Export.h>
#include <fl/filesystem/path.h>
#include <fl/i18n/ustring.h>

#include <filesystem>

namespace fl::filesystem::detail {

/// The native form of a name: UTF-8 bytes on POSIX systems, where an unpaired surrogate becomes U+FFFD.
/// With `preferredSeparators` the separators become the platform's own ('\' on Windows; '/' is that of POSIX
/// already); without it they stay as they are.
KXFOUNDATION_FILESYSTEM_API path make_native_form(i18n::ustring_view name, bool preferredSeparators);

/// A local path as the standard library takes it.
KXFOUNDATION_FILESYSTEM_API std::filesystem::path to_filesystem(const path& item);

/// The path in the form that opens it whatever its length: prefixed with "\\?\" on Windows once it is
/// absolute and normal, the path itself on POSIX systems. Hand its c_str() to the system or to a C library.
KXFOUNDATION_FILESYSTEM_API std::filesystem::path make_access_form(const std::filesystem::path& item);

} // namespace fl::filesystem::detail
