#include <cppmicroservices/IllegalStateException.h>
#include <cppmicroservices/ServiceException.h>
#include <cppmicroservices/SharedLibraryException.h>

namespace cppmicroservices {

IllegalStateException::IllegalStateException(std::string message) : std::runtime_error(message) {}
IllegalStateException::IllegalStateException(const IllegalStateException&) = default;
IllegalStateException::~IllegalStateException() = default;

ServiceException::ServiceException(const std::string& message, const Type& type)
    : std::runtime_error(message), m_type(type) {}
ServiceException::ServiceException(const ServiceException&) = default;
ServiceException& ServiceException::operator=(const ServiceException&) = default;
ServiceException::~ServiceException() = default;

ServiceException::Type ServiceException::GetType() const {
    return m_type;
}

SharedLibraryException::SharedLibraryException(std::error_code code, std::string message, Bundle origin)
    : std::system_error(code, message), m_origin(std::move(origin)) {}
SharedLibraryException::SharedLibraryException(const SharedLibraryException&) = default;
SharedLibraryException::~SharedLibraryException() = default;

Bundle SharedLibraryException::GetBundle() const {
    return m_origin;
}

} // namespace cppmicroservices
