#include <storage/fileprovider/src/WindowsCommitMark.h>

#include <array>
#include <cwchar>

namespace storage::fileprovider {

namespace {

using Name = std::array<wchar_t, 64>;

/// For the processes of all who use the machine.
Name nameFor(const FileStatus& staging) {
    Name name{};
    std::swprintf(name.data(), name.size(), L"Global\\kxvfs-commit-%08lx-%016llx",
                  static_cast<unsigned long>(staging.volume), static_cast<unsigned long long>(staging.index));
    return name;
}

HANDLE orInvalid(HANDLE handle) {
    return handle ? handle : INVALID_HANDLE_VALUE;
}

} // namespace

WindowsCommitMark::WindowsCommitMark(const FileStatus& staging) noexcept
    : m_event(orInvalid(::CreateEventW(nullptr, TRUE, FALSE, nameFor(staging).data()))) {}

bool WindowsCommitMark::isSet(const FileStatus& staging) noexcept {
    return FileHandle(orInvalid(::OpenEventW(SYNCHRONIZE, FALSE, nameFor(staging).data()))).isOpen();
}

} // namespace storage::fileprovider
