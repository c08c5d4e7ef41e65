#pragma once

#include <fl/i18n/ustring.h>

#include <string>

namespace fl::filesystem::detail {

/// The next unique part from the source that is set.
std::string nextUniquePart();

/// How many names are tried before a folder counts as unusable; the default source never comes near.
inline constexpr int uniqueNameAttempts = 10'000;

} // namespace fl::filesystem::detail
