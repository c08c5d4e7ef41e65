#pragma once

#include <foundation/core/Export.h>

#ifdef KX_BUILDING_KXFILEPROVIDER
#define KXFILEPROVIDER_API KX_EXPORT_SYMBOL
#else
#define KXFILEPROVIDER_API KX_IMPORT_SYMBOL
#endif
