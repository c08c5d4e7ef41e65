#include <apps/kxvfs/commands/Commands.h>
#include <apps/kxvfs/src/MountCommands.h>

#include <vector>

namespace apps::kxvfs {

std::span<const CommandRow> commandTable() {
    static const auto rows = [] {
        std::vector<CommandRow> all{lsRow,     treeRow,  findRow,  duRow,     statRow,  catRow,
                                    cpRow,     writeRow, mvRow,    rmRow,     mkdirRow, touchRow,
                                    createRow, checkRow, batchRow, recoverRow};
        const auto mounting = mountCommands();
        all.insert(all.end(), mounting.begin(), mounting.end());
        all.push_back(providersRow);
        return all;
    }();
    return rows;
}

} // namespace apps::kxvfs
