#pragma once

#include <cppmicroservices/FrameworkConfig.h>

#include <stdexcept>
#include <string>

namespace cppmicroservices {

/// An operation of an object that is no longer, or not yet, in use: a bundle context whose bundle was
/// stopped, a framework that is gone.
class US_Framework_EXPORT IllegalStateException final : public std::runtime_error {
public:
    explicit IllegalStateException(std::string message);
    IllegalStateException(const IllegalStateException&);
    ~IllegalStateException() override;
};

} // namespace cppmicroservices
