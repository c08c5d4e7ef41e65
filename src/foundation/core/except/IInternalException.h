#pragma once

#include <foundation/core/except/IException.h>

namespace foundation::core::except {

/// A failure inside a component, in the component's own terms. One that reaches the host was not translated
/// at the component's boundary; the host can still catch it by this type and report text and place.
class KXFL_API IInternalException : public IException {
public:
    ~IInternalException() override;

protected:
    IInternalException() = default;
    IInternalException(const IInternalException&) = default;
    IInternalException& operator=(const IInternalException&) = default;
};

} // namespace foundation::core::except
