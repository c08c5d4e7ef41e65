#pragma once

#ifndef US_BUNDLE_NAME
#error "define US_BUNDLE_NAME as the bundle's symbolic name"
#endif

#include <cppmicroservices/GlobalConfig.h>

#include <atomic>

namespace cppmicroservices {
class BundleContextPrivate;
}

/// Stands once in a bundle, outside of any namespace: the place for the bundle's context, with the exported
/// function through which the runtime stores it there when the bundle starts (and null when it stops).
#define CPPMICROSERVICES_INITIALIZE_BUNDLE                                                                   \
    static std::atomic<cppmicroservices::BundleContextPrivate*> US_CTX_INS(US_BUNDLE_NAME){nullptr};         \
    extern "C" cppmicroservices::BundleContextPrivate* US_GET_CTX_FUNC(US_BUNDLE_NAME)();                    \
    extern "C" cppmicroservices::BundleContextPrivate* US_GET_CTX_FUNC(US_BUNDLE_NAME)() {                   \
        return US_CTX_INS(US_BUNDLE_NAME).load();                                                            \
    }                                                                                                        \
    extern "C" US_ABI_EXPORT void US_SET_CTX_FUNC(US_BUNDLE_NAME)(cppmicroservices::BundleContextPrivate *   \
                                                                  context);                                  \
    extern "C" US_ABI_EXPORT void US_SET_CTX_FUNC(US_BUNDLE_NAME)(cppmicroservices::BundleContextPrivate *   \
                                                                  context) {                                 \
        US_CTX_INS(US_BUNDLE_NAME).exchange(context);                                                        \
    }
