#include "ReadOnlyView.h"

#include <sys/mount.h>

#include <utility>

namespace kx::test {

// By a mount, which only the superuser may make.
ReadOnlyView::ReadOnlyView(std::filesystem::path folder) : m_folder(std::move(folder)) {
    constexpr unsigned long remount = MS_REMOUNT | MS_BIND | MS_RDONLY;
    m_isMounted = ::mount(m_folder.c_str(), m_folder.c_str(), nullptr, MS_BIND, nullptr) == 0;
    m_isMade = m_isMounted && ::mount(nullptr, m_folder.c_str(), nullptr, remount, nullptr) == 0;
}

ReadOnlyView::~ReadOnlyView() {
    if (m_isMounted) {
        ::umount2(m_folder.c_str(), MNT_DETACH);
    }
}

} // namespace kx::test
