#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <vector>

namespace storage::zipprovider {

/// A local file as archives are written: mostly onwards, with a short step back to the header of an entry
/// that is complete. What was written last stays in memory, where such a step is mended without a system
/// call. No operation throws. minizip does not look at the result of every call, so after the first
/// failure every call fails, the last one too, and `errno` is the first failure's. Threads: one at a time.
class LocalArchiveFile {
public:
    enum class Mode {
        /// Makes the file, or empties it; readable and writable by its owner alone. A symbolic link is not
        /// followed.
        Create,
        /// Opens one that exists.
        Open,
    };

    /// Opens the file whose path is `accessForm` in the form that opens it whatever its length. Null when
    /// that fails, with `errno` set.
    static std::unique_ptr<LocalArchiveFile> open(const std::filesystem::path& accessForm,
                                                  Mode mode) noexcept;
    /// What close() would report is lost.
    ~LocalArchiveFile();

    LocalArchiveFile(const LocalArchiveFile&) = delete;
    LocalArchiveFile& operator=(const LocalArchiveFile&) = delete;

    /// Reads up to `count` bytes at the position and moves it behind them; returns how many there were, fewer
    /// at the end of the file or after a failure.
    std::size_t read(char* buffer, std::size_t count);
    /// Writes at the position and moves it behind what was written.
    bool write(const char* data, std::size_t count);
    std::uint64_t position() const { return m_position; }
    void goTo(std::uint64_t position) { m_position = position; }
    /// The file's size, what is still in memory included; the position stays.
    std::uint64_t size();
    /// Makes the file end at the position.
    bool truncate();
    /// Whether no call has failed.
    bool isGood() const;
    /// Brings everything to the file and closes it; returns whether all of it got there.
    bool close();

private:
    LocalArchiveFile() = default;

    /// Remembers a failure; returns whether there was none.
    bool expect(bool succeeded);
    bool flush();

    int m_file = -1;
    std::uint64_t m_position = 0;
    /// The bytes in memory, and where in the file they belong.
    std::vector<char> m_bytes;
    std::uint64_t m_start = 0;
    /// Of the first failure.
    int m_error = 0;
};

} // namespace storage::zipprovider
