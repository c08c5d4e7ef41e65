#include <storage/fileprovider/src/WindowsStateFolder.h>

#include <fl/filesystem/detail/path_forms.h>

#include <windows.h>

namespace storage::fileprovider {

namespace fs = std::filesystem;

namespace {

fs::path defaultFolder() {
    std::wstring data(32768, L'\0');
    data.resize(::GetEnvironmentVariableW(L"LOCALAPPDATA", data.data(), static_cast<DWORD>(data.size())));
    return data.empty() ? fs::path() : fs::path(data) / "kxvfs";
}

} // namespace

std::optional<fs::path> makeStateFolder(const LocalFileOptions& options) {
    const auto folder =
        options.stateFolder
            ? fs::path(std::u8string(options.stateFolder->begin(), options.stateFolder->end()))
            : defaultFolder();
    std::error_code failure;
    if (!folder.is_absolute() ||
        (!fs::is_directory(folder, failure) && !fs::create_directories(folder, failure))) {
        ::SetLastError(folder.is_absolute() && failure ? static_cast<DWORD>(failure.value())
                                                       : ERROR_PATH_NOT_FOUND);
        return std::nullopt;
    }
    return fl::filesystem::detail::make_access_form(folder);
}

} // namespace storage::fileprovider
