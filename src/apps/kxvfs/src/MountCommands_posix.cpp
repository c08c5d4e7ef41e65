#include <apps/kxvfs/commands/Commands.h>
#include <apps/kxvfs/src/MountCommands.h>

namespace apps::kxvfs {

std::vector<CommandRow> mountCommands() {
    return {mountRow, umountRow};
}

} // namespace apps::kxvfs
