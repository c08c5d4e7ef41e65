#include <apps/kxvfs/src/TemporarySpace.h>

#include <fl/filesystem/temporary.h>

#include <windows.h>

#include <chrono>
#include <fcntl.h>
#include <io.h>
#include <string>

namespace apps::kxvfs {

namespace fs = std::filesystem;

namespace {

constexpr std::wstring_view prefix = L"kxvfs-";
constexpr std::wstring_view lockName = L".lock";
constexpr std::wstring_view keepName = L".keep";
constexpr std::wstring_view keptBeginning = L"kept-";
constexpr std::wstring_view rescuedEnding = L"sanitized.zip";

/// Open, the file can be opened by nobody else, only be removed; that is how others know a living process.
HANDLE openLock(const fs::path& folder, DWORD disposition) {
    return ::CreateFileW((folder / lockName).c_str(), GENERIC_READ, FILE_SHARE_DELETE, nullptr, disposition,
                         FILE_ATTRIBUTE_NORMAL, nullptr);
}

/// A process that was killed before it made the lock file leaves a folder without one.
bool isOld(const fs::path& folder) {
    std::error_code failure;
    const auto written = fs::last_write_time(folder, failure);
    return !failure && fs::file_time_type::clock::now() - written > std::chrono::hours(1);
}

bool isOwnSpace(const fs::path& folder) {
    std::error_code ignored;
    return folder.filename().native().starts_with(prefix) &&
           fs::is_directory(fs::symlink_status(folder, ignored));
}

/// Whether a provider has left the archive for good: it could not be brought into its place.
bool isKept(const fs::path& archive) {
    const auto name = archive.filename().native();
    return name.starts_with(keptBeginning) && name.ends_with(rescuedEnding);
}

bool isToKeep(const fs::path& folder) {
    std::error_code ignored;
    if (fs::exists(folder / keepName, ignored))
        return true;
    for (fs::directory_iterator entry(folder, ignored), end; !ignored && entry != end;
         entry.increment(ignored))
        if (isKept(entry->path()))
            return true;
    return false;
}

void removeIfAbandoned(const fs::path& folder) {
    std::error_code ignored;
    if (!isOwnSpace(folder) || isToKeep(folder))
        return;
    const HANDLE lock = openLock(folder, OPEN_EXISTING);
    const bool isFree = lock != INVALID_HANDLE_VALUE;
    const bool isMissing = !isFree && ::GetLastError() == ERROR_FILE_NOT_FOUND;
    if (isFree)
        ::CloseHandle(lock);
    if (isFree || (isMissing && isOld(folder)))
        fs::remove_all(folder, ignored);
}

fs::path systemFolder() {
    return fs::path(fl::filesystem::temp_directory_name()).make_preferred();
}

} // namespace

void TemporarySpace::removeAbandoned() {
    std::error_code failure;
    for (fs::directory_iterator entry(systemFolder(), failure), end; !failure && entry != end;
         entry.increment(failure))
        removeIfAbandoned(entry->path());
}

TemporarySpace::TemporarySpace() {
    const auto parent = systemFolder();
    const auto folder = parent / (std::wstring(prefix) + std::to_wstring(::GetCurrentProcessId()) + L"-" +
                                  std::to_wstring(::GetTickCount64()));
    if (::CreateDirectoryW(folder.c_str(), nullptr) == 0)
        return;
    m_folder = folder;
    const HANDLE lock = openLock(m_folder, CREATE_NEW);
    if (lock != INVALID_HANDLE_VALUE)
        m_lock = _open_osfhandle(reinterpret_cast<std::intptr_t>(lock), _O_RDONLY);
    ::SetEnvironmentVariableW(L"TMPDIR", m_folder.c_str());
}

TemporarySpace::~TemporarySpace() {
    if (m_lock >= 0)
        _close(m_lock);
    // The lock file goes with its handle, and only then can its folder.
    if (!m_folder.empty() && !isToKeep(m_folder))
        ::RemoveDirectoryW(m_folder.c_str());
}

std::vector<fs::path> TemporarySpace::rescued() {
    std::vector<fs::path> found;
    std::error_code failure;
    const auto folder = systemFolder();
    // In a folder that others use, too, such a file may be another process's work that is under way.
    if (!isOwnSpace(folder))
        return found;
    for (fs::directory_iterator entry(folder, failure), end; !failure && entry != end;
         entry.increment(failure))
        if (entry->path().filename().native().ends_with(rescuedEnding))
            found.push_back(entry->path());
    return found;
}

std::vector<fs::path> TemporarySpace::keepRescued() {
    if (m_folder.empty())
        return {};
    const auto kept = rescued();
    if (!kept.empty()) {
        const HANDLE marker = ::CreateFileW((m_folder / keepName).c_str(), GENERIC_WRITE, 0, nullptr,
                                            CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
        if (marker != INVALID_HANDLE_VALUE)
            ::CloseHandle(marker);
    }
    return kept;
}

void TemporarySpace::removeLeft(const fs::path& folder) noexcept {
    std::error_code ignored;
    if (isOwnSpace(folder) && !isToKeep(folder))
        fs::remove_all(folder, ignored);
}

} // namespace apps::kxvfs
