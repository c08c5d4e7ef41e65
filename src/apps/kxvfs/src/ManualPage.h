#pragma once

#include <string>

namespace apps::kxvfs {

/// The manual page in roff, made from the table of commands and what each declares.
std::string manualPage();

} // namespace apps::kxvfs
