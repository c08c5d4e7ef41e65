#include <storage/mount/MountRecord.h>

#include <storage/mount/src/MountRecordText.h>
#include <storage/mount/src/Places.h>
#include <storage/mount/src/SystemFailure.h>

#include <foundation/core/Mutex.h>

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>

extern char** environ;

namespace storage::mount {

using foundation::core::Mutex;
using foundation::core::MutexLock;
namespace fs = std::filesystem;

namespace {

constexpr std::string_view ending = ".mount.json";

std::vector<fs::path> recordFolders() {
    std::vector<fs::path> folders;
    if (auto runtime = runtimeFolder(); !runtime.empty())
        folders.push_back(std::move(runtime));
    if (const auto state = stateFolder(); !state.empty())
        folders.push_back(state / "mounts");
    return folders;
}

class Descriptor {
public:
    explicit Descriptor(int number) : m_number(number) {}
    ~Descriptor() {
        if (m_number >= 0)
            close(m_number);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return m_number; }

private:
    int m_number;
};

bool isHeld(int file) {
    if (flock(file, LOCK_SH | LOCK_NB) != 0)
        return true;
    flock(file, LOCK_UN);
    return false;
}

std::string contentsOf(int file) {
    std::string text;
    std::array<char, 4096> buffer{};
    for (;;) {
        const auto got = pread(file, buffer.data(), buffer.size(), static_cast<off_t>(text.size()));
        if (got <= 0)
            return text;
        text.append(buffer.data(), static_cast<std::size_t>(got));
    }
}

/// A record that is being written reads well a moment later.
std::optional<MountRecord> read(int file) {
    constexpr int attempts = 20;
    for (int attempt = 0; attempt < attempts; ++attempt) {
        const bool alive = isHeld(file);
        if (auto record = fromRecordText(contentsOf(file))) {
            record->alive = alive;
            return record;
        }
        if (!alive)
            return std::nullopt;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return std::nullopt;
}

std::vector<fs::path> recordFiles() {
    std::vector<fs::path> files;
    for (const auto& folder : recordFolders()) {
        std::error_code failure;
        for (fs::directory_iterator at(folder, failure), end; !failure && at != end; at.increment(failure))
            if (at->path().native().ends_with(ending))
                files.push_back(at->path());
    }
    return files;
}

int openRecord(const fs::path& file) {
    return open(file.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW);
}

} // namespace

struct MountRecordFile::Impl {
    Mutex mutex;
    MountRecord record KX_GUARDED_BY(mutex);
    fs::path file;
    int descriptor = -1;

