#pragma once

#include <foundation/core/Export.h>

#ifdef KX_BUILDING_KXI18N
#define KXI18N_API KX_EXPORT_SYMBOL
#else
#define KXI18N_API KX_IMPORT_SYMBOL
#endif
