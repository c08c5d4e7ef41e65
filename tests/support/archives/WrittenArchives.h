#pragma once

#include <cstdint>
#include <filesystem>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kx::test {

/// Tells the archives that the system has written in the course of a test from those that the test made
/// itself, and has them judged by independent readers: for the end of every fixture that lets the system
/// write archives, so that no test can forget it.
class WrittenArchives {
public:
    /// Bytes that the test puts somewhere itself, be they damaged on purpose. What holds exactly these is not
    /// judged.
    void remember(std::string_view bytes) { m_made.insert(mark(bytes)); }

    /// The bytes of a container that is not a local file.
    void add(const std::string& place, std::string bytes);
    /// The regular files in the folder and below it.
    void addFolder(const std::filesystem::path& folder);

    /// What independent readers find wrong with the archives that were added; empty when nothing. A place
    /// counts as an archive by its bytes, or by a name that ends in ".zip".
    std::string problems() const;

private:
    using Mark = std::pair<std::size_t, std::size_t>;

    static Mark mark(std::string_view bytes);

    std::set<Mark> m_made;
    std::vector<std::pair<std::string, std::string>> m_written;
};

} // namespace kx::test
