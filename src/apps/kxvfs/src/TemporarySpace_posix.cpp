#include <apps/kxvfs/src/TemporarySpace.h>

#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace apps::kxvfs {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view prefix = "kxvfs-";
constexpr std::string_view lockName = ".lock";
constexpr std::string_view keepName = ".keep";
constexpr std::string_view keptBeginning = "kept-";
constexpr std::string_view rescuedEnding = "sanitized.zip";
constexpr int removalTurns = 3;
constexpr int creationAttempts = 4;

std::string unlockedName() {
    return std::string(lockName) + "-";
}

/// The lock file of a folder, opened; -1 where it cannot be. A process that was killed while it made the file
/// leaves it under its first name.
int openLock(const fs::path& folder) {
    constexpr int flags = O_RDWR | O_CLOEXEC | O_NOFOLLOW;
    const int lock = open((folder / lockName).c_str(), flags);
    return lock >= 0 ? lock : open((folder / unlockedName()).c_str(), flags);
}

/// Makes the lock file under another name first, so that nobody sees the folder's own without its lock. -1
/// where it cannot be made, or where another process has found it before it was locked and removes the
/// folder.
int makeLock(const fs::path& folder) {
    const auto first = folder / unlockedName();
    const int lock =
        open(first.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR);
    if (lock < 0)
        return lock;
    std::error_code failure;
    if (flock(lock, LOCK_EX) == 0)
        fs::rename(first, folder / lockName, failure);
    if (!failure)
        return lock;
    close(lock);
    return -1;
}

/// A process that was killed before it made the lock file leaves a folder without one.
bool isOld(const fs::path& folder) {
    std::error_code failure;
    const auto written = fs::last_write_time(folder, failure);
    return !failure && fs::file_time_type::clock::now() - written > std::chrono::hours(1);
}

/// Another user could lead a link to anywhere.
bool isOwnSpace(const fs::path& folder) {
    struct stat status {};
    return folder.filename().native().starts_with(prefix) && lstat(folder.c_str(), &status) == 0 &&
           S_ISDIR(status.st_mode) && status.st_uid == geteuid();
}

/// Whether a provider has left the archive for good: it could not be brought into its place.
bool isKept(const fs::path& archive) {
    const auto name = archive.filename().string();
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
    const int lock = openLock(folder);
    if (lock < 0) {
        if (isOld(folder))
            fs::remove_all(folder, ignored);
        return;
    }
    if (flock(lock, LOCK_EX | LOCK_NB) == 0)
        fs::remove_all(folder, ignored);
    close(lock);
}

} // namespace

void TemporarySpace::removeAbandoned() {
    std::error_code failure;
    const auto parent = fs::temp_directory_path(failure);
    for (fs::directory_iterator entry(parent, failure), end; !failure && entry != end;
         entry.increment(failure))
        removeIfAbandoned(entry->path());
}

TemporarySpace::TemporarySpace() {
    std::error_code failure;
    const auto parent = fs::temp_directory_path(failure);
    if (failure)
        return;
    std::string name;
    for (int attempt = 0; attempt < creationAttempts && m_lock < 0; ++attempt) {
        name = (parent / (std::string(prefix) + "XXXXXX")).string();
        m_folder.clear();
        if (!mkdtemp(name.data()))
            return;
        m_folder = name;
        m_lock = makeLock(m_folder);
    }
    setenv("TMPDIR", name.c_str(), 1);
}

TemporarySpace::~TemporarySpace() {
    if (m_lock >= 0)
        close(m_lock);
}

std::vector<fs::path> TemporarySpace::rescued() {
    std::vector<fs::path> found;
    std::error_code failure;
    const auto folder = fs::temp_directory_path(failure);
    // In a folder that others use, too, such a file may be another process's work that is under way.
    if (failure || !isOwnSpace(folder))
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
        const int marker =
            open((m_folder / keepName).c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, S_IRUSR | S_IWUSR);
        if (marker >= 0)
            close(marker);
    }
    return kept;
}

void TemporarySpace::removeLeft(const fs::path& folder) noexcept {
    std::error_code ignored;
    // Another process that finds it abandoned removes it at the same time; what one misses because of that,
    // the next turn takes.
    for (int turn = 0; turn < removalTurns && isOwnSpace(folder) && !isToKeep(folder); ++turn)
        fs::remove_all(folder, ignored);
}

} // namespace apps::kxvfs