    void write() KX_REQUIRES(mutex) {
        const auto text = toRecordText(record);
        const auto written = pwrite(descriptor, text.data(), text.size(), 0);
        if (written < 0 || static_cast<std::size_t>(written) < text.size() ||
            ftruncate(descriptor, static_cast<off_t>(text.size())) != 0)
            failWith(errno, "cannot write " + file.string());
    }
};

MountRecordFile::MountRecordFile(MountRecord record) : m_impl(std::make_unique<Impl>()) {
    for (const auto& other : recordFiles()) {
        const Descriptor file(openRecord(other));
        if (file.get() < 0 || isHeld(file.get()))
            continue;
        const auto old = read(file.get());
        if (!old || old->mountPoint == record.mountPoint)
            unlink(other.c_str());
    }
    const auto folders = recordFolders();
    if (folders.empty())
        failWith(ENOENT, "neither XDG_RUNTIME_DIR nor HOME is set");
    fs::create_directories(folders.front());
    record.alive = true;
    for (unsigned number = 0; m_impl->descriptor < 0; ++number) {
        m_impl->file = folders.front() / fmt::format("{}-{}{}", getpid(), number, ending);
        m_impl->descriptor =
            open(m_impl->file.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR);
        if (m_impl->descriptor < 0 && errno != EEXIST)
            failWith(errno, "cannot make " + m_impl->file.string());
    }
    flock(m_impl->descriptor, LOCK_EX);
    const MutexLock lock(m_impl->mutex);
    m_impl->record = std::move(record);
    m_impl->write();
}

MountRecordFile::~MountRecordFile() {
    close(m_impl->descriptor);
}

void MountRecordFile::update(const MountCondition& condition) {
    const MutexLock lock(m_impl->mutex);
    m_impl->record.condition = condition;
    try {
        m_impl->write();
    } catch (const std::system_error&) {
        // The mount matters more than the news of it; the next ones come soon.
    }
}

void MountRecordFile::end(const MountCondition& condition, const std::string& failure) {
    const MutexLock lock(m_impl->mutex);
    m_impl->record.condition = condition;
    m_impl->record.ended = true;
    m_impl->record.failure = failure;
    m_impl->write();
    if (failure.empty())
        unlink(m_impl->file.c_str());
}

std::vector<MountRecord> listMounts() {
    std::vector<MountRecord> records;
    for (const auto& path : recordFiles()) {
        const Descriptor file(openRecord(path));
        if (file.get() < 0)
            continue;
        if (auto record = read(file.get()))
            records.push_back(std::move(*record));
    }
    return records;
}

struct MountWatch::Impl {
    explicit Impl(int number) : descriptor(number) {}
    Descriptor descriptor;
    fs::path file;
    MountRecord last;
};

MountWatch::MountWatch(std::unique_ptr<Impl> impl) : m_impl(std::move(impl)) {}
MountWatch::~MountWatch() = default;
MountWatch::MountWatch(MountWatch&&) noexcept = default;
MountWatch& MountWatch::operator=(MountWatch&&) noexcept = default;

std::optional<MountWatch> MountWatch::find(const fs::path& mountPoint) {
    std::unique_ptr<Impl> found;
    for (const auto& path : recordFiles()) {
        auto impl = std::make_unique<Impl>(openRecord(path));
        if (impl->descriptor.get() < 0)
            continue;
        auto record = read(impl->descriptor.get());
        if (!record || record->mountPoint != mountPoint)
            continue;
        impl->file = path;
        impl->last = std::move(*record);
        // One that is being served stands for its mount point before one that is over.
        if (!found || impl->last.alive)
            found = std::move(impl);
    }
    if (!found)
        return std::nullopt;
    return MountWatch(std::move(found));
}

MountRecord MountWatch::look() const {
    if (auto record = read(m_impl->descriptor.get()))
        m_impl->last = std::move(*record);
    return m_impl->last;
}

void MountWatch::end() const {
    const auto record = look();
    if (record.alive)
        kill(static_cast<pid_t>(record.process), SIGTERM);
}

MountRecord MountWatch::waitForEnd() const {
    while (flock(m_impl->descriptor.get(), LOCK_SH) != 0 && errno == EINTR) {
    }
    flock(m_impl->descriptor.get(), LOCK_UN);
    return look();
}

void MountWatch::forget() const {
    unlink(m_impl->file.c_str());
}

void unmount(const fs::path& mountPoint, bool detach) {
    if (geteuid() == 0) {
        if (umount2(mountPoint.c_str(), UMOUNT_NOFOLLOW | (detach ? MNT_DETACH : 0)) != 0)
            failWith(errno, "cannot unmount " + mountPoint.string());
        return;
    }
    // Only this program may unmount for a user.
    auto place = mountPoint.string();
    std::array<char*, 6> arguments{const_cast<char*>("fusermount3"),
                                   const_cast<char*>(detach ? "-uz" : "-u"),
                                   const_cast<char*>("-q"),
                                   const_cast<char*>("--"),
                                   place.data(),
                                   nullptr};
    pid_t process = 0;
    if (const int error = posix_spawnp(&process, "fusermount3", nullptr, nullptr, arguments.data(), environ))
        failWith(error, "cannot run fusermount3");
    int status = 0;
    while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        failWith(EBUSY, "cannot unmount " + mountPoint.string());
}

} // namespace storage::mount
