#pragma once

#include <cstdint>
#include <filesystem>

/// Sets the time at which a file was last modified, in seconds since 1970 and nanoseconds after them.
/// Throws std::system_error.
void setLastModified(const std::filesystem::path& file, std::int64_t seconds, std::int64_t nanoseconds);
