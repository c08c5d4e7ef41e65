#include <storage/mount/src/ScratchFile.h>

#include <storage/mount/src/SystemFailure.h>

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <sys/resource.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <utility>

namespace storage::mount {

namespace {

int makeUnnamed(const std::string& folder) {
    const int file = open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (file >= 0 || (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL))
        return file;
    auto name = folder + "/kxvfs-scratch-XXXXXX";
    const int named = mkostemp(name.data(), O_CLOEXEC);
    if (named >= 0)
        unlink(name.c_str());
    return named;
}

} // namespace

ScratchFile::~ScratchFile() {
    if (m_descriptor >= 0)
        close(m_descriptor);
}

ScratchFile::ScratchFile(ScratchFile&& other) noexcept
    : m_descriptor(std::exchange(other.m_descriptor, -1)) {}

ScratchFile& ScratchFile::operator=(ScratchFile&& other) noexcept {
    std::swap(m_descriptor, other.m_descriptor);
    return *this;
}

ScratchFile ScratchFile::make() {
    ScratchFile file;
    file.m_descriptor = makeUnnamed(std::filesystem::temp_directory_path().string());
    if (file.m_descriptor < 0)
        failWith(errno, "cannot make a working file");
    return file;
}

std::size_t ScratchFile::read(std::uint64_t offset, char* buffer, std::size_t count) const {
    std::size_t done = 0;
    while (done < count) {
        const auto got = pread(m_descriptor, buffer + done, count - done, static_cast<off_t>(offset + done));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            failWith(errno, "cannot read a working file");
        if (got == 0)
            break;
        done += static_cast<std::size_t>(got);
    }
    return done;
}

std::size_t ScratchFile::write(std::uint64_t offset, const char* data, std::size_t count) {
    std::size_t done = 0;
    while (done < count) {
        const auto put = pwrite(m_descriptor, data + done, count - done, static_cast<off_t>(offset + done));
        if (put < 0 && errno == EINTR)
            continue;
        if (put < 0)
            break;
        done += static_cast<std::size_t>(put);
    }
    return done;
}

void ScratchFile::resize(std::uint64_t size) {
    if (ftruncate(m_descriptor, static_cast<off_t>(size)) != 0)
        failWith(errno, "cannot resize a working file");
}

std::uint64_t ScratchFile::room() const {
    struct statvfs status {};
    if (fstatvfs(m_descriptor, &status) != 0)
        failWith(errno, "cannot ask for the room of working files");
    return static_cast<std::uint64_t>(status.f_bavail) * status.f_frsize;
}

std::uint64_t raiseFileLimit() {
    struct rlimit limit {};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
        failWith(errno, "cannot ask for the limit of open files");
    auto raised = limit;
    raised.rlim_cur = limit.rlim_max;
    return setrlimit(RLIMIT_NOFILE, &raised) == 0 ? raised.rlim_cur : limit.rlim_cur;
}

} // namespace storage::mount
