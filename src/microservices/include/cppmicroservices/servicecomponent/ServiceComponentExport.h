#pragma once

#include <cppmicroservices/FrameworkExport.h>

#define US_ServiceComponent_EXPORT US_Framework_EXPORT
