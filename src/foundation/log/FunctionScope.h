#pragma once

#include <foundation/log/Export.h>
#include <foundation/log/Record.h>
#include <foundation/log/basic_diagnostic_logger.h>

#include <memory>
#include <new>
#include <sstream>
#include <string>
#include <string_view>

namespace foundation::log {

/// The record of a function's run: its signature, source file and line at the begin; records made before the
/// end stand one step further in. At the end, "(marker) value" if the function told a result, and "[throw]"
/// if an exception leaves it. Records have the severity info. Made by KX_LOG_FUNCTION. Threads: a scope
/// belongs to the thread and the block that it was made in.
class KXFOUNDATION_LOG_API FunctionScope {
public:
    /// The texts must outlive the scope.
    FunctionScope(const basic_diagnostic_logger& logger, const char* signature, const char* file, int line) {
        if (logger.enabled(severity::info)) {
            open(logger, signature, file, line);
        }
    }
    ~FunctionScope() {
        if (m_open) {
            close();
        }
    }

    FunctionScope(const FunctionScope&) = delete;
    FunctionScope& operator=(const FunctionScope&) = delete;

    /// Has the scope's end log `marker` and `value`; returns `value`, for use in a return statement. The last
    /// result told counts.
    template <typename T>
    T result(std::string_view marker, T value) {
        if (m_open) {
            try {
                std::ostringstream text;
                text << marker << ' ';
                detail::write<T>(text, value);
                setResult(std::move(text).str());
            } catch (const std::bad_alloc&) {
                // What the function has done stands, with its result or without in the log.
            }
        }
        return value;
    }

    /// The result of a write: how much was written.
    template <typename T>
    T wrote(T count) {
        return result("(wrote)", count);
    }

    /// The result of a seek: the position that was reached.
    template <typename T>
    T to(T position) {
        return result("(to)", position);
    }

private:
    struct Open;
    struct OpenDeleter {
        KXFOUNDATION_LOG_API void operator()(Open* open) const noexcept;
    };

    void open(const basic_diagnostic_logger& logger, const char* signature, const char* file,
              int line) noexcept;
    void close() noexcept;
    void setResult(std::string text) noexcept;

    // Null in a scope that is not logged, also for want of memory.
    std::unique_ptr<Open, OpenDeleter> m_open;
};

} // namespace foundation::log
