#include <apps/kxvfs/commands/Commands.h>

#include <array>

namespace apps::kxvfs {

std::span<const CommandRow> commandTable() {
    static const std::array rows{lsRow,    treeRow,    findRow,  duRow,     statRow,     catRow,    cpRow,
                                 writeRow, mvRow,      rmRow,    mkdirRow,  touchRow,    createRow, checkRow,
                                 batchRow, recoverRow, mountRow, umountRow, providersRow};
    return rows;
}

} // namespace apps::kxvfs
