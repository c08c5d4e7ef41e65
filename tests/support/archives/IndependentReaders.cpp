#include "IndependentReaders.h"

#include <algorithm>

#include <nlohmann/json.hpp>

#include <support/archives/Process.h>

namespace kx::test {

namespace {

ReaderVerdict readerFrom(const nlohmann::json& said) {
    ReaderVerdict reader;
    reader.present = said["present"];
    reader.accepted = said["accepted"];
    reader.output = said["output"];
    reader.names = said["names"].get<std::vector<std::string>>();
    return reader;
}

ArchiveVerdict verdictFrom(const nlohmann::json& said) {
    ArchiveVerdict verdict;
    verdict.unzip = readerFrom(said["unzip"]);
    verdict.python = readerFrom(said["python3"]);
    verdict.bsdtar = readerFrom(said["bsdtar"]);
    for (const nlohmann::json& row : said["entries"]) {
        verdict.entries.push_back({row[0].get<std::string>(), row[1].get<std::uint64_t>(),
                                   row[2].get<std::uint32_t>(), row[3].get<std::array<int, 6>>(),
                                   row[4].get<int>(), row[5].get<int>()});
    }
    for (const auto& [name, inner] : said["inside"].items())
        verdict.inside.emplace(name, verdictFrom(inner));
    verdict.complaints = said["problems"].get<std::vector<std::string>>();
    return verdict;
}

} // namespace

std::vector<ArchiveVerdict> verifyArchives(const std::vector<std::filesystem::path>& archives) {
    if (archives.empty())
        return {};
    // Without what a site adds to Python, which costs more than all the reading.
    std::vector<std::string> command{"python3", "-I", "-S", KX_INDEPENDENT_READERS, "--json"};
    for (const auto& archive : archives)
        command.push_back(archive.generic_string());
    const ProcessResult said = runProcess(command, {"", {}, "", std::chrono::seconds(300), {}});
    std::vector<ArchiveVerdict> verdicts;
    if (!said.ok()) {
        ArchiveVerdict none;
        none.complaints = {"python3 and its independent readers did not run: " + said.errors};
        verdicts.assign(archives.size(), none);
        return verdicts;
    }
    for (const nlohmann::json& one : nlohmann::json::parse(said.output))
        verdicts.push_back(verdictFrom(one));
    return verdicts;
}

ArchiveVerdict verifyArchive(const std::filesystem::path& archive) {
    return verifyArchives({archive}).front();
}

std::string ArchiveVerdict::problems() const {
    std::string text;
    for (const auto& complaint : complaints)
        text += complaint + "\n";
    return text;
}

const SeenEntry* ArchiveVerdict::find(const std::string& name) const {
    const auto found = std::find_if(entries.begin(), entries.end(),
                                    [&](const SeenEntry& entry) { return entry.name == name; });
    return found == entries.end() ? nullptr : &*found;
}

std::vector<std::string> ArchiveVerdict::names() const {
    std::vector<std::string> result;
    for (const SeenEntry& entry : entries)
        result.push_back(entry.name);
    return result;
}

} // namespace kx::test
