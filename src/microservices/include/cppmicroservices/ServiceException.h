#pragma once

#include <cppmicroservices/FrameworkConfig.h>

#include <stdexcept>
#include <string>

namespace cppmicroservices {

/// A service cannot be handed out or named.
class US_Framework_EXPORT ServiceException : public std::runtime_error {
public:
    enum Type {
        /// None of the others fits.
        UNSPECIFIED = 0,
        /// The service was withdrawn meanwhile.
        UNREGISTERED = 1,
        /// The component made no object, or one that lacks a promised interface.
        FACTORY_ERROR = 2,
        /// The component threw while its object was made.
        FACTORY_EXCEPTION = 3,
        /// The service is in another process and cannot be reached.
        REMOTE = 5,
        /// A component asked for its own service while its object was made.
        FACTORY_RECURSION = 6
    };

    explicit ServiceException(const std::string& message, const Type& type = UNSPECIFIED);
    ServiceException(const ServiceException&);
    ServiceException& operator=(const ServiceException&);
    ~ServiceException() override;

    Type GetType() const;

private:
    Type m_type;
};

} // namespace cppmicroservices
