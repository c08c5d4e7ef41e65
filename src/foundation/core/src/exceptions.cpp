#include <foundation/core/except/IException.h>
#include <foundation/core/except/IInternalException.h>

namespace foundation::core::except {

// The key functions: they put the type information into this library, once for the whole process.
IException::~IException() = default;
IInternalException::~IInternalException() = default;

} // namespace foundation::core::except
