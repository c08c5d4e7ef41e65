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

std::string counted(std::size_t count, const char* one, const char* several) {
    return std::to_string(count) + " " + (count == 1 ? one : several);
}

/// `value` without `part` at its beginning.
std::string after(const std::string& part, std::string value) {
    return value.starts_with(part) ? value.substr(part.size()) : value;
}

class HostileArchives : public Tool {
protected:
    /// What a command says, without what every message begins with and without the place of the archive: the
    /// first two messages, and the number of the others.
    std::string said(const std::string& command, const ProcessResult& result) const {
        std::istringstream lines(result.errors);
        std::vector<std::string> messages;
        for (std::string line; std::getline(lines, line);) {
            line = after("kxvfs: " + command + ": ", line);
            for (const auto* place : {&folder, &temporary}) {
                line = replaced(line, place->iri("").toUtf8(), "");
                line = replaced(line, place->path().string() + "/", "");
            }
            messages.push_back(after("x.zip/", after("x.zip: ", after("x.zip/: ", line))));
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

    std::string list(const HostileArchive& archive) {
        std::vector<std::string> arguments{"--json", "ls", "x.zip"};
        if (archive.listedWhole)
            arguments.insert(arguments.begin() + 2, "-R");
        const auto listed = ask(arguments);
        m_listed.clear();
        for (const auto& entry : nlohmann::json::parse(listed.output)) {
            if (entry.contains("type"))
                m_listed.push_back(entry["path"]);
        }
        const auto message = said("ls", listed);
        return counted(m_listed.size(), "entry", "entries") + (archive.listedWhole ? "" : " in the root") +
               (message.empty() ? "" : "; " + message);
    }

    std::string read(const std::string& entry) {
        if (entry.empty())
            return "–";
        const auto result = ask({"cat", "x.zip/" + entry});
        const auto message = said("cat", result);
        return counted(result.output.size(), "byte", "bytes") + (message.empty() ? "" : "; " + message);
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
        return counted(files, "file", "files") + (message.empty() ? "" : "; " + message);
    }

    /// A change is either made, and the new archive holds all that was listed before and is put aside for
    /// judgeChanged, or refused, and the archive is as it was.
    std::string change(const HostileArchive& archive) {
        const auto before = load("x.zip");
        const auto result = ask({"mkdir", "x.zip/added"});
        if (result.exitCode != 0) {
            EXPECT_EQ(load("x.zip"), before);
            return "refused; " + said("mkdir", result);
        }
        auto expected = m_listed;
        list(archive);
        expected.push_back(iri("x.zip", "added"));
        for (const auto& path : expected)
            EXPECT_NE(std::find(m_listed.begin(), m_listed.end(), path), m_listed.end()) << path;
        m_changed.push_back(changed.file(std::to_string(m_changed.size()) + ".zip"));
        std::filesystem::rename(folder.file("x.zip"), m_changed.back());
        m_judged.push_back(archive);
        return "done";
    }

    /// Independent readers find nothing wrong with any archive that was changed, other than that unzip cuts
    /// names that are longer than a path may be.
    void judgeChanged() const {
        const auto verdicts = verifyArchives(m_changed);
        ASSERT_EQ(verdicts.size(), m_changed.size());
        for (std::size_t i = 0; i < verdicts.size(); ++i) {
            SCOPED_TRACE(m_judged[i].fault);
            const auto& verdict = verdicts[i];
            if (verdict.unzip.output.find("filename too long--truncating") == std::string::npos) {
                EXPECT_EQ(verdict.problems(), m_judged[i].remains);
                continue;
            }
            EXPECT_TRUE(verdict.python.accepted) << verdict.python.output;
            EXPECT_TRUE(verdict.bsdtar.accepted) << verdict.bsdtar.output;
            EXPECT_EQ(verdict.bsdtar.names.size(), verdict.python.names.size());
        }
    }

    std::string check() { return said("check", ask({"check", "x.zip"})); }

    std::string row(const HostileArchive& archive) {
        save("x.zip", archive.bytes);
        const auto listing = list(archive);
        const auto reading = read(archive.entry);
        const auto copying = copyOut();
        const auto checking = check();
        const auto changing = change(archive);
        std::filesystem::remove(folder.file("x.zip"));
        EXPECT_EQ(leftovers(), 0U);
        std::string row = "| " + archive.fault;
        for (const auto& value :
             {listing, reading, copying, changing, checking.empty() ? std::string("no problems") : checking})
            row += " | " + cell(value);
        return row + " |\n";
    }

    TemporaryFolder changed;

private:
    Names m_listed;
    /// The archives that were changed, and what they were made from.
    std::vector<std::filesystem::path> m_changed;
    std::vector<HostileArchive> m_judged;
};

std::string slurp(const char* file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

} // namespace

/// The table is what the tool does. KX_WRITE_DOCUMENTS=1 writes it anew after a
/// change.
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
    judgeChanged();
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
