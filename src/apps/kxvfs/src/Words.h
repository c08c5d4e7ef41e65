#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace apps::kxvfs {

/// The words of a line, as a shell splits them: blanks separate; a backslash takes the next character as it
/// is; single quotes take everything up to the next one as it is; within double quotes a backslash still
/// works. A "#" at the start of a word begins a comment. Errors: std::invalid_argument for an open quote.
std::vector<std::string> splitWords(std::string_view line);

} // namespace apps::kxvfs
