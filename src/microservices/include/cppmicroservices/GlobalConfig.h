#pragma once

#ifdef _WIN32
#define US_ABI_EXPORT __declspec(dllexport)
#define US_ABI_IMPORT __declspec(dllimport)
#else
#define US_ABI_EXPORT __attribute__((visibility("default")))
#define US_ABI_IMPORT __attribute__((visibility("default")))
#endif

#define US_STR_(x) #x
#define US_STR(x) US_STR_(x)
#define US_CONCAT_(x, y) x##y
#define US_CONCAT(x, y) US_CONCAT_(x, y)

#define US_GET_CTX_PREFIX _us_get_bundle_context_instance_
#define US_SET_CTX_PREFIX _us_set_bundle_context_instance_
#define US_CTX_INS_PREFIX _us_bundle_context_instance_

/// Name of the function that hands out the context of the bundle with symbolic name `bsn`, of the exported
/// function that stores it, and of the variable that holds it.
#define US_GET_CTX_FUNC(bsn) US_CONCAT(US_GET_CTX_PREFIX, bsn)
#define US_SET_CTX_FUNC(bsn) US_CONCAT(US_SET_CTX_PREFIX, bsn)
#define US_CTX_INS(bsn) US_CONCAT(US_CTX_INS_PREFIX, bsn)
