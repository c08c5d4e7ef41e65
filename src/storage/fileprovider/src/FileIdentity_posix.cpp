#include <storage/fileprovider/src/FileIdentity.h>

#include <storage/fileprovider/src/TargetMark.h>

#include <cerrno>
#include <map>
#include <optional>
#include <sys/stat.h>
#include <sys/xattr.h>

namespace storage::fileprovider {

namespace {

constexpr mode_t permissionBits = 07777;
constexpr mode_t readWriteBits = 0666;
constexpr const char* accessControlList = "system.posix_acl_access";
// A list of names or a value that changes between asking for its size and reading it is asked for again.
constexpr int attempts = 8;

using Attributes = std::map<std::string, std::string>;

/// Calls `read(buffer, size)`, which works like getxattr, with room enough for the result.
template <typename Read>
std::optional<std::string> readGrowing(Read read) {
    for (int i = 0; i < attempts; ++i) {
        const auto size = read(nullptr, 0);
        if (size <= 0) {
            return size == 0 ? std::optional(std::string()) : std::nullopt;
        }
        std::string result(static_cast<std::size_t>(size), '\0');
        const auto got = read(result.data(), result.size());
        if (got >= 0) {
            result.resize(static_cast<std::size_t>(got));
            return result;
        }
        if (errno != ERANGE) {
            break;
        }
    }
    return std::nullopt;
}

/// Disengaged when one that is there cannot be read.
template <typename List, typename Get>
std::optional<Attributes> readAttributes(List list, Get get) {
    const auto names = readGrowing(list);
    if (!names) {
        return errno == ENOTSUP || errno == ENOSYS ? std::optional(Attributes()) : std::nullopt;
    }
    Attributes attributes;
    for (std::size_t at = 0; at < names->size();) {
        const std::string name = names->c_str() + at;
        at += name.size() + 1;
        if (name == TargetMark::attributeName) {
            continue;
        }
        auto value =
            readGrowing([&](char* buffer, std::size_t size) { return get(name.c_str(), buffer, size); });
        if (!value) {
            return std::nullopt;
        }
        attributes.emplace(name, std::move(*value));
    }
    return attributes;
}

std::optional<Attributes> attributesOf(const std::string& path) {
    return readAttributes(
        [&](char* buffer, std::size_t size) { return ::listxattr(path.c_str(), buffer, size); },
        [&](const char* name, char* buffer, std::size_t size) {
            return ::getxattr(path.c_str(), name, buffer, size);
        });
}

std::optional<Attributes> attributesOf(int file) {
    return readAttributes([&](char* buffer, std::size_t size) { return ::flistxattr(file, buffer, size); },
                          [&](const char* name, char* buffer, std::size_t size) {
                              return ::fgetxattr(file, name, buffer, size);
                          });
}

void putAttributes(const Environment& environment, int file, const Attributes& wanted) {
    const auto present = attributesOf(file).value_or(Attributes());
    for (const auto& entry : present) {
        if (wanted.count(entry.first) == 0) {
            // What stays in spite of this shows when the result is compared.
            static_cast<void>(environment.calls->removeAttribute(file, entry.first.c_str()));
        }
    }
    for (const auto& [name, value] : wanted) {
        const auto found = present.find(name);
        if (found == present.end() || found->second != value) {
            static_cast<void>(
                environment.calls->setAttribute(file, name.c_str(), value.data(), value.size(), 0));
        }
    }
}

} // namespace

bool transferIdentity(const Environment& environment, const std::string& target, int staging) {
    struct stat wanted {};
    struct stat present {};
    if (::stat(target.c_str(), &wanted) != 0 || ::fstat(staging, &present) != 0) {
        return false;
    }
    bool groupGiven = wanted.st_gid == present.st_gid;
    if (wanted.st_uid != present.st_uid || !groupGiven) {
        groupGiven = environment.calls->setOwner(staging, wanted.st_uid, wanted.st_gid) == 0 ||
                     environment.calls->setOwner(staging, static_cast<uid_t>(-1), wanted.st_gid) == 0 ||
                     groupGiven;
    }
    const auto attributes = attributesOf(target);
    if (groupGiven && attributes) {
        putAttributes(environment, staging, *attributes);
        static_cast<void>(environment.calls->setMode(staging, wanted.st_mode & permissionBits));
        if (::fstat(staging, &present) == 0 && present.st_uid == wanted.st_uid &&
            present.st_gid == wanted.st_gid &&
            (present.st_mode & permissionBits) == (wanted.st_mode & permissionBits) &&
            attributesOf(staging) == attributes) {
            return true;
        }
    }
    // The group's bits of a file with an access control list are the list's mask and say nothing of the
    // group.
    const bool modeSaysAll = groupGiven && attributes && attributes->count(accessControlList) == 0;
    const mode_t mode = S_IRUSR | S_IWUSR | (modeSaysAll ? wanted.st_mode & readWriteBits : 0);
    static_cast<void>(environment.calls->setMode(staging, mode));
    return false;
}

bool isSameState(const struct stat& a, const struct stat& b) noexcept {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
           a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

} // namespace storage::fileprovider
