#pragma once

#include <atomic>
#include <stdexcept>
#include <string>
#include <system_error>

namespace cppmicroservices {

/// A library cannot be loaded. The text is the loader's reason.
class LibraryLoadError : public std::runtime_error {
public:
    LibraryLoadError(std::errc code, const std::string& reason) : std::runtime_error(reason), m_code(code) {}

    std::error_code code() const noexcept { return std::make_error_code(m_code); }

private:
    std::errc m_code;
};

/// A library loaded into the process, unloaded when this object goes unless it was pinned. One file per
/// system implements it.
class SharedLibrary {
public:
    /// Loads the library at `path` with all its symbols resolved and none of them visible to other libraries.
    /// Throws LibraryLoadError.
    explicit SharedLibrary(const std::string& path);
    ~SharedLibrary();

    SharedLibrary(const SharedLibrary&) = delete;
    SharedLibrary& operator=(const SharedLibrary&) = delete;

    /// The exported function with that name, null if there is none.
    template <typename Function>
    Function* function(const std::string& name) const noexcept {
        return reinterpret_cast<Function*>(address(name));
    }

    /// Keeps the library in the process for good.
    void pin() const noexcept { m_isPinned = true; }

private:
    void* address(const std::string& name) const noexcept;

    void* const m_handle;
    // Set by one of the owners, read by the last of them.
    mutable std::atomic<bool> m_isPinned{false};
};

} // namespace cppmicroservices
