#include <storage/fileprovider/src/TargetMark.h>

#include <cerrno>
#include <climits>
#include <sys/xattr.h>

namespace storage::fileprovider {

std::optional<TargetMark> TargetMark::read(const std::string& target) {
    std::string value(PATH_MAX + 64, '\0');
    const auto size = ::getxattr(target.c_str(), attributeName, value.data(), value.size());
    if (size <= 0) {
        return std::nullopt;
    }
    value.resize(static_cast<std::size_t>(size));
    const auto colon = value.find(':');
    if (colon == std::string::npos) {
        return std::nullopt;
    }
    return TargetMark{value.substr(0, colon), value.substr(colon + 1)};
}

bool TargetMark::set(const Environment& environment, int target) const {
    const auto value = id + ':' + journalPath;
    return environment.calls->setAttribute(target, attributeName, value.data(), value.size()) == 0;
}

int TargetMark::remove(const Environment& environment, int target) {
    if (environment.calls->removeAttribute(target, attributeName) == 0 || errno == ENODATA ||
        errno == ENOTSUP) {
        return 0;
    }
    return errno;
}

} // namespace storage::fileprovider
