#pragma once

#include <foundation/core/Export.h>

#ifdef KX_BUILDING_KXFOUNDATION_LOG
#define KXFOUNDATION_LOG_API KX_EXPORT_SYMBOL
#else
#define KXFOUNDATION_LOG_API KX_IMPORT_SYMBOL
#endif
