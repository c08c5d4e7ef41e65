#pragma once

#include <minizip/zip.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <unistd.h>

namespace runtime {

inline std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

/// A folder of its own in which a test makes the bundles that it needs.
class BundleFolder {
public:
    using Entries = std::vector<std::pair<std::string, std::string>>;

    BundleFolder() {
        std::string pattern = (std::filesystem::temp_directory_path() / "runtime-test-XXXXXX").string();
        if (!::mkdtemp(pattern.data()))
            throw std::runtime_error("cannot create " + pattern);
        m_path = pattern;
    }
    ~BundleFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    BundleFolder(const BundleFolder&) = delete;
    BundleFolder& operator=(const BundleFolder&) = delete;

    const std::filesystem::path& path() const { return m_path; }

    /// A file with these bytes.
    std::string file(const std::string& name, const std::string& bytes) const {
        const std::string path = (m_path / name).string();
        std::ofstream(path, std::ios::binary) << bytes;
        return path;
    }

    /// A file with these bytes and a ZIP archive of these entries behind them.
    std::string bundle(const std::string& name, const std::string& bytes, const Entries& entries) const {
        return file(name, bytes + archive(entries));
    }

    std::string archive(const Entries& entries) const {
        const std::string path = (m_path / "archive.zip").string();
        const zipFile zip = zipOpen64(path.c_str(), APPEND_STATUS_CREATE);
        for (const auto& [name, content] : entries) {
            zipOpenNewFileInZip(zip, name.c_str(), nullptr, nullptr, 0, nullptr, 0, nullptr, Z_DEFLATED, 9);
            zipWriteInFileInZip(zip, content.data(), static_cast<unsigned>(content.size()));
            zipCloseFileInZip(zip);
        }
        zipClose(zip, nullptr);
        std::string bytes = readFile(path);
        std::filesystem::remove(path);
        return bytes;
    }

private:
    std::filesystem::path m_path;
};

} // namespace runtime
