#pragma once

#include <storage/fileprovider/src/WindowsFile.h>

namespace storage::fileprovider {

/// Tells other processes that a staging file belongs to a living one, while it is put in place: the system
/// then wants it for itself, so that its lock has to go. Goes with the process.
class WindowsCommitMark {
public:
    explicit WindowsCommitMark(const FileStatus& staging) noexcept;

    WindowsCommitMark(const WindowsCommitMark&) = delete;
    WindowsCommitMark& operator=(const WindowsCommitMark&) = delete;

    static bool isSet(const FileStatus& staging) noexcept;

private:
    const FileHandle m_event;
};

} // namespace storage::fileprovider
