#pragma once

#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

namespace kx::test {

/// Sets the process's local time zone until the end of the block.
class ScopedTimeZone {
public:
    explicit ScopedTimeZone(const std::string& zone) {
        if (const char* const before = std::getenv("TZ")) {
            m_before = before;
        }
        setenv("TZ", zone.c_str(), 1);
        tzset();
    }
    ~ScopedTimeZone() {
        if (m_before) {
            setenv("TZ", m_before->c_str(), 1);
        } else {
            unsetenv("TZ");
        }
        tzset();
    }

    ScopedTimeZone(const ScopedTimeZone&) = delete;
    ScopedTimeZone& operator=(const ScopedTimeZone&) = delete;

private:
    std::optional<std::string> m_before;
};

} // namespace kx::test
