#include <storage/fileprovider/src/LocalPath.h>

#include <fl/i18n/utf8.h>
#include <foundation/storage/provider/Exception.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace storage::fileprovider {

using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::Exception;
using foundation::storage::provider::StorageIRI;

namespace {

constexpr int maximalLinks = 40;

int realPath(const std::string& path, std::string& result) {
    const std::unique_ptr<char, decltype(&std::free)> real(::realpath(path.c_str(), nullptr), &std::free);
    if (!real) {
        return errno;
    }
    result = real.get();
    return 0;
}

std::string join(std::string_view folder, std::string_view name) {
    std::string path(folder);
    if (path.empty() || path.back() != '/') {
        path += '/';
    }
    path += name;
    return path;
}

/// The target stays empty when it is no link.
int readLink(const std::string& path, std::string& target) {
    target.resize(PATH_MAX);
    const auto size = ::readlink(path.c_str(), target.data(), target.size());
    target.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
    return size >= 0 || errno == EINVAL || errno == ENOENT ? 0 : errno;
}

std::string withoutTrailingSlashes(std::string path) {
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

} // namespace

std::string toLocalPath(const StorageIRI& location) {
    if (location.getScheme() != "file" || location.hasContainer()) {
        throw Exception(ErrorCode::InvalidArgument, location, "not the location of a local file");
    }
    if (!location.getAuthority().empty() && location.getAuthority() != u"localhost") {
        throw Exception(ErrorCode::InvalidArgument, location, "files of another host cannot be reached");
    }
    auto path = fl::i18n::toUtf8(location.getResolvedPath());
    if (path.empty() || path.front() != '/') {
        throw Exception(ErrorCode::InvalidArgument, location, "the path is not absolute");
    }
    if (path.find('\0') != std::string::npos) {
        throw Exception(ErrorCode::InvalidArgument, location, "the path holds a NUL character");
    }
    return withoutTrailingSlashes(std::move(path));
}

std::string toLocalFilePath(const StorageIRI& location) {
    auto path = toLocalPath(location);
    if (location.getResolvedPath().back() == u'/') {
        throw Exception(ErrorCode::NotFound, location, "not a file's name");
    }
    return path;
}

StorageIRI toLocation(std::string_view path) {
    return StorageIRI::fromLocalPath(fl::i18n::fromUtf8(path));
}

std::string_view parentOf(std::string_view path) {
    const auto slash = path.find_last_of('/');
    return slash == 0 ? path.substr(0, 1) : path.substr(0, slash);
}

std::string_view nameOf(std::string_view path) {
    return path.substr(path.find_last_of('/') + 1);
}

int resolveLinks(const std::string& path, std::string& resolved) {
    std::string rest = path;
    for (int links = 0; links < maximalLinks; ++links) {
        const int error = realPath(rest, resolved);
        if (error != ENOENT) {
            return error;
        }
        std::string folder;
        if (const int folderError = realPath(std::string(parentOf(rest)), folder); folderError != 0) {
            return folderError;
        }
        const auto name = nameOf(rest);
        if (name.empty() || name == "." || name == "..") {
            return ENOENT;
        }
        resolved = join(folder, name);
        std::string target;
        if (const int linkError = readLink(resolved, target); linkError != 0 || target.empty()) {
            return linkError;
        }
        rest = withoutTrailingSlashes(target.front() == '/' ? target : join(folder, target));
    }
    return ELOOP;
}

std::string resolveAsFarAsPossible(const std::string& path) {
    std::string resolved;
    if (path == "/" || resolveLinks(path, resolved) == 0) {
        return path == "/" ? path : resolved;
    }
    const auto folder = resolveAsFarAsPossible(std::string(parentOf(path)));
    const auto name = nameOf(path);
    if (name.empty() || name == ".") {
        return folder;
    }
    if (name == "..") {
        return std::string(parentOf(folder));
    }
    return join(folder, name);
}

} // namespace storage::fileprovider
