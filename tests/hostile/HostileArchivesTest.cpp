#include "HostileArchives.h"

#include <kxvfs/Tool.h>

#include <cstdlib>
#include <map>
#include <sstream>

using namespace kx::test;

namespace {

constexpr const char* document = KX_SOURCE_DIR "/docs/hostile-archives.md";
constexpr const char* tableBegin = "<!-- tables: written by the test -->\n";

std::string replaced(std::string value, const std::string& part, const std::string& by) {
    for (auto place = value.find(part); place != std::string::npos;
         place = value.find(part, place + by.size()))
        value.replace(place, part.size(), by);
    return value;
}

/// Text as it can stand in a cell of the table; long names are cut.
std::string cell(std::string value) {
    value = replaced(replaced(value, "|", "\\|"), "\n", "; ");
    constexpr std::size_t longest = 300;
    if (value.size() > longest)
        value = value.substr(0, longest / 2) + " … " + value.substr(value.size() - 60);
    return value;
}

class HostileArchives : public Tool {
protected:
    /// What a command says, without what every message begins with: the number of messages when more than
    /// one.
    static std::string said(const std::string& command, const ProcessResult& result) {
        std::istringstream lines(result.errors);
        std::vector<std::string> messages;
        for (std::string line; std::getline(lines, line);) {
            line = replaced(line, "kxvfs: " + command + ": ", "");
            line = replaced(replaced(line, "x.zip: ", ""), "x.zip/", "");
            messages.push_back(line);
        }
        if (messages.empty())
            return result.exitCode == 0 ? "" : "status " + std::to_string(result.exitCode);
        constexpr std::size_t shown = 2;
        std::string said;
        for (std::size_t i = 0; i < messages.size() && i < shown; ++i)
            said += (i == 0 ? "" : "; ") + messages[i];
        return messages.size() > shown ? said + "; " + std::to_string(messages.size() - shown) + " more"
                                       : said;
    }

    /// Runs the tool on an archive that may hold anything: it has to end by itself, with status 0 or 1 and a
    /// message with 1.
    ProcessResult ask(const std::vector<std::string>& arguments) {
        auto result = run(arguments);
        EXPECT_TRUE(result.exitCode == 0 || result.exitCode == 1) << result.exitCode << ' ' << result.errors;
        EXPECT_FALSE(result.timedOut);
        EXPECT_EQ(result.exitCode == 0, result.errors.empty()) << result.errors;
        return result;
    }

    std::string list() {
        const auto listed = ask({"--json", "ls", "-R", "x.zip"});
        m_listed.clear();
        if (nlohmann::json::accept(listed.output)) {
            for (const auto& entry : nlohmann::json::parse(listed.output)) {
                if (entry.contains("path"))
                    m_listed.push_back(entry["path"]);
            }
        }
        const auto plain = ask({"ls", "-R", "x.zip"});
        const auto message = said("ls", plain);
        return std::to_string(m_listed.size()) + " entries" + (message.empty() ? "" : "; " + message);
    }

    std::string read(const std::string& entry) {
        if (entry.empty())
            return "–";
        const auto result = ask({"cat", "x.zip/" + entry});
        const auto message = said("cat", result);
        return std::to_string(result.output.size()) + " bytes" + (message.empty() ? "" : "; " + message);
    }

    /// Nothing may come to stand outside the folder that is copied to.
    std::string copyOut() {
        std::filesystem::create_directories(folder.file("out"));
        const auto result = ask({"cp", "-r", "x.zip/", "out/"});
        std::size_t files = 0;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.file("out"))) {
            EXPECT_TRUE(entry.is_regular_file() || entry.is_directory()) << entry.path();
            EXPECT_FALSE(entry.is_symlink()) << entry.path();
            files += entry.is_regular_file() ? 1 : 0;
        }
        Names outside;
        for (const auto& entry : std::filesystem::directory_iterator(folder.path()))
            outside.push_back(entry.path().filename().string());
        std::sort(outside.begin(), outside.end());
        EXPECT_EQ(outside, (Names{"out", "x.zip"}));
        std::filesystem::remove_all(folder.file("out"));
        const auto message = said("cp", result);
        return std::to_string(files) + " files" + (message.empty() ? "" : "; " + message);
    }

    /// A change is either made, and the new archive is sound and holds all that was listed before, or
    /// refused, and the archive is as it was.
    std::string change() {
        const auto before = load("x.zip");
        const auto result = ask({"mkdir", "x.zip/added"});
        if (result.exitCode != 0) {
            EXPECT_EQ(load("x.zip"), before);
            return "refused; " + said("mkdir", result);
        }
        EXPECT_EQ(verifyArchive(folder.file("x.zip")).problems(), "");
        const auto listedBefore = m_listed;
        list();
        for (const auto& path : listedBefore)
            EXPECT_NE(std::find(m_listed.begin(), m_listed.end(), path), m_listed.end()) << path;
        return "done";
    }

    std::string check() { return said("check", ask({"check", "x.zip"})); }

    std::string row(const HostileArchive& archive) {
        save("x.zip", archive.bytes);
        const auto listing = list();
        const auto reading = read(archive.entry);
        const auto copying = copyOut();
        const auto checking = check();
        const auto changing = change();
        EXPECT_EQ(leftovers(), 0U);
        std::string row = "| " + archive.fault;
        for (const auto& value :
             {listing, reading, copying, changing, checking.empty() ? std::string("no problems") : checking})
            row += " | " + cell(value);
        return row + " |\n";
    }

private:
    Names m_listed;
};

std::string slurp(const char* file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

} // namespace

/// The table is what the tool does. KX_WRITE_DOCUMENTS=1 writes it anew after a change.
TEST_F(HostileArchives, AreTreatedAsTheDocumentSays) {
    std::string table;
    std::size_t count = 0;
    for (const auto& group : hostileArchives()) {
        table += "\n## " + group.heading +
                 "\n\n| fault | listing | reading | copying out | changing | checking |\n";
        table += "|---|---|---|---|---|---|\n";
        for (const auto& archive : group.archives) {
            SCOPED_TRACE(group.heading + ": " + archive.fault);
            table += row(archive);
            ++count;
        }
    }
    std::cout << count << " hostile archives" << std::endl;
    const auto text = slurp(document);
    const auto begin = text.find(tableBegin);
    ASSERT_NE(begin, std::string::npos);
    const auto upToTable = text.substr(0, begin + std::string_view(tableBegin).size());
    if (std::getenv("KX_WRITE_DOCUMENTS") != nullptr)
        std::ofstream(document, std::ios::binary | std::ios::trunc) << upToTable << table;
    else
        EXPECT_EQ(text.substr(upToTable.size()), table);
}
