#pragma once

#include <foundation/core/except/Exception.h>
#include <foundation/core/except/IInternalException.h>

namespace foundation::core::except::detail {

/// The type of the object that throwInternal throws. Nobody catches it by this name: catch T, or
/// IInternalException.
template <Throwable T>
class AnonymousInternalException : public Exception<IInternalException, T> {
public:
    using Exception<IInternalException, T>::Exception;
};

} // namespace foundation::core::except::detail
