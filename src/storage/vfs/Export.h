#pragma once

#include <foundation/core/Export.h>

#ifdef KX_BUILDING_KXVFS_FRONT
#define KXVFS_API KX_EXPORT_SYMBOL
#else
#define KXVFS_API KX_IMPORT_SYMBOL
#endif
