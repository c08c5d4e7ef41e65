#include <storage/fileprovider/src/WindowsPath.h>

#include <foundation/storage/provider/Exception.h>
#include <storage/fileprovider/src/LocalPath.h>
#include <storage/fileprovider/src/WindowsFile.h>

#include <fl/i18n/utf8.h>

#include <algorithm>
#include <vector>

namespace storage::fileprovider {

namespace fs = std::filesystem;
using fl::i18n::ustring;
using fl::i18n::ustring_view;
using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::Exception;
using foundation::storage::provider::StorageIRI;

namespace {

constexpr std::wstring_view prefix = L"\\\\?\\";
constexpr std::wstring_view serverPrefix = L"\\\\?\\UNC\\";

bool canBeName(ustring_view name) {
    return std::none_of(name.begin(), name.end(), [](char16_t c) {
        return c < 0x20 || ustring_view(u"<>:\"\\|?*").find(c) != ustring_view::npos;
    });
}

bool isDrive(ustring_view name) {
    const auto letter = name.empty() ? u'\0' : name[0] | 0x20;
    return name.size() == 2 && name[1] == u':' && letter >= u'a' && letter <= u'z';
}

/// The components with "." and ".." taken away.
std::vector<ustring_view> componentsOf(ustring_view path) {
    std::vector<ustring_view> found;
    for (std::size_t start = 0; start < path.size();) {
        const auto end = std::min(path.find(u'/', start), path.size());
        const auto name = path.substr(start, end - start);
        start = end + 1;
        if (name == u"..") {
            if (!found.empty()) {
                found.pop_back();
            }
        } else if (!name.empty() && name != u".") {
            found.push_back(name);
        }
    }
    return found;
}

fs::path finalPath(const FileHandle& file) {
    std::wstring text(32768, L'\0');
    const DWORD size = ::GetFinalPathNameByHandleW(file.get(), text.data(), static_cast<DWORD>(text.size()),
                                                   FILE_NAME_NORMALIZED | VOLUME_NAME_DOS);
    text.resize(size < text.size() ? size : 0);
    return text;
}

bool endsInBlankOrDot(const fs::path& path) {
    return path.native().ends_with(L' ') || path.native().ends_with(L'.');
}

/// Some systems tell a name without the blanks and dots that it ends in.
bool leadsTo(const fs::path& path, const FileHandle& file) {
    const auto named = statusOf(path);
    const auto opened = statusOf(file.get());
    return named && opened && named->isSameItem(*opened);
}

} // namespace

std::optional<fs::path> findWindowsPath(const StorageIRI& location) {
    if (location.getScheme() != "file" || location.hasContainer()) {
        throw Exception(ErrorCode::InvalidArgument, location, "not the location of a local file");
    }
    if (!location.getResolvedPath().starts_with(u'/')) {
        throw Exception(ErrorCode::InvalidArgument, location, "the path is not absolute");
    }
    const auto names = componentsOf(location.getResolvedPath());
    const auto& host = location.getAuthority();
    const bool isLocal = host.empty() || host == u"localhost";
    if (!isLocal && !canBeName(host)) {
        return std::nullopt;
    }
    std::wstring text(isLocal ? prefix : serverPrefix);
    text.append(isLocal ? host.end() : host.begin(), host.end());
    if (names.empty()) {
        return isLocal ? fs::path() : fs::path(text);
    }
    for (std::size_t i = 0; i < names.size(); ++i) {
        const bool isDriveName = isLocal && i == 0;
        if (isDriveName ? !isDrive(names[i]) : !canBeName(names[i])) {
            return std::nullopt;
        }
        if (text.back() != L'\\') {
            text += L'\\';
        }
        text.append(names[i].begin(), names[i].end());
    }
    if (isLocal && names.size() == 1) {
        text += L'\\';
    }
    return fs::path(text);
}

fs::path toWindowsPath(const StorageIRI& location) {
    auto path = findWindowsPath(location);
    if (!path) {
        throw Exception(ErrorCode::InvalidArgument, location, "no file of this system can have that name");
    }
    return std::move(*path);
}

fs::path toWindowsFilePath(const StorageIRI& location) {
    auto path = toWindowsPath(location);
    if (location.getResolvedPath().back() == u'/') {
        throw Exception(ErrorCode::NotFound, location, "not a file's name");
    }
    return path;
}

StorageIRI toLocation(const fs::path& path) {
    std::wstring_view text = path.native();
    ustring generic;
    if (text.starts_with(serverPrefix)) {
        text.remove_prefix(serverPrefix.size());
        generic = u"//";
    } else if (text.starts_with(prefix)) {
        text.remove_prefix(prefix.size());
        generic = u"/";
    }
    for (const wchar_t c : text) {
        generic += c == L'\\' ? u'/' : static_cast<char16_t>(c);
    }
    while (generic.size() > 1 && generic.back() == u'/') {
        generic.pop_back();
    }
    return StorageIRI::fromLocalPath(generic.empty() ? ustring(u"/") : generic);
}

fs::path folderOf(const fs::path& path) {
    const std::wstring_view text = path.native();
    const bool isOnServer = text.starts_with(serverPrefix);
    // "\\?\C:\" and "\\?\UNC\server\share" have nothing above them.
    const auto root =
        isOnServer ? text.find(L'\\', std::min(text.find(L'\\', serverPrefix.size()), text.size() - 1) + 1)
                   : text.find(L'\\', prefix.size());
    const auto last = text.find_last_of(L'\\');
    if (root == std::wstring_view::npos || last < root || (last == root && last + 1 == text.size())) {
        return path;
    }
    return fs::path(text.substr(0, last == root && !isOnServer ? last + 1 : last));
}

fs::path resolvePath(const fs::path& path) {
    if (path.empty()) {
        return path;
    }
    const auto file = FileHandle::open(path, FILE_READ_ATTRIBUTES, OPEN_EXISTING);
    auto resolved = file.isOpen() ? finalPath(file) : fs::path();
    if (!resolved.empty() && (!endsInBlankOrDot(path) || leadsTo(resolved, file))) {
        return resolved;
    }
    const auto folder = folderOf(path);
    return folder == path ? path : resolvePath(folder) / path.filename();
}

std::string_view parentOf(std::string_view path) {
    const auto slash = path.find_last_of('/');
    return slash == 0 ? path.substr(0, 1) : path.substr(0, slash);
}

std::string_view nameOf(std::string_view path) {
    return path.substr(path.find_last_of('/') + 1);
}

} // namespace storage::fileprovider
