#include <storage/fileprovider/src/TargetMark.h>

#include <cerrno>
#include <climits>
#include <sys/xattr.h>

namespace storage::fileprovider {

namespace {

constexpr std::size_t largestValue = PATH_MAX + 64;

std::optional<TargetMark> parse(std::string value, ssize_t size) {
    if (size <= 0) {
        return std::nullopt;
    }
    value.resize(static_cast<std::size_t>(size));
    const auto colon = value.find(':');
    if (colon == std::string::npos || value.find('\0') != std::string::npos ||
        value.compare(colon + 1, 1, "/") != 0) {
        return std::nullopt;
    }
    return TargetMark{value.substr(0, colon), value.substr(colon + 1)};
}

/// Whether the attribute is there, but names no journal.
bool isMeaningless(int target) {
    std::string value(largestValue, '\0');
    const auto size = ::fgetxattr(target, TargetMark::attributeName, value.data(), value.size());
    return (size >= 0 || errno == ERANGE) && !parse(std::move(value), size);
}

/// Calls `get(buffer, size)`, which works like getxattr, for the mark.
template <typename Get>
int readWith(Get get, std::optional<TargetMark>& mark) {
    std::string value(largestValue, '\0');
    const auto size = get(value.data(), value.size());
    const int error = size < 0 ? errno : 0;
    mark = parse(std::move(value), size);
    const bool noMark = error == ENODATA || error == ENOTSUP || error == ENOSYS || error == ERANGE ||
                        error == ENOENT || error == ENOTDIR;
    return noMark ? 0 : error;
}

} // namespace

int TargetMark::read(const std::string& target, std::optional<TargetMark>& mark) {
    return readWith(
        [&](char* value, std::size_t size) { return ::getxattr(target.c_str(), attributeName, value, size); },
        mark);
}

int TargetMark::read(int target, std::optional<TargetMark>& mark) {
    return readWith(
        [&](char* value, std::size_t size) { return ::fgetxattr(target, attributeName, value, size); }, mark);
}

bool TargetMark::isHidden(int error) noexcept {
    return error == EACCES || error == EPERM;
}

bool TargetMark::isKnownMissing(const std::string& target) noexcept {
    return ::getxattr(target.c_str(), attributeName, nullptr, 0) < 0 &&
           (errno == ENODATA || errno == ENOENT || errno == ENOTDIR);
}

int TargetMark::set(const Environment& environment, int target) const {
    const auto value = id + ':' + journalPath;
    const auto setWith = [&](int flags) {
        return environment.calls->setAttribute(target, attributeName, value.data(), value.size(), flags) == 0
                   ? 0
                   : errno;
    };
    const int error = setWith(XATTR_CREATE);
    return error == EEXIST && isMeaningless(target) ? setWith(0) : error;
}

int TargetMark::remove(const Environment& environment, int target, std::string_view id) {
    std::optional<TargetMark> present;
    // Who may write the file but not read it cannot see whose mark it is.
    if (const int error = read(target, present); error != 0 && !isHidden(error)) {
        return error;
    }
    if (present && present->id != id) {
        return 0;
    }
    if (environment.calls->removeAttribute(target, attributeName) == 0 || errno == ENODATA ||
        errno == ENOTSUP) {
        return 0;
    }
    return errno;
}

} // namespace storage::fileprovider
