#pragma once

#include <filesystem>

namespace fl::filesystem {

/// A local path in the platform's native form.
using path = std::filesystem::path;

} // namespace fl::filesystem
