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
constexpr std::string_view rescuedEnding = "sanitized.zip";
constexpr int removalTurns = 3;

/// The lock file of a folder, opened; -1 where it cannot be.
int openLock(const fs::path& folder) {
    return open((folder / lockName).c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW);
}

/// Makes the lock file under another name first, so that nobody sees it without its lock.
int makeLock(const fs::path& folder) {
    const auto first = folder / (std::string(lockName) + "-");
    const int lock =
        open(first.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR);
    if (lock >= 0 && flock(lock, LOCK_EX) == 0) {
        std::error_code ignored;
        fs::rename(first, folder / lockName, ignored);
    }
    return lock;
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

bool isToKeep(const fs::path& folder) {
    std::error_code ignored;
    return fs::exists(folder / keepName, ignored);
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
    auto name = (parent / (std::string(prefix) + "XXXXXX")).string();
    if (!mkdtemp(name.data()))
        return;
    m_folder = name;
    m_lock = makeLock(m_folder);
    setenv("TMPDIR", name.c_str(), 1);
}

TemporarySpace::~TemporarySpace() {
    if (m_lock >= 0)
        close(m_lock);
}

std::vector<fs::path> TemporarySpace::rescued() {
    std::vector<fs::path> found;
    std::error_code failure;
    for (const auto& entry : fs::directory_iterator(fs::temp_directory_path(failure), failure))
        if (entry.path().filename().native().ends_with(rescuedEnding))
            found.push_back(entry.path());
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
