#pragma once

#include <cstddef>
#include <cstdint>

namespace storage::mount {

/// An unnamed local file in the folder for temporary files. Errors: std::system_error.
class ScratchFile {
public:
    ScratchFile() = default;
    ~ScratchFile();
    ScratchFile(ScratchFile&& other) noexcept;
    ScratchFile& operator=(ScratchFile&& other) noexcept;

    static ScratchFile make();

    bool isOpen() const { return m_descriptor >= 0; }
    std::size_t read(std::uint64_t offset, char* buffer, std::size_t count) const;
    /// Returns how many bytes were written when it did not get further than that.
    std::size_t write(std::uint64_t offset, const char* data, std::size_t count);
    void resize(std::uint64_t size);
    /// Bytes free where scratch files stand.
    std::uint64_t room() const;

private:
    int m_descriptor = -1;
};

/// Lets this process have as many scratch files open as the system allows; returns how many.
std::uint64_t raiseFileLimit();

} // namespace storage::mount
