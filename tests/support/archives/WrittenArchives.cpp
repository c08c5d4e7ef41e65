#include "WrittenArchives.h"

#include <support/archives/IndependentReaders.h>

#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <system_error>

namespace kx::test {

namespace fs = std::filesystem;

namespace {

/// A folder for the time of a judgement.
class Workplace {
public:
    Workplace() {
        // Not in TMPDIR, in which tests look for what the system has left.
        std::string name = "/tmp/kx-written-XXXXXX";
        if (!mkdtemp(name.data()))
            throw std::system_error(errno, std::generic_category(), "cannot make a folder in /tmp");
        m_path = name;
    }
    ~Workplace() {
        std::error_code ignored;
        fs::remove_all(m_path, ignored);
    }
    Workplace(const Workplace&) = delete;
    Workplace& operator=(const Workplace&) = delete;

    const fs::path& path() const { return m_path; }

private:
    fs::path m_path;
};

bool isArchive(const std::string& place, std::string_view bytes) {
    return place.ends_with(".zip") || bytes.starts_with("PK\x03\x04") || bytes.starts_with("PK\x05\x06");
}

} // namespace

void WrittenArchives::add(const std::string& place, std::string bytes) {
    if (isArchive(place, bytes) && !m_made.contains(mark(bytes)))
        m_written.emplace_back(place, std::move(bytes));
}

void WrittenArchives::addFolder(const fs::path& folder) {
    std::error_code ignored;
    for (fs::recursive_directory_iterator entry(folder, fs::directory_options::skip_permission_denied,
                                                ignored);
         !ignored && entry != fs::recursive_directory_iterator(); entry.increment(ignored)) {
        if (entry->is_regular_file(ignored) && !entry->is_symlink(ignored)) {
            std::ifstream file(entry->path(), std::ios::binary);
            add(entry->path().string(), {std::istreambuf_iterator<char>(file), {}});
        }
    }
}

std::string WrittenArchives::problems() const {
    if (m_written.empty())
        return {};
    const Workplace workplace;
    std::vector<fs::path> files;
    for (const auto& [place, bytes] : m_written) {
        files.push_back(workplace.path() / std::to_string(files.size()));
        std::ofstream(files.back(), std::ios::binary) << bytes;
    }
    const auto verdicts = verifyArchives(files);
    std::string text;
    for (std::size_t i = 0; i < verdicts.size(); ++i) {
        if (const auto problems = verdicts[i].problems(); !problems.empty())
            text += m_written[i].first + ": " + problems;
    }
    return text;
}

auto WrittenArchives::mark(std::string_view bytes) -> Mark {
    return {bytes.size(), std::hash<std::string_view>()(bytes)};
}

} // namespace kx::test
