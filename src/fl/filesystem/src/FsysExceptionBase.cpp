#include <fl/filesystem/FsysExceptionBase.h>

namespace fl::filesystem {

struct FsysExceptionBase::Details {
    std::string operation;
    filesystem::path path;
    std::error_code code;
};

namespace {

std::string message(std::string_view operation, const path& item, const std::error_code& code) {
    std::string text = "cannot ";
    text += operation;
    text += ' ';
    const auto name = item.u8string();
    text.append(name.begin(), name.end());
    text += ": ";
    text += code.message();
    return text;
}

} // namespace

FsysExceptionBase::FsysExceptionBase(std::string_view operation, const path& item, std::error_code code)
    : std::runtime_error(message(operation, item, code)),
      m_details(std::make_shared<const Details>(Details{std::string(operation), item, code})) {}

FsysExceptionBase::FsysExceptionBase(const FsysExceptionBase&) noexcept = default;
FsysExceptionBase& FsysExceptionBase::operator=(const FsysExceptionBase&) noexcept = default;
FsysExceptionBase::~FsysExceptionBase() = default;

const std::string& FsysExceptionBase::getOperation() const noexcept {
    return m_details->operation;
}
const filesystem::path& FsysExceptionBase::getPath() const noexcept {
    return m_details->path;
}
const std::error_code& FsysExceptionBase::getErrorCode() const noexcept {
    return m_details->code;
}

} // namespace fl::filesystem
