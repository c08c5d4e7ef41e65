#pragma once

#include <apps/kxvfs/src/Command.h>

#include <vector>

namespace apps::kxvfs {

/// The commands about mounted archives; none on a system where archives cannot be mounted. One file per
/// system implements it.
std::vector<CommandRow> mountCommands();

} // namespace apps::kxvfs
