#pragma once

#include <fl/filesystem/Export.h>

#include <system_error>

namespace fl::filesystem::detail {

/// An error number of Windows (DWORD) as the errno value with the same meaning; EIO for one without. Windows
/// only.
KXFOUNDATION_FILESYSTEM_API int toErrno(unsigned long windowsError) noexcept;

/// The calling thread's last error, as a code of the generic category. Windows only.
KXFOUNDATION_FILESYSTEM_API std::error_code lastWindowsError() noexcept;

} // namespace fl::filesystem::detail
