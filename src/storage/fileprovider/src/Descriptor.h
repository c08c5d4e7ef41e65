#pragma once

#include <storage/fileprovider/src/SystemCalls.h>

#include <cerrno>
#include <memory>
#include <utility>

namespace storage::fileprovider {

/// Owns an open file of the system, or none. Movable.
class Descriptor {
public:
    Descriptor() = default;
    Descriptor(std::shared_ptr<SystemCalls> calls, int file) noexcept
        : m_calls(std::move(calls)), m_file(file) {}
    ~Descriptor() { close(); }

    Descriptor(Descriptor&& other) noexcept
        : m_calls(std::move(other.m_calls)), m_file(std::exchange(other.m_file, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        if (this != &other) {
            close();
            m_calls = std::move(other.m_calls);
            m_file = std::exchange(other.m_file, -1);
        }
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    /// Opens a file; the result is not open after a failure, with `errno` set.
    static Descriptor open(const std::shared_ptr<SystemCalls>& calls, const char* path, int flags,
                           mode_t mode = 0) {
        int file = -1;
        do {
            file = calls->open(path, flags, mode);
        } while (file < 0 && errno == EINTR);
        return {calls, file};
    }

    bool isOpen() const noexcept { return m_file >= 0; }
    int get() const noexcept { return m_file; }

    /// Returns 0 or an errno. The file counts as closed in any case.
    int close() noexcept {
        if (m_file < 0) {
            return 0;
        }
        return m_calls->close(std::exchange(m_file, -1)) == 0 || errno == EINTR ? 0 : errno;
    }

private:
    std::shared_ptr<SystemCalls> m_calls;
    int m_file = -1;
};

} // namespace storage::fileprovider
