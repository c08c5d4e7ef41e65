#pragma once

#include <support/TemporaryFolder.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace kx::test {

/// A folder for temporary files of its own until the end of the block, so that what is left there shows.
class WorkingFolder {
public:
    WorkingFolder() {
        if (const char* const before = std::getenv("TMPDIR")) {
            m_before = before;
        }
        setenv("TMPDIR", m_folder.path().c_str(), 1);
    }
    ~WorkingFolder() {
        if (m_before) {
            setenv("TMPDIR", m_before->c_str(), 1);
        } else {
            unsetenv("TMPDIR");
        }
    }

    WorkingFolder(const WorkingFolder&) = delete;
    WorkingFolder& operator=(const WorkingFolder&) = delete;

    const std::filesystem::path& path() const { return m_folder.path(); }

    /// The names of what is in it.
    std::vector<std::string> files() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(m_folder.path())) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    /// The path of the only file in it.
    std::filesystem::path onlyFile() const { return m_folder.path() / files().at(0); }

private:
    TemporaryFolder m_folder;
    std::optional<std::string> m_before;
};

} // namespace kx::test
