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

bool isOwn(const fs::path& folder) {
    struct stat status {};
    return lstat(folder.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == geteuid();
}

void removeIfAbandoned(const fs::path& folder) {
    std::error_code ignored;
    if (!isOwn(folder) || fs::exists(folder / keepName, ignored))
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

void removeAbandoned(const fs::path& parent) {
    std::error_code failure;
    for (fs::directory_iterator entry(parent, failure), end; !failure && entry != end;
         entry.increment(failure))
        if (entry->path().filename().native().starts_with(prefix))
            removeIfAbandoned(entry->path());
}

} // namespace

TemporarySpace::TemporarySpace() {
    std::error_code failure;
    const auto parent = fs::temp_directory_path(failure);
    if (failure)
        return;
    removeAbandoned(parent);
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

std::vector<fs::path> TemporarySpace::keepRescued() {
    std::vector<fs::path> rescued;
    if (m_folder.empty())
        return rescued;
    std::error_code failure;
    for (const auto& entry : fs::directory_iterator(m_folder, failure))
        if (entry.path().filename().native().ends_with(rescuedEnding))
            rescued.push_back(entry.path());
    if (!rescued.empty()) {
        m_kept = true;
        const int marker =
            open((m_folder / keepName).c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, S_IRUSR | S_IWUSR);
        if (marker >= 0)
            close(marker);
    }
    return rescued;
}

void TemporarySpace::remove() const noexcept {
    std::error_code ignored;
    if (!m_folder.empty() && !m_kept)
        fs::remove_all(m_folder, ignored);
}

} // namespace apps::kxvfs
