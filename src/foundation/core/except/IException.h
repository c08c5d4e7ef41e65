#pragma once

#include <foundation/core/Export.h>
#include <foundation/core/SourceLocation.h>

namespace foundation::core::except {

/// What every exception of the platform can be asked, whatever other type it has. It is no std::exception:
/// the thrown object is one through its other base, so that a handler for std::exception finds one only.
class KXFL_API IException {
public:
    virtual ~IException();

    /// What went wrong, in UTF-8 and for people; never null. Lives as long as the exception.
    virtual const char* getText() const noexcept = 0;
    /// Where it was thrown.
    virtual const SourceLocation& getSourceLocation() const noexcept = 0;

protected:
    IException() = default;
    IException(const IException&) = default;
    IException& operator=(const IException&) = default;
};

} // namespace foundation::core::except
