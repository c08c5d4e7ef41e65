#pragma once

#include <foundation/core/Export.h>

#ifdef KX_BUILDING_KXMOUNT
#define KXMOUNT_API KX_EXPORT_SYMBOL
#else
#define KXMOUNT_API KX_IMPORT_SYMBOL
#endif
