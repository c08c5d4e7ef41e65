#pragma once

#ifndef US_BUNDLE_NAME
#error "define US_BUNDLE_NAME as the bundle's symbolic name"
#endif

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/BundleInitialization.h>

extern "C" cppmicroservices::BundleContextPrivate* US_GET_CTX_FUNC(US_BUNDLE_NAME)();

namespace cppmicroservices {

/// The context of the bundle that this is compiled into; an invalid one while the bundle is not started.
static inline BundleContext GetBundleContext() {
    BundleContextPrivate* const context = US_GET_CTX_FUNC(US_BUNDLE_NAME)();
    return context ? detail::MakeBundleContext(context) : BundleContext();
}

} // namespace cppmicroservices
