#include "IndependentReaders.h"

#include <algorithm>
#include <sstream>

#include <nlohmann/json.hpp>

#include <support/archives/Process.h>

namespace kx::test {

namespace {

constexpr const char* pythonReader = R"(
import json, sys, zipfile, zlib
result = []
with zipfile.ZipFile(sys.argv[1]) as archive:
    for info in archive.infolist():
        crc = size = 0
        with archive.open(info) as stream:
            while block := stream.read(1 << 20):
                crc = zlib.crc32(block, crc)
                size += len(block)
        if size != info.file_size:
            sys.exit('%r: %d bytes read, %d promised' % (info.filename, size, info.file_size))
        result.append([info.filename, size, crc, list(info.date_time), info.compress_type, info.flag_bits])
sys.stdout.write(json.dumps(result, ensure_ascii=True))
)";

const ProcessOptions utf8{"", {{"LC_ALL", "C.UTF-8"}, {"TZ", "UTC"}}, "", std::chrono::seconds(300), {}};

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> result;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        result.push_back(line);
    return result;
}

ReaderVerdict askUnzip(const std::string& archive) {
    ReaderVerdict verdict;
    verdict.present = programExists("unzip");
    if (!verdict.present)
        return verdict;
    const ProcessResult test = runProcess({"unzip", "-t", archive}, utf8);
    verdict.output = test.output + test.errors;
    // Exit status 1 of an archive without entries is only a remark.
    const bool empty = test.exitCode == 1 && verdict.output.find("zipfile is empty") != std::string::npos;
    verdict.accepted = test.ok() || empty;
    if (!empty)
        verdict.names = lines(runProcess({"unzip", "-Z1", archive}, utf8).output);
    return verdict;
}

ReaderVerdict askPython(const std::string& archive, std::vector<SeenEntry>& entries) {
    ReaderVerdict verdict;
    verdict.present = programExists("python3");
    if (!verdict.present)
        return verdict;
    const ProcessResult read = runProcess({"python3", "-c", pythonReader, archive}, utf8);
    verdict.accepted = read.ok();
    verdict.output = read.ok() ? "" : read.output + read.errors;
    if (!read.ok())
        return verdict;
    for (const nlohmann::json& row : nlohmann::json::parse(read.output)) {
        entries.push_back({row[0].get<std::string>(), row[1].get<std::uint64_t>(),
                           row[2].get<std::uint32_t>(), row[3].get<std::array<int, 6>>(), row[4].get<int>(),
                           row[5].get<int>()});
        verdict.names.push_back(entries.back().name);
    }
    return verdict;
}

ReaderVerdict askBsdtar(const std::string& archive) {
    ReaderVerdict verdict;
    verdict.present = programExists("bsdtar");
    if (!verdict.present)
        return verdict;
    const ProcessResult list = runProcess({"bsdtar", "-tf", archive}, utf8);
    verdict.names = lines(list.output);
    // The shell keeps gigabytes of extracted data out of the pipe.
    const ProcessResult read =
        runProcess({"sh", "-c", "exec bsdtar -xOf \"$1\" >/dev/null", "sh", archive}, utf8);
    verdict.output = list.errors + read.errors;
    verdict.accepted = list.ok() && read.ok();
    return verdict;
}

void complain(std::string& text, const char* reader, const ReaderVerdict& verdict, std::size_t entries) {
    if (!verdict.present)
        text += std::string(reader) + " is not installed\n";
    else if (!verdict.accepted)
        text += std::string(reader) + " does not accept the archive:\n" + verdict.output + "\n";
    else if (verdict.names.size() != entries)
        text += std::string(reader) + " sees " + std::to_string(verdict.names.size()) +
                " entries instead of " + std::to_string(entries) + "\n";
}

} // namespace

ArchiveVerdict verifyArchive(const std::filesystem::path& archive) {
    ArchiveVerdict verdict;
    verdict.unzip = askUnzip(archive.string());
    verdict.python = askPython(archive.string(), verdict.entries);
    verdict.bsdtar = askBsdtar(archive.string());
    return verdict;
}

std::string ArchiveVerdict::problems() const {
    std::string text;
    complain(text, "unzip", unzip, entries.size());
    complain(text, "python3", python, entries.size());
    complain(text, "bsdtar", bsdtar, entries.size());
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
