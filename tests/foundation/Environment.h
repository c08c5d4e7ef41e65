#pragma once

#include <cstdlib>
#include <optional>
#include <string>

/// Sets (or, without a value, removes) an environment variable until the end of the block.
class ScopedEnvironment {
public:
    ScopedEnvironment(const char* name, std::optional<std::string> value) : m_name(name) {
        if (const char* const before = std::getenv(name)) {
            m_before = before;
        }
        set(value);
    }
    ~ScopedEnvironment() { set(m_before); }

    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    void set(const std::optional<std::string>& value) {
        if (value) {
            ::setenv(m_name.c_str(), value->c_str(), 1);
        } else {
            ::unsetenv(m_name.c_str());
        }
    }

    std::string m_name;
    std::optional<std::string> m_before;
};
