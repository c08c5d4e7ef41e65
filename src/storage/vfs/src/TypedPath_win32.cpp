#include <storage/vfs/src/TypedPath.h>

#include <fl/i18n/utf8.h>

#include <windows.h>

#include <algorithm>
#include <array>
#include <filesystem>

namespace storage::vfs {

using fl::i18n::ustring;
using fl::i18n::ustring_view;
using foundation::storage::provider::StorageIRI;

namespace {

constexpr std::array<ustring_view, 22> devices = {
    u"CON",  u"PRN",  u"AUX",  u"NUL",  u"COM1", u"COM2", u"COM3", u"COM4", u"COM5", u"COM6", u"COM7",
    u"COM8", u"COM9", u"LPT1", u"LPT2", u"LPT3", u"LPT4", u"LPT5", u"LPT6", u"LPT7", u"LPT8", u"LPT9"};

bool isDevice(ustring_view name) {
    ustring stem(name.substr(0, name.find(u'.')));
    std::transform(stem.begin(), stem.end(), stem.begin(), [](char16_t c) {
        return c >= u'a' && c <= u'z' ? static_cast<char16_t>(c - u'a' + u'A') : c;
    });
    while (!stem.empty() && stem.back() == u' ')
        stem.pop_back();
    return std::find(devices.begin(), devices.end(), stem) != devices.end();
}

std::wstring wideOf(const StorageIRI& location) {
    const auto& path = location.getResolvedPath();
    const auto& host = location.getAuthority();
    std::wstring wide(host.empty() ? L"\\\\?\\" : L"\\\\?\\UNC\\");
    wide.append(host.begin(), host.end());
    const auto names =
        host.empty() && path.starts_with(u'/') ? ustring_view(path).substr(1) : ustring_view(path);
    for (const char16_t c : names)
        wide += c == u'/' ? L'\\' : static_cast<wchar_t>(c);
    return wide;
}

} // namespace

TypedPath typedPath(std::string_view typed) {
    auto path = fl::i18n::fromUtf8(typed);
    // "/C:/x" is the path in an IRI, and what other programs of this system print for it.
    if (path.starts_with(u'/') && path.size() > 2 && path[2] == u':')
        path.erase(0, 1);
    auto absolute = std::filesystem::absolute(path).generic_u16string();
    // The system takes the dot away, by which people name what is in a folder.
    if (path.ends_with(u"/.") || path.ends_with(u"\\."))
        absolute += absolute.ends_with(u'/') ? u"." : u"/.";
    if (!absolute.starts_with(u"//"))
        return {StorageIRI::fromLocalPath(u"/"), absolute};
    const auto whole = StorageIRI::fromLocalPath(absolute);
    return {whole.withPath(u"/"), whole.getResolvedPath()};
}

bool endsLikeFolder(std::string_view typed) {
    return typed.ends_with('/') || typed.ends_with('\\');
}

std::optional<std::string> objectionToLocalName(ustring_view name) {
    const bool isImpossible = std::any_of(name.begin(), name.end(), [](char16_t c) {
        return c < 0x20 || ustring_view(u"<>:\"/\\|?*").find(c) != ustring_view::npos;
    });
    if (isImpossible)
        return "its name holds a character that names of local files cannot have";
    if (name.ends_with(u'.') || name.ends_with(u' '))
        return "its name ends in a dot or a blank, which names of local files cannot";
    if (isDevice(name))
        return "its name is that of a device";
    return std::nullopt;
}

bool isSymbolicLink(const StorageIRI& location) {
    const DWORD attributes = ::GetFileAttributesW(wideOf(location).c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}

} // namespace storage::vfs
