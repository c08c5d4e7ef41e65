#pragma once

#include <csignal>
#include <stdexcept>
#include <sys/resource.h>

namespace kx::test {

/// Lets no file of this process grow beyond `bytes` until the end of the block, as on a disk that is full.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) : m_handler(std::signal(SIGXFSZ, SIG_IGN)) {
        rlimit limit{};
        if (getrlimit(RLIMIT_FSIZE, &limit) != 0) {
            throw std::runtime_error("cannot read the limit of file sizes");
        }
        m_before = limit;
        limit.rlim_cur = bytes;
        if (setrlimit(RLIMIT_FSIZE, &limit) != 0) {
            throw std::runtime_error("cannot limit the size of files");
        }
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &m_before);
        std::signal(SIGXFSZ, m_handler);
    }

    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    using Handler = void (*)(int);

    Handler m_handler;
    rlimit m_before{};
};

} // namespace kx::test
