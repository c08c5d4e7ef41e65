#include <apps/kxvfs/src/MountCommands.h>

namespace apps::kxvfs {

std::vector<CommandRow> mountCommands() {
    return {};
}

} // namespace apps::kxvfs
