#include "UniqueName.h"
#include "failure.h"

#include <fl/filesystem/detail/path_forms.h>
#include <fl/filesystem/detail/windows_error.h>
#include <fl/filesystem/temporary.h>

#include <fl/i18n/utf8.h>

#include <windows.h>

#include <fcntl.h>
#include <io.h>

#include <cerrno>
#include <string>
#include <utility>

namespace fl::filesystem {

namespace {

using i18n::ustring;
using i18n::ustring_view;

/// An empty name stands for the current folder.
path nativeFolder(ustring_view directory) {
    return directory.empty() ? path(".") : detail::make_native_form(directory, true);
}

/// The next candidate for a name in the folder.
ustring candidate(ustring_view directory, ustring_view prefix, ustring_view suffix) {
    ustring name(directory);
    if (!name.empty() && name.back() != u'/' && name.back() != u'\\') {
        name += u'/';
    }
    name += prefix;
    name += i18n::fromUtf8(detail::nextUniquePart());
    name += suffix;
    return name;
}

/// Whether it is the part of a name, which leads to no other folder and to no stream of another file.
bool isPartOfName(ustring_view text) {
    return text.find_first_of(ustring_view(u"/\\:\0", 4)) == ustring_view::npos;
}

/// Hands candidates to `attempt(path)` until it returns no EEXIST. Returns the candidate that was free.
template <typename Attempt>
ustring firstFreeName(std::string_view operation, ustring_view directory, ustring_view prefix,
                      ustring_view suffix, Attempt attempt) {
    const path folder = nativeFolder(directory);
    if (!isPartOfName(prefix) || !isPartOfName(suffix)) {
        detail::fail(operation, folder, std::make_error_code(std::errc::invalid_argument));
    }
    for (int i = 0; i < detail::uniqueNameAttempts; ++i) {
        ustring name = candidate(directory, prefix, suffix);
        const std::error_code error = attempt(detail::make_access_form(detail::make_native_form(name, true)));
        if (!error) {
            return name;
        }
        if (error != std::errc::file_exists) {
            detail::fail(operation, folder, error);
        }
    }
    detail::fail(operation, folder, std::make_error_code(std::errc::file_exists));
}

/// Creates the file and opens it, or returns why not; `file` is set on success only. The file may be opened
/// and removed by others, in this process too, while it is open.
std::error_code createExclusively(const path& item, FileOwner& file) {
    const HANDLE handle = ::CreateFileW(item.c_str(), GENERIC_READ | GENERIC_WRITE,
                                        FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                        CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
        return detail::lastWindowsError();
    }
    const int descriptor = ::_open_osfhandle(reinterpret_cast<std::intptr_t>(handle), _O_RDWR | _O_BINARY);
    if (descriptor < 0) {
        ::CloseHandle(handle);
        ::DeleteFileW(item.c_str());
        return {EMFILE, std::generic_category()};
    }
    file.reset(::_fdopen(descriptor, "w+b"));
    if (!file) {
        ::_close(descriptor);
        ::DeleteFileW(item.c_str());
        return {EMFILE, std::generic_category()};
    }
    return {};
}

std::error_code lookFor(const path& item) {
    if (::GetFileAttributesW(item.c_str()) != INVALID_FILE_ATTRIBUTES) {
        return std::make_error_code(std::errc::file_exists);
    }
    const auto error = detail::lastWindowsError();
    return error == std::errc::no_such_file_or_directory ? std::error_code() : error;
}

void requireFolder(std::string_view operation, const path& folder) {
    const DWORD attributes = ::GetFileAttributesW(detail::make_access_form(folder).c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        detail::fail(operation, folder, detail::lastWindowsError());
    }
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
        detail::fail(operation, folder, std::make_error_code(std::errc::not_a_directory));
    }
}

std::wstring environment(const wchar_t* name) {
    std::wstring value(::GetEnvironmentVariableW(name, nullptr, 0), L'\0');
    if (!value.empty()) {
        value.resize(::GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size())));
    }
    return value;
}

std::wstring systemFolder() {
    std::wstring folder(MAX_PATH + 1, L'\0');
    folder.resize(::GetTempPathW(static_cast<DWORD>(folder.size()), folder.data()));
    return folder.empty() ? L"C:\\" : folder;
}

} // namespace

ustring temp_directory_name() {
    const std::wstring named = environment(L"TMPDIR");
    std::error_code error;
    const bool usable = !named.empty() && std::filesystem::is_directory(named, error);
    // Names of temporary files outlive a change of the current folder.
    path folder = std::filesystem::absolute(usable ? named : systemFolder(), error);
    if (!folder.has_filename()) {
        folder = folder.parent_path();
    }
    return folder.generic_u16string();
}

TemporaryFile tmpfile(ustring_view directory, ustring_view prefix, ustring_view suffix) {
    TemporaryFile created;
    created.name =
        firstFreeName("create a temporary file in", directory, prefix, suffix, [&created](const path& item) {
            created.item = item;
            return createExclusively(item, created.file);
        });
    return created;
}

ustring tmpnam(ustring_view directory, ustring_view prefix, ustring_view suffix) {
    constexpr std::string_view operation = "choose a temporary name in";
    requireFolder(operation, nativeFolder(directory));
    return firstFreeName(operation, directory, prefix, suffix, lookFor);
}

} // namespace fl::filesystem
