#include "LocalArchiveFile.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <new>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace storage::zipprovider {

namespace {

constexpr std::size_t capacity = std::size_t{64} * 1024;

int openRetrying(const char* path, int flags) {
    int file = -1;
    do {
        file = ::open(path, flags, S_IRUSR | S_IWUSR);
    } while (file < 0 && errno == EINTR);
    return file;
}

} // namespace

std::unique_ptr<LocalArchiveFile> LocalArchiveFile::open(const std::filesystem::path& accessForm,
                                                         Mode mode) noexcept {
    try {
        std::unique_ptr<LocalArchiveFile> opened(new LocalArchiveFile);
        opened->m_bytes.reserve(capacity);
        const int creation = mode == Mode::Create ? O_CREAT | O_TRUNC | O_NOFOLLOW : 0;
        opened->m_file = openRetrying(accessForm.c_str(), O_RDWR | O_CLOEXEC | creation);
        return opened->m_file < 0 ? nullptr : std::move(opened);
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
        return nullptr;
    }
}

LocalArchiveFile::~LocalArchiveFile() {
    const int error = errno;
    close();
    errno = error;
}

std::size_t LocalArchiveFile::read(char* buffer, std::size_t count) {
    std::size_t total = 0;
    while (flush() && total < count) {
        const auto got = ::pread(m_file, buffer + total, count - total, static_cast<off_t>(m_position));
        if (got > 0) {
            total += static_cast<std::size_t>(got);
            m_position += static_cast<std::uint64_t>(got);
        } else if (got == 0 || errno != EINTR) {
            expect(got == 0);
            break;
        }
    }
    return total;
}

bool LocalArchiveFile::write(const char* data, std::size_t count) {
    while (count > 0 && isGood()) {
        const bool joins = m_position >= m_start && m_position - m_start <= m_bytes.size();
        if ((!joins || m_position - m_start == capacity) && !flush()) {
            break;
        }
        if (m_bytes.empty()) {
            m_start = m_position;
        }
        const auto offset = static_cast<std::size_t>(m_position - m_start);
        const auto now = std::min(count, capacity - offset);
        const auto replaced = std::min(now, m_bytes.size() - offset);
        std::copy_n(data, replaced, m_bytes.begin() + static_cast<std::ptrdiff_t>(offset));
        m_bytes.insert(m_bytes.end(), data + replaced, data + now);
        m_position += now;
        data += now;
        count -= now;
    }
    return isGood();
}

std::uint64_t LocalArchiveFile::size() {
    struct stat status {};
    return flush() && expect(::fstat(m_file, &status) == 0) ? static_cast<std::uint64_t>(status.st_size) : 0;
}

bool LocalArchiveFile::truncate() {
    return flush() && expect(::ftruncate(m_file, static_cast<off_t>(m_position)) == 0);
}

bool LocalArchiveFile::close() {
    if (m_file >= 0) {
        flush();
        const int file = m_file;
        m_file = -1;
        expect(::close(file) == 0);
    }
    return isGood();
}

bool LocalArchiveFile::isGood() const {
    if (m_error != 0) {
        errno = m_error;
    }
    return m_error == 0;
}

bool LocalArchiveFile::expect(bool succeeded) {
    if (!succeeded && m_error == 0) {
        m_error = errno != 0 ? errno : EIO;
    }
    return isGood();
}

bool LocalArchiveFile::flush() {
    for (std::size_t done = 0; done < m_bytes.size() && isGood();) {
        errno = 0;
        const auto written = ::pwrite(m_file, m_bytes.data() + done, m_bytes.size() - done,
                                      static_cast<off_t>(m_start + done));
        if (written > 0) {
            done += static_cast<std::size_t>(written);
        } else if (written == 0 || errno != EINTR) {
            expect(false);
        }
    }
    m_bytes.clear();
    return expect(m_file >= 0);
}

} // namespace storage::zipprovider
