#pragma once

#include <cppmicroservices/FrameworkExport.h>
#include <cppmicroservices/GlobalConfig.h>
