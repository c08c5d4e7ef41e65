#pragma once

#include <cstddef>

namespace apps::kxvfs {

/// Whether standard output (standard error) is a terminal.
bool outputIsTerminal();
bool errorIsTerminal();

/// Columns of the terminal; 80 where unknown.
std::size_t terminalWidth();

/// Whether standard output may be coloured: a terminal that can, and NO_COLOR not set.
bool colourWanted();

} // namespace apps::kxvfs
