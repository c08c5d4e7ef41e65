#pragma once

#include <foundation/storage/provider/StorageIRI.h>

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <windows.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string_view>
#include <utility>

namespace storage::fileprovider {

/// Owns an open file or folder of Windows, or none. Movable.
class FileHandle {
public:
    FileHandle() = default;
    explicit FileHandle(HANDLE handle) noexcept : m_handle(handle) {}
    ~FileHandle() { close(); }

    FileHandle(FileHandle&& other) noexcept : m_handle(std::exchange(other.m_handle, INVALID_HANDLE_VALUE)) {}
    FileHandle& operator=(FileHandle&& other) noexcept {
        if (this != &other) {
            close();
            m_handle = std::exchange(other.m_handle, INVALID_HANDLE_VALUE);
        }
        return *this;
    }
    FileHandle(const FileHandle&) = delete;
    FileHandle& operator=(const FileHandle&) = delete;

    /// CreateFileW that shares the file with everybody, for deletion too. Not open after a failure, with
    /// GetLastError().
    static FileHandle open(const std::filesystem::path& path, DWORD access, DWORD disposition,
                           DWORD flags = 0) noexcept;

    bool isOpen() const noexcept { return m_handle != INVALID_HANDLE_VALUE; }
    HANDLE get() const noexcept { return m_handle; }
    void close() noexcept;

private:
    HANDLE m_handle = INVALID_HANDLE_VALUE;
};

/// What the system tells of a file or folder.
struct FileStatus {
    bool isFolder = false;
    bool isReadOnly = false;
    /// A symbolic link or another reparse point; only where the item itself was asked for.
    bool isLink = false;
    std::uint64_t size = 0;
    FILETIME lastWritten{};
    DWORD volume = 0;
    std::uint64_t index = 0;
    DWORD links = 0;

    bool isSameItem(const FileStatus& other) const { return volume == other.volume && index == other.index; }
    bool isSameState(const FileStatus& other) const {
        return isSameItem(other) && size == other.size &&
               ::CompareFileTime(&lastWritten, &other.lastWritten) == 0;
    }
};

/// Disengaged with GetLastError().
std::optional<FileStatus> statusOf(HANDLE file) noexcept;
/// Of what links lead to; disengaged when there is nothing or it cannot be asked, with GetLastError().
std::optional<FileStatus> statusOf(const std::filesystem::path& path) noexcept;
/// Of the item itself, be it a link.
std::optional<FileStatus> statusOfItself(const std::filesystem::path& path) noexcept;

/// not_a_date_time outside the years that the type knows.
boost::posix_time::ptime toTime(const FILETIME& time);
/// Disengaged for a time that the system does not know.
std::optional<FILETIME> toFileTime(const boost::posix_time::ptime& time);

/// Reads up to `count` bytes, fewer only at the end of the file. Returns the number, or -1 with
/// GetLastError().
std::int64_t readAt(HANDLE file, char* buffer, std::int64_t count, std::uint64_t position) noexcept;
/// Returns whether all was written, else GetLastError().
bool writeAt(HANDLE file, const char* buffer, std::int64_t count, std::uint64_t position) noexcept;
/// Copies the first `size` bytes of a file over those of another. False with GetLastError().
bool copyBytes(HANDLE from, HANDLE to, std::uint64_t size);
bool setSize(HANDLE file, std::uint64_t size) noexcept;

/// What became of the try to lock a file.
enum class LockResult { Locked, Held, Impossible };
/// Locks a byte that no file has, so that nobody is kept from reading or writing. Ends with the handle.
LockResult lockFile(HANDLE file, bool wait) noexcept;

/// Throws the provider's Exception for a Windows error. The cause is the system's text, behind `doing` and a
/// colon when that is given.
[[noreturn]] void throwWindowsError(const foundation::storage::provider::StorageIRI& iri, DWORD error,
                                    std::string_view doing = {});

/// A path as text in messages.
std::string textOf(const std::filesystem::path& path);

} // namespace storage::fileprovider
