#pragma once

#include <map>
#include <string>
#include <string_view>

namespace kx::test {

/// The entries of a ZIP archive, name to bytes, as libarchive reads them; a folder's name ends in "/".
/// Errors: std::runtime_error for what libarchive complains of, and for two entries of one name.
std::map<std::string, std::string> readIndependently(std::string_view archive);

} // namespace kx::test
