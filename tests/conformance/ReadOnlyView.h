#pragma once

#include <filesystem>

namespace kx::test {

/// Makes a folder read-only for everybody until the end of the block, where the system lets this process do
/// so.
class ReadOnlyView {
public:
    explicit ReadOnlyView(std::filesystem::path folder);
    ~ReadOnlyView();

    ReadOnlyView(const ReadOnlyView&) = delete;
    ReadOnlyView& operator=(const ReadOnlyView&) = delete;

    bool isMade() const { return m_isMade; }

private:
    const std::filesystem::path m_folder;
    bool m_isMounted = false;
    bool m_isMade = false;
};

} // namespace kx::test
