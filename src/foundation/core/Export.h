#pragma once

/// What every shared library's own export macro is made of: a library defines <LIBRARY>_API as
/// KX_EXPORT_SYMBOL while it is compiled itself (KX_BUILDING_<TARGET> is defined then) and as
/// KX_IMPORT_SYMBOL for its users.
#ifdef _WIN32
#define KX_EXPORT_SYMBOL __declspec(dllexport)
#define KX_IMPORT_SYMBOL __declspec(dllimport)
#else
#define KX_EXPORT_SYMBOL __attribute__((visibility("default")))
// Users need default visibility too: the type information of an exception must be one across libraries.
#define KX_IMPORT_SYMBOL __attribute__((visibility("default")))
#endif

#ifdef KX_BUILDING_KXFL
#define KXFL_API KX_EXPORT_SYMBOL
#else
#define KXFL_API KX_IMPORT_SYMBOL
#endif
