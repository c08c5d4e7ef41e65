#pragma once

#include <storage/fileprovider/src/SystemCalls.h>
#include <support/TemporaryFolder.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace kx::test {

/// The calls of the system, as long as the simulated system runs. It can be made to crash before a chosen
/// call that changes something: from then on such calls fail and have no effect (a crash in the middle of a
/// write or copy does half of it), as if the process had been killed. Afterwards what was not synced can be
/// taken back, as if the power had failed.
///
/// Of a file the bytes and the mark of an interrupted save are followed, of a folder the names. The file
/// system is a strict one: neither a new name, nor a renamed or removed one, is safe until its folder is
/// synced.
class SimulatedCrash final : public storage::fileprovider::SystemCalls {
public:
    /// Follows what happens to the files of `folders`. They must not hold folders.
    explicit SimulatedCrash(const std::vector<std::filesystem::path>& folders);
    ~SimulatedCrash() override;

    /// Crash before the changing call of this number, counted from 1; 0 for never.
    void crashBefore(std::uint64_t number) { m_crashBefore = number; }
    /// Crash before the first call of this name ("copyRange").
    void crashBeforeFirst(std::string_view name) { m_crashName = name; }
    /// Let the call of this number fail with this errno and go on.
    void failCall(std::uint64_t number, int error) {
        m_failing = number;
        m_error = error;
    }
    /// Goes on in the run of the system that `other` was in: a process was killed, and another one started.
    void goOnIn(const SimulatedCrash& other) { m_run = other.m_run; }
    /// No file can be made in this folder.
    void denyCreationIn(const std::filesystem::path& folder) { m_denied = folder.string() + '/'; }
    /// The file system has no extended attributes, no reserving of space or no copying of ranges.
    void withoutAttributes() { m_attributes = false; }
    void withoutAllocation() { m_allocation = false; }
    void withoutCopyRange() { m_copyRange = false; }

    std::uint64_t count() const { return m_count; }
    bool crashed() const { return m_crashed; }

    /// What a failing power can take.
    enum class Unsynced {
        NamesOfAFolder,
        BytesOfAFile,
        MarkOfAFile,
    };
    /// Takes back what was not synced, where `loses` returns true. The files then look as if they had been
    /// written long before the next run of the system began.
    void losePower(const std::function<bool(Unsynced)>& loses);

    /// Lets each block that was written and not synced hold what it held before, what was written, zeros, or
    /// bytes that were never written there. To be called before losePower.
    void garble(unsigned seed);

    int open(const char* path, int flags, mode_t mode) override;
    ssize_t write(int file, const char* buffer, std::size_t count, off_t position) override;
    ssize_t copyRange(int from, off_t fromPosition, int to, off_t toPosition, std::size_t count) override;
    int allocate(int file, off_t position, off_t length) override;
    int truncate(int file, off_t size) override;
    int sync(int file) override;
    int rename(const char* from, const char* to) override;
    int renameToFree(const char* from, const char* to) override;
    int unlink(const char* path) override;
    int setOwner(int file, uid_t user, gid_t group) override;
    int setMode(int file, mode_t mode) override;
    int setAttribute(int file, const char* name, const void* value, std::size_t size, int flags) override;
    int removeAttribute(int file, const char* name) override;
    /// Another run of the system for every object, and for those that go to the real one.
    storage::fileprovider::SystemRun run() override;

private:
    struct Contents {
        std::string bytes;
        std::string mark;
    };
    using Names = std::map<std::string, std::uint64_t>;

    /// Counts a changing call; whether it may be done. `errno` is set when not.
    bool enter(std::string_view name);
    /// Moves what stands at `path` out of the way, so that it can come back.
    bool putAside(const std::string& path);
    void restoreFolder(const std::string& folder, const Names& names);

    const TemporaryFolder m_aside;
    std::string m_run;
    std::map<std::string, Names> m_syncedNames;
    std::map<std::uint64_t, Contents> m_syncedFiles;
    std::uint64_t m_asideCount = 0;
    std::uint64_t m_count = 0;
    std::uint64_t m_crashBefore = 0;
    std::string m_crashName;
    std::uint64_t m_failing = 0;
    int m_error = 0;
    std::string m_denied;
    bool m_attributes = true;
    bool m_allocation = true;
    bool m_copyRange = true;
    bool m_crashed = false;
    bool m_crashesHere = false;
};

} // namespace kx::test
