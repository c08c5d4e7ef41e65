#pragma once

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

#include <stdlib.h>

/// A folder of its own for one test, gone with all it holds at the end.
class TestFolder {
public:
    TestFolder() {
        std::error_code error;
        const std::filesystem::path temporary = std::filesystem::temp_directory_path(error);
        std::string name = ((error ? "/tmp" : temporary) / "kx-test-XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("cannot create a folder like " + name);
        }
        m_path = name;
    }
    ~TestFolder() {
        std::error_code ignored;
        std::filesystem::permissions(m_path, std::filesystem::perms::owner_all, ignored);
        std::filesystem::remove_all(m_path, ignored);
    }

    TestFolder(const TestFolder&) = delete;
    TestFolder& operator=(const TestFolder&) = delete;

    const std::filesystem::path& path() const { return m_path; }

    std::filesystem::path write(std::string_view name, std::string_view content) const {
        const std::filesystem::path file = m_path / name;
        std::ofstream(file, std::ios::binary) << content;
        return file;
    }

private:
    std::filesystem::path m_path;
};
