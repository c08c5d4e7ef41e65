#pragma once

#include <cppmicroservices/Bundle.h>
#include <cppmicroservices/FrameworkConfig.h>

#include <string>
#include <system_error>

namespace cppmicroservices {

/// The library of a bundle cannot be loaded. The text names the file and gives the loader's reason.
class US_Framework_EXPORT SharedLibraryException final : public std::system_error {
public:
    explicit SharedLibraryException(std::error_code code, std::string message, Bundle origin);
    SharedLibraryException(const SharedLibraryException&);
    ~SharedLibraryException() override;

    /// The bundle whose library it is.
    Bundle GetBundle() const;

private:
    Bundle m_origin;
};

} // namespace cppmicroservices
