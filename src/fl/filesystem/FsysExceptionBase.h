#pragma once

#include <fl/filesystem/Export.h>
#include <fl/filesystem/path.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

namespace fl::filesystem {

/// A local file operation failed. `what()` reads "cannot <operation> <path>: <cause>".
/// Thrown wrapped by foundation::core::except::throwInternal, so that it is an IInternalException, too.
class KXFOUNDATION_FILESYSTEM_API FsysExceptionBase : public std::runtime_error {
public:
    /// `operation` is a verb, with what else belongs before the path ("remove", "create a temporary file
    /// in").
    FsysExceptionBase(std::string_view operation, const path& item, std::error_code code);
    // Copying an exception must not fail, so copies share what they hold.
    FsysExceptionBase(const FsysExceptionBase&) noexcept;
    FsysExceptionBase& operator=(const FsysExceptionBase&) noexcept;
    ~FsysExceptionBase() override;

    const std::string& getOperation() const noexcept;
    const filesystem::path& getPath() const noexcept;
    const std::error_code& getErrorCode() const noexcept;

private:
    struct Details;
    std::shared_ptr<const Details> m_details;
};

} // namespace fl::filesystem
