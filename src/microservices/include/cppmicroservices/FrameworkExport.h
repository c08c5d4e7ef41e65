#pragma once

#include <cppmicroservices/GlobalConfig.h>

#ifdef KX_BUILDING_KXMICROSERVICES
#define US_Framework_EXPORT US_ABI_EXPORT
#else
#define US_Framework_EXPORT US_ABI_IMPORT
#endif
