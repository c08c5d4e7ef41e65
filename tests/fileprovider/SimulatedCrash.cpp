#include "SimulatedCrash.h"

#include "LocalFilesTest.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <random>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace kx::test {

namespace fs = std::filesystem;
using storage::fileprovider::SystemCalls;

namespace {

constexpr const char* markName = "user.kxvfs.save";
// So that copies and writes of a few kilobytes take several calls.
constexpr std::size_t largestTransfer = 8192;
// In 2009 and 2001: the runs that are simulated begin after what was written in the one before.
constexpr timespec startOfRuns{1'230'768'000, 0};
constexpr timespec lastWrites{978'307'200, 0};

std::map<std::string, std::uint64_t> readNames(const std::string& folder) {
    std::map<std::string, std::uint64_t> names;
    for (const auto& name : namesIn(folder)) {
        names[name] = statusOf(fs::path(folder) / name).st_ino;
    }
    return names;
}

std::string nextRun() {
    static std::atomic<int> count = 0;
    return std::to_string(++count);
}

fs::path pathOf(int file) {
    return fs::read_symlink("/proc/self/fd/" + std::to_string(file));
}

} // namespace

SimulatedCrash::SimulatedCrash(const std::vector<fs::path>& folders) : m_run("simulated " + nextRun()) {
    for (const auto& folder : folders) {
        auto& names = m_syncedNames[folder.string()];
        names = readNames(folder.string());
        for (const auto& [name, inode] : names) {
            const auto path = folder / name;
            if (fs::is_regular_file(fs::symlink_status(path))) {
                m_syncedFiles[inode] = {slurp(path), attributeOf(path, markName)};
            }
        }
    }
}

SimulatedCrash::~SimulatedCrash() = default;

bool SimulatedCrash::enter(std::string_view name) {
    if (m_crashed) {
        errno = EIO;
        return false;
    }
    ++m_count;
    if (m_count == m_crashBefore || name == m_crashName) {
        m_crashed = true;
        m_crashesHere = true;
        errno = EIO;
        return false;
    }
    if (m_count == m_failing) {
        errno = m_error;
        return false;
    }
    return true;
}

int SimulatedCrash::open(const char* path, int flags, mode_t mode) {
    if ((flags & O_CREAT) != 0) {
        if (!m_denied.empty() && std::string_view(path).substr(0, m_denied.size()) == m_denied) {
            errno = EACCES;
            return -1;
        }
        if (!enter("create")) {
            return -1;
        }
    }
    return SystemCalls::open(path, flags, mode);
}

ssize_t SimulatedCrash::write(int file, const char* buffer, std::size_t count, off_t position) {
    count = std::min(count, largestTransfer);
    if (!enter("write")) {
        if (std::exchange(m_crashesHere, false) &&
            SystemCalls::write(file, buffer, count / 2, position) < 0) {
            return -1;
        }
        errno = m_crashed ? EIO : m_error;
        return -1;
    }
    return SystemCalls::write(file, buffer, count, position);
}

ssize_t SimulatedCrash::copyRange(int from, off_t fromPosition, int to, off_t toPosition, std::size_t count) {
    if (!m_copyRange) {
        errno = EXDEV;
        return -1;
    }
    count = std::min(count, largestTransfer);
    if (!enter("copyRange")) {
        if (std::exchange(m_crashesHere, false) &&
            SystemCalls::copyRange(from, fromPosition, to, toPosition, count / 2) < 0) {
            return -1;
        }
        errno = m_crashed ? EIO : m_error;
        return -1;
    }
    return SystemCalls::copyRange(from, fromPosition, to, toPosition, count);
}

int SimulatedCrash::allocate(int file, off_t position, off_t length) {
    if (!m_allocation) {
        errno = EOPNOTSUPP;
        return -1;
    }
    return enter("allocate") ? SystemCalls::allocate(file, position, length) : -1;
}

int SimulatedCrash::truncate(int file, off_t size) {
    return enter("truncate") ? SystemCalls::truncate(file, size) : -1;
}

int SimulatedCrash::sync(int file) {
    if (!enter("sync")) {
        return -1;
    }
    const auto path = pathOf(file);
    if (fs::is_directory(path)) {
        const auto known = m_syncedNames.find(path.string());
        if (known != m_syncedNames.end()) {
            known->second = readNames(path.string());
        }
    } else {
        m_syncedFiles[statusOf(path).st_ino] = {slurp(path), attributeOf(path, markName)};
    }
    return 0;
}

int SimulatedCrash::rename(const char* from, const char* to) {
    if (!enter("rename") || (::access(to, F_OK) == 0 && !putAside(to))) {
        return -1;
    }
    return SystemCalls::rename(from, to);
}

int SimulatedCrash::renameToFree(const char* from, const char* to) {
    return enter("renameToFree") ? SystemCalls::renameToFree(from, to) : -1;
}

int SimulatedCrash::unlink(const char* path) {
    if (::access(path, F_OK) != 0) {
        return SystemCalls::unlink(path);
    }
    return enter("unlink") && putAside(path) ? 0 : -1;
}

int SimulatedCrash::setOwner(int file, uid_t user, gid_t group) {
    return enter("setOwner") ? SystemCalls::setOwner(file, user, group) : -1;
}

int SimulatedCrash::setMode(int file, mode_t mode) {
    return enter("setMode") ? SystemCalls::setMode(file, mode) : -1;
}

int SimulatedCrash::setAttribute(int file, const char* name, const void* value, std::size_t size, int flags) {
    if (!m_attributes) {
        errno = ENOTSUP;
        return -1;
    }
    return enter("setAttribute") ? SystemCalls::setAttribute(file, name, value, size, flags) : -1;
}

int SimulatedCrash::removeAttribute(int file, const char* name) {
    if (!m_attributes) {
        errno = ENOTSUP;
        return -1;
    }
    return enter("removeAttribute") ? SystemCalls::removeAttribute(file, name) : -1;
}

storage::fileprovider::SystemRun SimulatedCrash::run() {
    return {m_run, storage::fileprovider::toNanoseconds(startOfRuns)};
}

bool SimulatedCrash::putAside(const std::string& path) {
    return ::rename(path.c_str(), m_aside.file(std::to_string(m_asideCount++)).c_str()) == 0;
}

void SimulatedCrash::losePower(const std::function<bool(Unsynced)>& loses) {
    for (const auto& [folder, names] : m_syncedNames) {
        if (loses(Unsynced::NamesOfAFolder)) {
            restoreFolder(folder, names);
        }
    }
    std::map<std::uint64_t, std::string> present;
    for (const auto& [folder, names] : m_syncedNames) {
        for (const auto& entry : readNames(folder)) {
            present[entry.second] = folder + '/' + entry.first;
        }
    }
    for (const auto& [inode, path] : present) {
        if (!fs::is_regular_file(fs::symlink_status(path))) {
            continue;
        }
        const auto& contents = m_syncedFiles[inode];
        if (loses(Unsynced::BytesOfAFile)) {
            spit(path, contents.bytes);
        }
        if (attributeOf(path, markName) == contents.mark || !loses(Unsynced::MarkOfAFile)) {
            continue;
        }
        if (contents.mark.empty()) {
            ::removexattr(path.c_str(), markName);
        } else {
            EXPECT_TRUE(setAttributeOf(path, markName, contents.mark));
        }
    }
    const timespec times[] = {{0, UTIME_OMIT}, lastWrites};
    for (const auto& [inode, path] : present) {
        EXPECT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
    }
}

void SimulatedCrash::garble(unsigned seed) {
    constexpr std::size_t blockSize = 512;
    std::mt19937 random(seed);
    for (const auto& folder : m_syncedNames) {
        for (const auto& [name, inode] : readNames(folder.first)) {
            const auto path = fs::path(folder.first) / name;
            if (!fs::is_regular_file(fs::symlink_status(path))) {
                continue;
            }
            auto bytes = slurp(path);
            auto before = m_syncedFiles[inode].bytes;
            before.resize(bytes.size(), '\0');
            for (std::size_t begin = 0; begin < bytes.size(); begin += blockSize) {
                const auto size = std::min(blockSize, bytes.size() - begin);
                if (bytes.compare(begin, size, before, begin, size) == 0) {
                    continue;
                }
                switch (random() % 4) {
                case 0:
                    bytes.replace(begin, size, before, begin, size);
                    break;
                case 1:
                    bytes.replace(begin, size, size, '\0');
                    break;
                case 2:
                    bytes.replace(begin, size, randomBytes(size, static_cast<unsigned>(random())));
                    break;
                default:
                    break;
                }
            }
            spit(path, bytes);
        }
    }
}

void SimulatedCrash::restoreFolder(const std::string& folder, const Names& names) {
    for (const auto& entry : readNames(folder)) {
        EXPECT_TRUE(putAside(folder + '/' + entry.first));
    }
    std::map<std::uint64_t, std::string> aside;
    for (const auto& entry : readNames(m_aside.path().string())) {
        aside[entry.second] = m_aside.file(entry.first).string();
    }
    for (const auto& [name, inode] : names) {
        // By a link, since a file may have stood here under several names; the name aside goes afterwards.
        EXPECT_EQ(::link(aside.at(inode).c_str(), (folder + '/' + name).c_str()), 0) << name;
    }
    for (const auto& entry : readNames(m_aside.path().string())) {
        if (std::any_of(names.begin(), names.end(),
                        [&](const auto& name) { return name.second == entry.second; })) {
            EXPECT_EQ(::unlink(m_aside.file(entry.first).c_str()), 0);
        }
    }
}

} // namespace kx::test
