#pragma once

#include <apps/kxvfs/src/Command.h>

/// The rows of the command table, one for each file of this folder.
namespace apps::kxvfs {

extern const CommandRow lsRow;
extern const CommandRow treeRow;
extern const CommandRow findRow;
extern const CommandRow duRow;
extern const CommandRow statRow;
extern const CommandRow catRow;
extern const CommandRow cpRow;
extern const CommandRow writeRow;
extern const CommandRow mvRow;
extern const CommandRow rmRow;
extern const CommandRow mkdirRow;
extern const CommandRow touchRow;
extern const CommandRow createRow;
extern const CommandRow checkRow;
extern const CommandRow batchRow;
extern const CommandRow recoverRow;
extern const CommandRow mountRow;
extern const CommandRow umountRow;
extern const CommandRow providersRow;

} // namespace apps::kxvfs
